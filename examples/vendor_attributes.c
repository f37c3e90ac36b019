/*
 * Attributes of vendors: sends one of WISPr, and reads those of Cisco, Microsoft and WISPr out of an accept.
 *
 *     cc vendor_attributes.c $(pkg-config --cflags --libs lanyard-radius) -o vendor_attributes
 *     ./vendor_attributes /var/radius.conf frank rabbit-hole
 *
 * They travel in the value of Vendor-Specific (RFC 2865 section 5.26): four bytes with the vendor's id, then number,
 * length and value of each.
 */
#include <stdio.h>
#include <string.h>

#include <lanyard/radius.h>

enum { CISCO = 9, MICROSOFT = RAD_VENDOR_MICROSOFT, WISPR = 14122, WISPR_LOCATION_NAME = 2 };
enum { ID = 4, HEADER = 2 }; /* bytes */

typedef enum Kind { TEXT, NUMBER, ADDRESS } Kind;

static const struct {
    uint32_t vendor;
    uint8_t number;
    const char *name;
    Kind kind;
} known[] = {
    {CISCO, 1, "Cisco-AVPair", TEXT},
    {MICROSOFT, 28, "MS-Primary-DNS-Server", ADDRESS},
    {WISPR, 7, "WISPr-Bandwidth-Max-Up", NUMBER},
    {WISPR, 8, "WISPr-Bandwidth-Max-Down", NUMBER},
};

static void show(uint32_t vendor, uint8_t number, const uint8_t *value, int length) {
    for (size_t i = 0; i < sizeof(known) / sizeof(*known); i++) {
        if (known[i].vendor != vendor || known[i].number != number) {
            continue;
        }
        if (known[i].kind == TEXT) {
            printf("%s: %.*s\n", known[i].name, length, (const char *)value);
        } else if (length == 4 && known[i].kind == ADDRESS) {
            printf("%s: %u.%u.%u.%u\n", known[i].name, value[0], value[1], value[2], value[3]);
        } else if (length == 4) {
            const uint32_t high = (uint32_t)value[0] << 24 | (uint32_t)value[1] << 16;
            printf("%s: %u\n", known[i].name, high | (uint32_t)value[2] << 8 | value[3]);
        }
        return;
    }
    printf("vendor %u, number %u: %d bytes\n", vendor, number, length);
}

/* One Vendor-Specific may hold several. No length is used before it was compared with what is there. */
static void showAll(uint8_t *value, int length) {
    if (length < ID) {
        return;
    }
    const uint32_t vendor = venID(value, 0);
    for (int at = ID; at + HEADER <= length; at += value[at + 1]) {
        if (value[at + 1] < HEADER || at + value[at + 1] > length) {
            return;
        }
        show(vendor, value[at], value + at + HEADER, value[at + 1] - HEADER);
    }
}

static RadPair *addText(RadPair **list, uint32_t vendor, uint8_t number, const char *text) {
    uint8_t value[RAD_VALUE_MAX];
    const size_t length = strlen(text);
    if (length > sizeof(value) - ID - HEADER) {
        return NULL;
    }
    venID(value, vendor);
    value[ID] = number;
    value[ID + 1] = (uint8_t)(HEADER + length);
    memcpy(value + ID + HEADER, text, length);
    return radPairAdd(list, RAD_ATTR_VENDOR_SPECIFIC, value, (int)(ID + HEADER + length));
}

int main(int argc, char *argv[]) {
    if (argc != 4) {
        fprintf(stderr, "Usage: %s FILE USER PASSWORD\n", argv[0]);
        return 2;
    }
    if (radLibInit(argv[1]) != 0) {
        return 2; /* the library has logged the file, the line and the reason */
    }
    RadPair *request = NULL;
    RadPair *reply = NULL;
    int code = -1;
    if (radPairAdd(&request, RAD_ATTR_USER_NAME, argv[2], 0) != NULL &&
        radPairAdd(&request, RAD_ATTR_USER_PASSWORD, argv[3], 0) != NULL &&
        addText(&request, WISPR, WISPR_LOCATION_NAME, "Mad Hatter's Cafe") != NULL) {
        code = radBuildAndSendReq(RAD_CODE_ACCESS_REQUEST, request, &reply);
    }
    for (RadPair *pair = radPairGet(reply, RAD_ATTR_VENDOR_SPECIFIC); pair != NULL;
         pair = radPairGet(radPairNext(pair), RAD_ATTR_VENDOR_SPECIFIC)) {
        showAll(radPairValue(pair), radPairValueLen(pair));
    }
    printf("%s may %scome in\n", argv[2], code == RAD_CODE_ACCESS_ACCEPT ? "" : "not ");
    radPairListFree(reply);
    radPairListFree(request);
    radLibExit();
    return code == RAD_CODE_ACCESS_ACCEPT ? 0 : 1;
}
