// MS-CHAPv2 (RFC 2759, RFC 2548 section 2.3.2). The server's authenticator response is not checked.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <openssl/sha.h>

#include <lanyard/radius/attr.h>
#include <lanyard/radius/engine.h>
#include <lanyard/radius/methods.h>
#include <palcore.h>

#include "base/output.h"
#include "base/partition.h"
#include "base/wire.h"
#include "client/vendor.h"
#include "login/method.h"
#include "login/mschap_request.h"

namespace lanyard {
namespace {

constexpr size_t kChallengeSize = 16;
constexpr size_t kChallengeHashSize = 8;
constexpr size_t kReservedSize = 8;
constexpr int kRedrawsMax = 16;

// Every request has this Authenticator-Challenge, by design; the Peer-Challenge is what varies.
constexpr std::array<uint8_t, kChallengeSize> kAuthenticatorChallenge = {1, 1, 1, 1, 1, 1, 1, 1,
                                                                         1, 1, 1, 1, 1, 1, 1, 1};

using Digest = std::array<uint8_t, RAD_SHA1_SIZE>;

// Without a random source the Peer-Challenge stays what it was, and the exchange goes on, on
// purpose.
void drawPeerChallenge(uint8_t *peerChallenge) {
    const int source = palOpen("/dev/urandom", O_RDONLY, 0);
    if (source >= 0) {
        palRead(source, peerChallenge, kChallengeSize);
        palClose(source);
    }
}

// ChallengeHash of RFC 2759 section 8.2 with the library's own SHA-1, or the published one where
// the host asked for it; its first bytes are the challenge.
Digest challengeHash(const uint8_t *peerChallenge, const uint8_t *authChallenge,
                     const char *userName) {
    const auto nameLength = static_cast<uint32_t>(std::strlen(userName));
    Digest digest{};
    if (radOptionGet(RAD_OPTION_STANDARD_SHA1) != 0) {
        SHA_CTX context;
        SHA1_Init(&context);
        SHA1_Update(&context, peerChallenge, kChallengeSize);
        SHA1_Update(&context, authChallenge, kChallengeSize);
        SHA1_Update(&context, userName, nameLength);
        SHA1_Final(digest.data(), &context);
    } else {
        SHA1_CTX context;
        SHA1Init(&context);
        SHA1Update(&context, peerChallenge, kChallengeSize);
        SHA1Update(&context, authChallenge, kChallengeSize);
        SHA1Update(&context, reinterpret_cast<const uint8_t *>(userName), nameLength);
        SHA1Final(digest.data(), &context);
    }
    return digest;
}

bool holdsNul(const Digest &digest) {
    return std::find(digest.begin(), digest.begin() + kChallengeHashSize, 0) !=
           digest.begin() + kChallengeHashSize;
}

// Prints a key in hexadecimal, eight bytes a line.
void printKey(std::span<const uint8_t> key) {
    const auto text = allocateSecret(3 * key.size() + key.size() / 8 + 3);
    if (!text) {
        return;
    }
    char *end = reinterpret_cast<char *>(text.get());
    *end++ = '\n';
    size_t printed = 0;
    for (const uint8_t byte : key) {
        end = std::copy_n(hexOf(byte).begin(), 2, end);
        if (++printed % 8 == 0) {
            *end++ = '\n';
        }
    }
    *end++ = '\n';
    std::fwrite(text.get(), 1, static_cast<size_t>(end - reinterpret_cast<char *>(text.get())),
                stdout);
}

// Prints the MS-MPPE-Recv-Key of a Vendor-Specific pair; -1 when it holds none.
int showRecvKey(const RadPair &pair) {
    SubAttribute key;
    const int status = copySubAttribute(pair, RAD_MS_MPPE_RECV_KEY, key);
    if (status == 0) {
        const std::span bytes = key.bytes();
        std::puts("MS-MPPE-Recv-Key is:");
        printKey(bytes.empty()
                     ? bytes
                     : bytes.subspan(1).first(std::min<size_t>(bytes[0], bytes.size() - 1)));
    }
    return status;
}

// What a refused login returns: the result of looking for a key in the last Vendor-Specific pair of
// the reply. A refusal that ends with a key therefore returns 0, as given.
int showRecvKeys(RadPair *reply) {
    int status = -1;
    for (RadPair *pair = radPairGet(reply, RAD_ATTR_VENDOR_SPECIFIC); pair;
         pair = radPairGet(radPairNext(pair), RAD_ATTR_VENDOR_SPECIFIC)) {
        status = showRecvKey(*pair);
    }
    return status;
}

int logInWith(const char *password, const Login &login) {
    const Mschapv2 method{login.userName, password, NtResponseSource::kOption};
    return logIn(login, true, [&method](PairList &request) { return method.addTo(request); });
}

}  // namespace

bool Mschapv2::addTo(PairList &request) const {
    if (!addMicrosoft(request, RAD_MS_CHAP_CHALLENGE, kAuthenticatorChallenge)) {
        return false;
    }
    // Without an NT-Response the request goes out with zeros, and the server refuses it.
    MschapResponse response{};
    ByteWriter writer(response);
    writer.u8(kMschapIdent);
    writer.u8(0);
    uint8_t *peerChallenge = writer.claim(kChallengeSize).data();
    writer.claim(kReservedSize);
    uint8_t *ntResponse = writer.claim(kNtResponseSize).data();
    if (source == NtResponseSource::kInProcess) {
        drawPeerChallenge(peerChallenge);
        const Digest digest =
            challengeHash(peerChallenge, kAuthenticatorChallenge.data(), userName);
        computeNtResponse(password, digest.data(), ntResponse);
    } else {
        generateMschapv2Response(ntResponse, peerChallenge, userName, password,
                                 kAuthenticatorChallenge.data());
    }
    const bool isAdded = addMicrosoft(request, RAD_MS_CHAP2_RESPONSE, response);
    explicit_bzero(response.data(), response.size());
    return isAdded && request.addNumber(RAD_ATTR_SERVICE_TYPE, kAuthenticateOnly);
}

}  // namespace lanyard

using namespace lanyard;

int generateMschapv2Response(uint8_t *ntResponse, uint8_t *peerChallenge, const char *userName,
                             const char *password, const uint8_t *authChallenge) {
    if (!ntResponse || !peerChallenge || !userName || !password || !authChallenge) {
        return -1;
    }
    drawPeerChallenge(peerChallenge);
    Digest digest = challengeHash(peerChallenge, authChallenge, userName);
    // The hash becomes an argument of a program, which a NUL would cut short.
    const int redrawsMax = radOptionGet(RAD_OPTION_BUILTIN_NT_RESPONSE) != 0 ? 0 : kRedrawsMax;
    for (int redraws = 0; redraws < redrawsMax && holdsNul(digest); ++redraws) {
        drawPeerChallenge(peerChallenge);
        digest = challengeHash(peerChallenge, authChallenge, userName);
    }
    return radMschapNtResponse(password, ntResponse, digest.data(), userName);
}

int radMschapv2(const char *userName, const char *password) {
    return logInWith(password, {.contract = rowOf(kLogins, __func__),
                                .userName = userName,
                                .resultOfRefusal = showRecvKeys});
}

int radMschapv2AndGetAttributes(const char *userName, const char *password, uint32_t *idleMinutes,
                                uint32_t *sessionMinutes) {
    return logInWith(password, {.contract = rowOf(kLogins, __func__),
                                .userName = userName,
                                .limits = {idleMinutes, sessionMinutes},
                                .resultOfRefusal = showRecvKeys});
}
