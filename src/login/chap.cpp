// CHAP (RFC 1994) in RADIUS: CHAP-Password and CHAP-Challenge (RFC 2865 sections 5.3 and 5.40).
#include <array>
#include <cstring>

#include <lanyard/radius/engine.h>
#include <lanyard/radius/methods.h>
#include <palcore.h>

#include "base/wire.h"
#include "login/login.h"
#include "login/method.h"

namespace lanyard {
namespace {

// What the digest of a response is taken over has less than this many bytes.
constexpr size_t kDigestedSize = 255;

// The response is measured as text, for it is one of the inputs with a limit on text, but never
// beyond its end.
bool isShortText(const uint8_t *bytes, int length) {
    return bytes && length > 0 &&
           strnlen(reinterpret_cast<const char *>(bytes), static_cast<size_t>(length)) <=
               RAD_PASSWORD_MAX;
}

int logInWith(const uint8_t *response, int responseLength, const uint8_t *challenge,
              int challengeLength, const Login &login) {
    const Chap method{response, responseLength, challenge, challengeLength};
    return logIn(login, method.isGood(),
                 [&method](PairList &request) { return method.addTo(request); });
}

// The limits of a CHAP login are int, those of the other methods unsigned; both are 32 bits.
uint32_t *asUnsigned(int *minutes) {
    return reinterpret_cast<uint32_t *>(minutes);
}

}  // namespace

bool Chap::isGood() const {
    return isShortText(response, responseLength) && challenge && challengeLength > 0;
}

bool Chap::addTo(PairList &request) const {
    return request.addNumber(RAD_ATTR_SERVICE_TYPE, kAuthenticateOnly) &&
           request.addBytes(RAD_ATTR_CHAP_PASSWORD, response, responseLength) &&
           request.addBytes(RAD_ATTR_CHAP_CHALLENGE, challenge, challengeLength);
}

}  // namespace lanyard

using namespace lanyard;

int radChapRespMake(uint8_t *response, const uint8_t *password, int passwordLen,
                    const uint8_t *challenge) {
    if (!response || !password || !challenge || passwordLen < 0) {
        return 0;
    }
    const size_t digested = static_cast<size_t>(passwordLen) + 1 + RAD_CHAP_CHALLENGE_SIZE;
    uint8_t identifier = 0;
    if (digested >= kDigestedSize || palRandGen(&identifier, sizeof(identifier)) != 0) {
        return 0;
    }
    std::array<uint8_t, kDigestedSize> bytes{};
    ByteWriter writer(bytes);
    writer.u8(identifier);
    writer.bytes({password, static_cast<size_t>(passwordLen)});
    writer.bytes({challenge, RAD_CHAP_CHALLENGE_SIZE});
    response[0] = identifier;
    rc_md5_calc(response + 1, bytes.data(), static_cast<uint32_t>(digested));
    explicit_bzero(bytes.data(), bytes.size());
    return RAD_CHAP_RESPONSE_SIZE;
}

int radChapAuth(const char *userName, const uint8_t *chapPassword, int chapPasswordLen,
                const uint8_t *chapChallenge, int chapChallengeLen) {
    return logInWith(chapPassword, chapPasswordLen, chapChallenge, chapChallengeLen,
                     {.contract = rowOf(kLogins, __func__), .userName = userName});
}

int radChapAuthAndGetAttributes(const char *userName, const uint8_t *chapPassword,
                                int chapPasswordLen, const uint8_t *chapChallenge,
                                int chapChallengeLen, int *idleTimeout, int *sessionTimeout) {
    const SessionLimits limits{asUnsigned(idleTimeout), asUnsigned(sessionTimeout)};
    return logInWith(
        chapPassword, chapPasswordLen, chapChallenge, chapChallengeLen,
        {.contract = rowOf(kLogins, __func__), .userName = userName, .limits = limits});
}
