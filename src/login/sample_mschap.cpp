// Sample programs over MS-CHAP and MS-CHAPv2. Their option string knows -u and -p, which nothing
// handles.
#include <lanyard/radius/methods.h>

#include "login/sample_arguments.h"

namespace lanyard {
namespace {

constexpr const char *kOptions = "vf:u:p:";

}  // namespace
}  // namespace lanyard

using namespace lanyard;

int radMschapSampleInit(void) {
    return 0;
}

int radMschapSampleMain(int argc, char *argv[]) {
    return runLogin(loginStyle(__func__, kOptions), argc, argv, radMschap);
}

int radMschapSampleMainCaptivePortal(int argc, char *argv[], uint32_t *idleMinutes,
                                     uint32_t *sessionMinutes) {
    return runLogin(loginStyle(__func__, kOptions), argc, argv,
                    [=](const char *userName, const char *password) {
                        return radMschapAndGetAttributes(userName, password, idleMinutes,
                                                         sessionMinutes);
                    });
}

int radMschapv2SampleMain(int argc, char *argv[]) {
    return runLogin(loginStyle(__func__, kOptions), argc, argv, radMschapv2);
}

int radMschapv2SampleMainCaptivePortal(int argc, char *argv[], uint32_t *idleMinutes,
                                       uint32_t *sessionMinutes) {
    return runLogin(loginStyle(__func__, kOptions), argc, argv,
                    [=](const char *userName, const char *password) {
                        return radMschapv2AndGetAttributes(userName, password, idleMinutes,
                                                           sessionMinutes);
                    });
}
