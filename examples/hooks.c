/*
 * Hooks: one that encodes an attribute of a request in its own way, and one that refuses a reply.
 *
 *     cc hooks.c $(pkg-config --cflags --libs lanyard-radius) -o hooks
 *     ./hooks /var/radius.conf carol looking-glass guests
 *
 * The device writes hardware addresses as 02:00:5e:10:00:01, and servers expect 02-00-5E-10-00-01 (RFC 3580
 * section 3.21). It has one packet filter; a user whom the server gives another may not come in without it (RFC
 * 2865 section 5.11).
 */
#include <ctype.h>
#include <stdio.h>
#include <string.h>

#include <lanyard/radius.h>

static const char *knownFilter;

/* Called twice for each attribute: first without `value`, to measure. */
static int packAddress(uint8_t *value, uint8_t *length, const RadPair *pair, const char *secret,
                       RadPacket *packet) {
    (void)secret;
    (void)packet;
    if (pair->attrNum != RAD_ATTR_CALLING_STATION_ID) {
        return 1; /* the library encodes it */
    }
    *length = (uint8_t)(pair->numValue + 2);
    for (uint32_t i = 0; value != NULL && i < pair->numValue; i++) {
        const char character = pair->strValue[i];
        value[i] = character == ':' ? '-' : (uint8_t)toupper((unsigned char)character);
    }
    return 0;
}

static int checkFilter(RadPair *pair, RadPair *list, RadPacket *reply, RadPacket *request,
                       const char *secret) {
    (void)list;
    (void)request;
    (void)secret;
    if (reply->code != RAD_CODE_ACCESS_ACCEPT || pair->attrNum != RAD_ATTR_FILTER_ID) {
        return 1; /* the library decides */
    }
    return strcmp(radPairValue(pair), knownFilter) == 0 ? 0 : -1;
}

static int logIn(const char *user, const char *password) {
    RadPair *request = NULL;
    RadPair *reply = NULL;
    int code = -1;
    if (radPairAdd(&request, RAD_ATTR_USER_NAME, user, 0) != NULL &&
        radPairAdd(&request, RAD_ATTR_USER_PASSWORD, password, 0) != NULL &&
        radPairAdd(&request, RAD_ATTR_CALLING_STATION_ID, "02:00:5e:10:00:01", 0) != NULL) {
        code = radBuildAndSendReq(RAD_CODE_ACCESS_REQUEST, request, &reply);
    }
    radPairListFree(reply);
    radPairListFree(request);
    return code;
}

int main(int argc, char *argv[]) {
    if (argc != 5) {
        fprintf(stderr, "Usage: %s FILE USER PASSWORD KNOWN_FILTER\n", argv[0]);
        return 2;
    }
    knownFilter = argv[4];
    const RadFuncTbl hooks = {packAddress, checkFilter};
    radFuncTblInstall(&hooks);
    if (radLibInit(argv[1]) != 0) {
        return 2; /* the library has logged the file, the line and the reason */
    }
    const int code = logIn(argv[2], argv[3]);
    if (code == RAD_CODE_ACCESS_ACCEPT) {
        printf("%s may come in\n", argv[2]);
    } else {
        char reason[RAD_LAST_ERROR_TEXT_SIZE] = "";
        radLastErrorText(radLastError(), reason, sizeof(reason));
        printf("%s may not come in: %s\n", argv[2], reason);
    }
    radLibExit();
    return code == RAD_CODE_ACCESS_ACCEPT ? 0 : 1;
}
