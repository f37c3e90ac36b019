// MS-CHAP (RFC 2433, RFC 2548 section 2.1.3).
#include <lanyard/radius/attr.h>
#include <lanyard/radius/methods.h>

#include "base/wire.h"
#include "login/mschap_request.h"

namespace lanyard {
namespace {

// Every request has this challenge: the device's NT-Response program was made for a fixed one.
constexpr std::array<uint8_t, 8> kChallenge = {1, 1, 1, 1, 1, 1, 1, 1};
constexpr uint8_t kUseNtResponse = 1;
constexpr size_t kLmResponseSize = 24;

bool buildRequest(PairList &request, const char *userName, const char *password) {
    if (!startMschapRequest(request, userName, kChallenge)) {
        return false;
    }
    // Without an NT-Response the request goes out with zeros, and the server refuses it.
    MschapResponse response{};
    ByteWriter writer(response);
    writer.u8(kMschapIdent);
    writer.u8(kUseNtResponse);
    writer.claim(kLmResponseSize);
    radMschapNtResponse(password, writer.claim(kNtResponseSize).data(), kChallenge.data(),
                        userName);
    return finishMschapRequest(request, RAD_MS_CHAP_RESPONSE, response);
}

}  // namespace
}  // namespace lanyard

using namespace lanyard;

int radMschap(const char *userName, const char *password) {
    PairList request;
    PairList reply;
    return buildRequest(request, userName, password) &&
                   logIn(printingReport(__func__), userName, request, reply)
               ? 0
               : -1;
}

int radMschapAndGetAttributes(const char *userName, const char *password, uint32_t *idleMinutes,
                              uint32_t *sessionMinutes) {
    PairList request;
    PairList reply;
    if (!buildRequest(request, userName, password) ||
        !logIn(quietReport(__func__), userName, request, reply)) {
        return -1;
    }
    const SessionLimits limits{.idleMinutes = idleMinutes, .sessionMinutes = sessionMinutes};
    showPairs(reply.head(), &limits);
    return 0;
}
