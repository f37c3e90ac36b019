/*
 * A session from login to logout, with what a server bills by: Start, an Interim-Update for each line on
 * standard input, Stop at its end.
 *
 *     cc accounting.c $(pkg-config --cflags --libs lanyard-radius) -o accounting
 *     ./accounting /var/radius.conf carol looking-glass
 *
 * The file names an accounting server and the dictionary that is installed with the library: the built-in one has
 * no Class, for one.
 */
#include <stdio.h>
#include <time.h>
#include <unistd.h>

#include <lanyard/radius.h>

enum { START = 1, STOP = 2, INTERIM_UPDATE = 3, USER_REQUEST = 1 };

typedef struct Session {
    const char *user;
    char id[17];
    uint32_t start;
    uint64_t received; /* from the user, as the device counts it */
    uint64_t sent;
    RadPair *grants; /* what the server said about the session when it let the user in */
} Session;

static int logIn(Session *session, const char *password) {
    RadPair *request = NULL;
    int code = -1;
    if (radPairAdd(&request, RAD_ATTR_USER_NAME, session->user, 0) != NULL &&
        radPairAdd(&request, RAD_ATTR_USER_PASSWORD, password, 0) != NULL) {
        code = radBuildAndSendReq(RAD_CODE_ACCESS_REQUEST, request, &session->grants);
    }
    radPairListFree(request);
    return code == RAD_CODE_ACCESS_ACCEPT ? 0 : -1;
}

/* Adds what every record says. Class goes back to the server as it came, as often as it came. */
static int addIdentity(RadPair **record, const Session *session) {
    if (radPairAdd(record, RAD_ATTR_USER_NAME, session->user, 0) == NULL ||
        radPairAdd(record, RAD_ATTR_ACCT_SESSION_ID, session->id, 0) == NULL ||
        radPairAdd(record, RAD_ATTR_NAS_PORT_ID, "wlan0", 0) == NULL) {
        return -1;
    }
    for (RadPair *class = radPairGet(session->grants, RAD_ATTR_CLASS); class != NULL;
         class = radPairGet(radPairNext(class), RAD_ATTR_CLASS)) {
        if (radPairAdd(record, RAD_ATTR_CLASS, radPairValue(class), radPairValueLen(class)) ==
            NULL) {
            return -1;
        }
    }
    return 0;
}

/* Adds numbers: what a Start, an Interim-Update and a Stop say; each says more than the one before. */
static int addNumbers(RadPair **record, const Session *session, uint32_t status) {
    const uint32_t now = (uint32_t)time(NULL);
    const struct {
        int attribute;
        uint32_t value;
    } numbers[] = {
        {RAD_ATTR_ACCT_STATUS_TYPE, status},
        {RAD_ATTR_EVENT_TIMESTAMP, now},
        {RAD_ATTR_FRAMED_IP_ADDRESS, 0xC0000217}, /* 192.0.2.23 */
        {RAD_ATTR_ACCT_SESSION_TIME, now - session->start},
        {RAD_ATTR_ACCT_INPUT_OCTETS, (uint32_t)session->received},
        {RAD_ATTR_ACCT_INPUT_GIGAWORDS, (uint32_t)(session->received >> 32)},
        {RAD_ATTR_ACCT_OUTPUT_OCTETS, (uint32_t)session->sent},
        {RAD_ATTR_ACCT_OUTPUT_GIGAWORDS, (uint32_t)(session->sent >> 32)},
        {RAD_ATTR_ACCT_TERMINATE_CAUSE, USER_REQUEST},
    };
    const int count = status == START ? 3 : status == INTERIM_UPDATE ? 8 : 9;
    for (int i = 0; i < count; i++) {
        if (radPairAdd(record, numbers[i].attribute, &numbers[i].value, 0) == NULL) {
            return -1;
        }
    }
    return 0;
}

static void account(const Session *session, uint32_t status, const char *what) {
    RadPair *record = NULL;
    RadPair *reply = NULL;
    if (addIdentity(&record, session) != 0 || addNumbers(&record, session, status) != 0) {
        printf("%s: not sent: see the log\n", what);
    } else if (radBuildAndSendReq(RAD_CODE_ACCOUNTING_REQUEST, record, &reply) ==
               RAD_CODE_ACCOUNTING_RESPONSE) {
        printf("%s: the server has it\n", what);
    } else { /* a device keeps it, and sends it again with Acct-Delay-Time */
        printf("%s: no server has it\n", what);
    }
    radPairListFree(reply);
    radPairListFree(record);
}

int main(int argc, char *argv[]) {
    if (argc != 4) {
        fprintf(stderr, "Usage: %s FILE USER PASSWORD\n", argv[0]);
        return 2;
    }
    if (radLibInit(argv[1]) != 0) {
        return 2; /* the library has logged the file, the line and the reason */
    }
    Session session = {.user = argv[2], .start = (uint32_t)time(NULL)};
    /* Another one for each session, after the next start of the device too. */
    snprintf(session.id, sizeof(session.id), "%08x%08x", session.start, (unsigned)getpid());
    const int result = logIn(&session, argv[3]);
    if (result == 0) {
        account(&session, START, "Start");
        char line[80];
        while (fgets(line, sizeof(line), stdin) != NULL) {
            session.received += 1000000000; /* as the device may have counted */
            session.sent += 5000000000;
            account(&session, INTERIM_UPDATE, "Interim-Update");
        }
        account(&session, STOP, "Stop");
    } else {
        printf("%s may not come in\n", session.user);
    }
    radPairListFree(session.grants);
    radLibExit();
    return result == 0 ? 0 : 1;
}
