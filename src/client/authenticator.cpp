// Authenticators of requests and replies, and the Message-Authenticator.
#include "client/authenticator.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <openssl/crypto.h>
#include <openssl/md5.h>

#include <lanyard/radius/attr.h>

#include "base/log.h"

namespace lanyard {
namespace {

using Authenticator = std::array<uint8_t, RAD_DIGEST_SIZE>;

// MD5 over a packet that has `authenticator` in its header, and the secret. The secret is digested
// from where it is: behind the packet, decoding could reach it.
Authenticator packetDigest(RadPacket *packet, const uint8_t *authenticator, const char *secret) {
    const auto octets = packetOctets(packet);
    const auto head = octets.first(offsetof(RadPacket, authenticator));
    const auto attributes = octets.subspan(RAD_HEADER_SIZE);
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

size_t packetLength(const RadPacket &packet) {
    return static_cast<size_t>(packet.length[0] << 8 | packet.length[1]);
}

void setPacketLength(RadPacket &packet, size_t length) {
    packet.length[0] = static_cast<uint8_t>(length >> 8);
    packet.length[1] = static_cast<uint8_t>(length);
}

std::span<uint8_t> packetOctets(RadPacket *packet) {
    return {reinterpret_cast<uint8_t *>(packet),
            std::max<size_t>(packetLength(*packet), RAD_HEADER_SIZE)};
}

void signAccountingRequest(RadPacket *request, const char *secret) {
    constexpr Authenticator kZeros{};
    const Authenticator digest = packetDigest(request, kZeros.data(), secret);
    std::copy(digest.begin(), digest.end(), request->authenticator);
}

bool replyIsAuthentic(RadPacket *reply, const RadPacket &request, const char *secret) {
    const Authenticator digest = packetDigest(reply, request.authenticator, secret);
    return CRYPTO_memcmp(digest.data(), reply->authenticator, digest.size()) == 0;
}

void signMessage(RadPacket *request, const char *secret, uint8_t *place) {
    const auto octets = packetOctets(request);
    std::fill_n(place, RAD_DIGEST_SIZE, uint8_t{0});
    Authenticator digest{};
    radHmacMd5Calc(digest.data(), octets.data(), static_cast<uint32_t>(octets.size()),
                   reinterpret_cast<const uint8_t *>(secret),
                   static_cast<uint32_t>(std::strlen(secret)));
    std::copy(digest.begin(), digest.end(), place);
}

}  // namespace lanyard

int radCheckMsgAuth(RadPacket *reply, const char *secret, const uint8_t *requestAuthenticator) {
    using namespace lanyard;
    if (!reply || !secret || !requestAuthenticator) {
        return -1;
    }
    Authenticator replyAuthenticator{};
    std::copy_n(reply->authenticator, RAD_DIGEST_SIZE, replyAuthenticator.begin());
    std::copy_n(requestAuthenticator, RAD_DIGEST_SIZE, reply->authenticator);

    // On the two early returns the reply keeps the request's authenticator, on purpose.
    constexpr uint8_t kAttributeHeaderSize = 2;
    const auto octets = packetOctets(reply);
    const auto attributes = octets.subspan(RAD_HEADER_SIZE);
    const uint8_t *located = radPairLocate(attributes.data(), static_cast<int>(attributes.size()),
                                           RAD_ATTR_MESSAGE_AUTHENTICATOR);
    if (!located) {
        radLog(kLogError, "radCheckMsgAuth: NO Message-Authenticator in RADIUS server reply\n");
        return -1;
    }
    const auto offset = static_cast<size_t>(located - attributes.data());
    const auto attribute = attributes.subspan(offset);
    if (attribute[1] != kAttributeHeaderSize + RAD_DIGEST_SIZE || attribute.size() < attribute[1]) {
        radLog(kLogError,
               "radCheckMsgAuth: Invalid Message-Authenticator length inRADIUS server reply\n");
        return -1;
    }
    uint8_t *value = attribute.subspan(kAttributeHeaderSize).data();
    Authenticator received{};
    std::copy_n(value, RAD_DIGEST_SIZE, received.begin());
    signMessage(reply, secret, value);
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
