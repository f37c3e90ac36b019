// MS-CHAP (RFC 2433, RFC 2548 section 2.1.3).
#include <cstring>

#include <lanyard/radius/attr.h>
#include <lanyard/radius/methods.h>

#include "base/wire.h"
#include "login/method.h"
#include "login/mschap_request.h"

namespace lanyard {
namespace {

// Every request has this challenge: the device's NT-Response program was made for a fixed one.
constexpr std::array<uint8_t, 8> kChallenge = {1, 1, 1, 1, 1, 1, 1, 1};
constexpr uint8_t kUseNtResponse = 1;
constexpr size_t kLmResponseSize = 24;

int logInWith(const char *password, const Login &login) {
    const Mschap method{login.userName, password, NtResponseSource::kOption};
    return logIn(login, true, [&method](PairList &request) { return method.addTo(request); });
}

}  // namespace

bool Mschap::addTo(PairList &request) const {
    if (!addMicrosoft(request, RAD_MS_CHAP_CHALLENGE, kChallenge)) {
        return false;
    }
    // Without an NT-Response the request goes out with zeros, and the server refuses it.
    MschapResponse response{};
    ByteWriter writer(response);
    writer.u8(kMschapIdent);
    writer.u8(kUseNtResponse);
    writer.claim(kLmResponseSize);
    uint8_t *ntResponse = writer.claim(kNtResponseSize).data();
    if (source == NtResponseSource::kInProcess) {
        computeNtResponse(password, kChallenge.data(), ntResponse);
    } else {
        radMschapNtResponse(password, ntResponse, kChallenge.data(), userName);
    }
    const bool isAdded = addMicrosoft(request, RAD_MS_CHAP_RESPONSE, response);
    explicit_bzero(response.data(), response.size());
    return isAdded && request.addNumber(RAD_ATTR_SERVICE_TYPE, kAuthenticateOnly);
}

}  // namespace lanyard

using namespace lanyard;

int radMschap(const char *userName, const char *password) {
    return logInWith(password, {.contract = rowOf(kLogins, __func__), .userName = userName});
}

int radMschapAndGetAttributes(const char *userName, const char *password, uint32_t *idleMinutes,
                              uint32_t *sessionMinutes) {
    return logInWith(password, {.contract = rowOf(kLogins, __func__),
                                .userName = userName,
                                .limits = {idleMinutes, sessionMinutes}});
}
