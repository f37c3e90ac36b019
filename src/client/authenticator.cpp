// Authenticators of requests and replies, and the Message-Authenticator.
#include "client/authenticator.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <openssl/crypto.h>
#include <openssl/md5.h>

#include <lanyard/radius/attr.h>

#include "attr/attribute.h"
#include "base/log.h"
#include "client/hmac_key.h"

namespace lanyard {
namespace {

using Authenticator = std::array<uint8_t, RAD_DIGEST_SIZE>;

// MD5 over a packet that has `authenticator` in its header, and the secret. The secret is digested
// from where it is: behind the packet, decoding could reach it.
Authenticator packetDigest(Packet packet, const uint8_t *authenticator, const char *secret) {
    const auto head = packet.bytes().first(offsetof(RadPacket, authenticator));
    const auto attributes = packet.attributes();
    Authenticator digest{};
    MD5_CTX context;
    MD5_Init(&context);
    MD5_Update(&context, head.data(), head.size());
    MD5_Update(&context, authenticator, RAD_DIGEST_SIZE);
    MD5_Update(&context, attributes.data(), attributes.size());
    MD5_Update(&context, secret, std::strlen(secret));
    MD5_Final(digest.data(), &context);
    return digest;
}

}  // namespace

void signAccountingRequest(Packet request, const char *secret) {
    constexpr Authenticator kZeros{};
    const Authenticator digest = packetDigest(request, kZeros.data(), secret);
    std::copy(digest.begin(), digest.end(), request.record().authenticator);
}

bool replyIsAuthentic(Packet reply, const uint8_t *requestAuthenticator, const char *secret) {
    const Authenticator digest = packetDigest(reply, requestAuthenticator, secret);
    return CRYPTO_memcmp(digest.data(), reply.record().authenticator, digest.size()) == 0;
}

void signMessage(Packet packet, const char *secret, uint8_t *place) {
    const auto bytes = packet.bytes();
    std::fill_n(place, RAD_DIGEST_SIZE, uint8_t{0});
    Authenticator digest{};
    HmacKey(secret).digest(bytes, digest.data());
    std::copy(digest.begin(), digest.end(), place);
}

}  // namespace lanyard

using namespace lanyard;

int radCheckMsgAuth(RadPacket *reply, const char *secret, const uint8_t *requestAuthenticator) {
    if (!reply || !secret || !requestAuthenticator) {
        return -1;
    }
    Authenticator replyAuthenticator{};
    std::copy_n(reply->authenticator, RAD_DIGEST_SIZE, replyAuthenticator.begin());
    std::copy_n(requestAuthenticator, RAD_DIGEST_SIZE, reply->authenticator);

    // On the two early returns the reply keeps the request's authenticator, as given.
    const auto packet = Packet::ofCaller(reply);
    const auto attributes = packet ? packet->attributes() : std::span<uint8_t>();
    const uint8_t *located = radPairLocate(attributes.data(), static_cast<int>(attributes.size()),
                                           RAD_ATTR_MESSAGE_AUTHENTICATOR);
    if (!located) {
        radLog(kLogError, "radCheckMsgAuth: NO Message-Authenticator in RADIUS server reply\n");
        return -1;
    }
    const auto attribute = attributes.subspan(static_cast<size_t>(located - attributes.data()));
    constexpr size_t kSize = kAttributeHeaderSize + RAD_DIGEST_SIZE;
    if (attribute[1] != kSize || attribute.size() < kSize) {
        radLog(kLogError,
               "radCheckMsgAuth: Invalid Message-Authenticator length inRADIUS server reply\n");
        return -1;
    }
    uint8_t *value = attribute.subspan(kAttributeHeaderSize).data();
    Authenticator received{};
    std::copy_n(value, RAD_DIGEST_SIZE, received.begin());
    signMessage(*packet, secret, value);
    const bool valid = CRYPTO_memcmp(value, received.data(), received.size()) == 0;
    std::copy(received.begin(), received.end(), value);
    std::copy(replyAuthenticator.begin(), replyAuthenticator.end(), reply->authenticator);
    if (!valid) {
        radLog(kLogError, "radCheckMsgAuth:Invalid Message-Authenticator in RADIUS server reply\n");
        return -1;
    }
    radLog(kLogTrace, "Verified Message-Authenticator\n");
    return 0;
}
