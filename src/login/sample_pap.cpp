// Sample programs over PAP.
#include <lanyard/radius/methods.h>

#include "base/log.h"
#include "login/sample_arguments.h"

using namespace lanyard;

int radAuthSampleInit(void) {
    return 0;
}

int radAuthSampleMain(int argc, char *argv[]) {
    return runLogin(loginStyle(__func__, "vf:"), argc, argv, radAuth);
}

int radAuthSampleMainCheckAllServer(int argc, char *argv[], int32_t *results) {
    // What goes wrong before the request is told at trace level only.
    SampleStyle style = loginStyle(__func__, "vf:");
    style.usageLevel = kLogTrace;
    style.missingValueLevel = kLogTrace;
    style.startLevel = kLogTrace;
    return runLogin(style, argc, argv, [results](const char *userName, const char *password) {
        return radAuthCheckAllServer(userName, password, results);
    });
}

int radAuthSampleMainCaptivePortal(int argc, char *argv[], uint32_t *idleMinutes,
                                   uint32_t *sessionMinutes) {
    return runLogin(
        loginStyle(__func__, "vf:"), argc, argv, [=](const char *userName, const char *password) {
            return radAuthAndGetAttributes(userName, password, idleMinutes, sessionMinutes);
        });
}
