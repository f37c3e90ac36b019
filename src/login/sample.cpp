// The sample programs. What they say stands in their rows of the contract.
#include <array>
#include <cstring>

#include <lanyard/radius/methods.h>
#include <palcore.h>

#include "login/contract.h"
#include "login/login.h"
#include "login/sample_arguments.h"

namespace lanyard {
namespace {

// Runs a login method on the user name and password of a command line.
template <typename Method>
int run(const SampleContract &contract, int argc, char *argv[], Method method) {
    SampleArguments arguments;
    if (!arguments.parseLogin(contract, argc, argv) || !arguments.startLibrary(contract)) {
        return -1;
    }
    return method(arguments.userName(), arguments.password());
}

// Makes a challenge and the response to it, and runs a CHAP method on them.
template <typename Method>
int runChap(const SampleContract &contract, int argc, char *argv[], Method method) {
    SampleArguments arguments;
    if (!arguments.parseLogin(contract, argc, argv)) {
        return -1;
    }
    palRandLibInit(palCiphPRNGInit, nullptr);
    if (!arguments.startLibrary(contract)) {
        return -1;
    }
    const char *password = arguments.password();
    if (!isWithin(arguments.userName(), RAD_USER_NAME_MAX) ||
        !isWithin(password, RAD_PASSWORD_MAX)) {
        radLogAs(contract.function, contract.limitLevel, "%s", kBadPassword);
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

// A method that hands back limits, with the places for them.
template <typename Method, typename Minutes>
auto withLimits(Method method, Minutes *idleMinutes, Minutes *sessionMinutes) {
    return [=](auto... inputs) { return method(inputs..., idleMinutes, sessionMinutes); };
}

}  // namespace
}  // namespace lanyard

using namespace lanyard;

int radAuthSampleInit(void) {
    return 0;
}

int radChapSampleInit(void) {
    return 0;
}

int radMschapSampleInit(void) {
    return 0;
}

int radAcctSampleInit(void) {
    return 0;
}

int radAuthSampleMain(int argc, char *argv[]) {
    return run(rowOf(kSamples, __func__), argc, argv, radAuth);
}

int radAuthSampleMainCheckAllServer(int argc, char *argv[], int32_t *results) {
    return run(rowOf(kSamples, __func__), argc, argv,
               [results](const char *userName, const char *password) {
                   return radAuthCheckAllServer(userName, password, results);
               });
}

int radAuthSampleMainCaptivePortal(int argc, char *argv[], uint32_t *idleMinutes,
                                   uint32_t *sessionMinutes) {
    return run(rowOf(kSamples, __func__), argc, argv,
               withLimits(radAuthAndGetAttributes, idleMinutes, sessionMinutes));
}

int radChapSampleMain(int argc, char *argv[]) {
    return runChap(rowOf(kSamples, __func__), argc, argv, radChapAuth);
}

int radChapSampleMainCaptivePortal(int argc, char *argv[], int *idleMinutes, int *sessionMinutes) {
    return runChap(rowOf(kSamples, __func__), argc, argv,
                   withLimits(radChapAuthAndGetAttributes, idleMinutes, sessionMinutes));
}

int radMschapSampleMain(int argc, char *argv[]) {
    return run(rowOf(kSamples, __func__), argc, argv, radMschap);
}

int radMschapSampleMainCaptivePortal(int argc, char *argv[], uint32_t *idleMinutes,
                                     uint32_t *sessionMinutes) {
    return run(rowOf(kSamples, __func__), argc, argv,
               withLimits(radMschapAndGetAttributes, idleMinutes, sessionMinutes));
}

int radMschapv2SampleMain(int argc, char *argv[]) {
    return run(rowOf(kSamples, __func__), argc, argv, radMschapv2);
}

int radMschapv2SampleMainCaptivePortal(int argc, char *argv[], uint32_t *idleMinutes,
                                       uint32_t *sessionMinutes) {
    return run(rowOf(kSamples, __func__), argc, argv,
               withLimits(radMschapv2AndGetAttributes, idleMinutes, sessionMinutes));
}

int radAcctSampleMain(int argc, char *argv[]) {
    constexpr const SampleContract &contract = rowOf(kSamples, __func__);
    SampleArguments arguments;
    if (!arguments.parseOptions(contract, argc, argv) || !arguments.startLibrary(contract)) {
        return -1;
    }
    return radAcct(arguments.status());
}
