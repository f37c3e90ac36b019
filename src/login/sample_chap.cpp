// Sample programs over CHAP.
#include <cstring>

#include <lanyard/radius/methods.h>
#include <palcore.h>

#include "base/log.h"
#include "login/login.h"
#include "login/sample_arguments.h"

namespace lanyard {
namespace {

// Makes a challenge and the response to it, and runs one CHAP method on them.
template <typename Method>
int runChapLogin(const SampleStyle &style, int refusalLevel, int argc, char *argv[],
                 Method method) {
    SampleArguments arguments;
    if (!arguments.parseLogin(style, argc, argv)) {
        return -1;
    }
    palRandLibInit(palCiphPRNGInit, nullptr);
    if (!arguments.startLibrary(style)) {
        return -1;
    }
    const char *password = arguments.password();
    if (!isWithin(arguments.userName(), RAD_USER_NAME_MAX) ||
        !isWithin(password, RAD_PASSWORD_MAX)) {
        radLogAs(style.function, refusalLevel, "Invalid username or password\n");
        return -1;
    }
    std::array<uint8_t, RAD_CHAP_CHALLENGE_SIZE> challenge{};
    std::array<uint8_t, RAD_CHAP_RESPONSE_SIZE> response{};
    if (palRandGen(challenge.data(), challenge.size()) != 0) {
        return -1;
    }
    const int length = radChapRespMake(response.data(), reinterpret_cast<const uint8_t *>(password),
                                       static_cast<int>(std::strlen(password)), challenge.data());
    return method(arguments.userName(), response.data(), length, challenge.data(),
                  static_cast<int>(challenge.size()));
}

}  // namespace
}  // namespace lanyard

using namespace lanyard;

int radChapSampleInit(void) {
    return 0;
}

int radChapSampleMain(int argc, char *argv[]) {
    return runChapLogin(loginStyle(__func__, "vf:"), kLogError, argc, argv, radChapAuth);
}

int radChapSampleMainCaptivePortal(int argc, char *argv[], int *idleMinutes, int *sessionMinutes) {
    // All but a missing option value is told at trace level.
    SampleStyle style = loginStyle(__func__, "vf:");
    style.usageLevel = kLogTrace;
    style.startLevel = kLogTrace;
    return runChapLogin(style, kLogTrace, argc, argv,
                        [=](const char *userName, const uint8_t *response, int responseLength,
                            const uint8_t *challenge, int challengeLength) {
                            return radChapAuthAndGetAttributes(userName, response, responseLength,
                                                               challenge, challengeLength,
                                                               idleMinutes, sessionMinutes);
                        });
}
