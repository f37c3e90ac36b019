#include "fuzz/server.h"

#include <algorithm>
#include <optional>

#include "tests/support/radius_wire.h"

namespace lanyard::fuzz {
namespace {

using test::Digest;
using test::kHeaderSize;

constexpr uint8_t kVendorSpecific = 26;
constexpr uint8_t kMessageAuthenticator = 80;
constexpr uint8_t kSendKey = 16;
constexpr uint8_t kRecvKey = 17;
constexpr size_t kDigestSize = 16;
constexpr size_t kVendorHeader = 8;  // type, length, vendor, its type and length
constexpr size_t kSaltSize = 2;
constexpr Bytes::value_type kMicrosoft[] = {0, 0, 1, 55};

ByteView secret() {
    return {reinterpret_cast<const uint8_t *>(kSecret), std::char_traits<char>::length(kSecret)};
}

ByteView authenticatorOf(ByteView packet) {
    return packet.subspan(4, kDigestSize);
}

// Calls with each attribute and where it begins; false when they end with something else.
template <typename Visit>
bool forEachAttribute(ByteView attributes, Visit visit) {
    size_t at = 0;
    while (at < attributes.size()) {
        const ByteView left = attributes.subspan(at);
        if (left.size() < 2 || left[1] < 2 || left[1] > left.size()) {
            return false;
        }
        visit(left.first(left[1]), at);
        at += left[1];
    }
    return true;
}

bool isKey(ByteView attribute) {
    return attribute[0] == kVendorSpecific && attribute.size() > kVendorHeader + kSaltSize &&
           std::equal(std::begin(kMicrosoft), std::end(kMicrosoft), attribute.begin() + 2) &&
           (attribute[6] == kSendKey || attribute[6] == kRecvKey);
}

// Encrypts the keys: what follows a salt.
Bytes hideKeys(const Bytes &attributes, ByteView request) {
    Bytes hidden;
    size_t end = 0;
    forEachAttribute(attributes, [&](ByteView attribute, size_t at) {
        end = at + attribute.size();
        if (!isKey(attribute)) {
            hidden.insert(hidden.end(), attribute.begin(), attribute.end());
            return;
        }
        const Bytes data = test::encryptMppeKey(attribute.subspan(kVendorHeader + kSaltSize),
                                                kSecret, authenticatorOf(request));
        if (data.size() + kVendorHeader > UINT8_MAX) {
            return;
        }
        const size_t begin = hidden.size();
        hidden.insert(hidden.end(), attribute.begin(), attribute.begin() + kVendorHeader);
        hidden.insert(hidden.end(), data.begin(), data.end());
        hidden[begin + 1] = static_cast<uint8_t>(kVendorHeader + data.size());
        hidden[begin + 7] = static_cast<uint8_t>(2 + data.size());
    });
    hidden.insert(hidden.end(), attributes.begin() + static_cast<std::ptrdiff_t>(end),
                  attributes.end());
    return hidden;
}

void setLength(Bytes &packet, size_t length) {
    packet[2] = static_cast<uint8_t>(length >> 8);
    packet[3] = static_cast<uint8_t>(length);
}

void put(Bytes &packet, size_t at, ByteView bytes) {
    std::copy(bytes.begin(), bytes.end(), packet.begin() + static_cast<std::ptrdiff_t>(at));
}

std::optional<size_t> placeOfSignature(ByteView packet) {
    std::optional<size_t> place;
    forEachAttribute(packet.subspan(kHeaderSize), [&](ByteView attribute, size_t at) {
        if (!place && attribute[0] == kMessageAuthenticator &&
            attribute.size() == kDigestSize + 2) {
            place = kHeaderSize + at + 2;
        }
    });
    return place;
}

void sign(Bytes &packet, ByteView request) {
    auto place = placeOfSignature(packet);
    if (!place) {
        packet.insert(packet.end(), {kMessageAuthenticator, kDigestSize + 2});
        place = packet.size();
        packet.resize(packet.size() + kDigestSize);
        setLength(packet, packet.size());
    }
    put(packet, 4, authenticatorOf(request));
    put(packet, *place, Digest{});
    put(packet, *place, test::hmacMd5(kSecret, {packet}));
}

// Judged by the datagram alone, whatever was meant by it.
bool isGenuine(ByteView datagram, ByteView request) {
    return datagram.size() >= kHeaderSize &&
           (size_t{datagram[2]} << 8 | datagram[3]) == datagram.size() &&
           datagram[1] == request[1] && test::replyIsValid(datagram, request, kSecret);
}

Bytes datagramFrom(Script &script, ByteView request) {
    const uint8_t kind = script.u8();
    if ((kind & kBlank) != 0) {
        return script.longPart();
    }
    Bytes packet(kHeaderSize);
    packet[0] = script.u8();
    Bytes attributes = script.longPart();
    if ((kind & kHiddenKeys) != 0) {
        attributes = hideKeys(attributes, request);
    }
    packet.insert(packet.end(), attributes.begin(), attributes.end());
    packet[1] = static_cast<uint8_t>(request[1] + ((kind & kWrongIdentifier) != 0 ? 1 : 0));
    setLength(packet, packet.size());
    if ((kind & kSigned) != 0) {
        sign(packet, request);
    }
    if ((kind & kWrongLength) != 0) {
        setLength(packet, packet.size() + script.u8());
    }
    Digest digest = test::md5({ByteView(packet).first(4), authenticatorOf(request),
                               ByteView(packet).subspan(kHeaderSize), secret()});
    digest[0] ^= kind & kWrongAuthenticator;
    put(packet, 4, digest);
    if ((kind & kCut) != 0) {
        packet.resize(std::min<size_t>(packet.size(), script.u8()));
    }
    return packet;
}

}  // namespace

Answer answerFrom(Script &script, ByteView request) {
    Answer answer;
    answer.datagram = datagramFrom(script, request);
    answer.isGenuine = isGenuine(answer.datagram, request);
    return answer;
}

bool isSound(ByteView request) {
    if (request.size() < kHeaderSize || (size_t{request[2]} << 8 | request[3]) != request.size() ||
        !forEachAttribute(request.subspan(kHeaderSize), [](ByteView, size_t) {})) {
        return false;
    }
    return !placeOfSignature(request) || test::messageAuthenticatorIsValid(request, kSecret);
}

}  // namespace lanyard::fuzz
