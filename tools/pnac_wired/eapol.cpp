#include "tools/pnac_wired/eapol.h"

#include <algorithm>

#include <lanyard/radius/eap.h>

#include "base/wire.h"

namespace lanyard::pnac {
namespace {

constexpr size_t kEthernetHeaderSize = 14;
constexpr size_t kEapolHeaderSize = 4;
constexpr uint8_t kGroupBit = 0x01;  // of an Ethernet address's first octet

Mac takeMac(ByteReader &reader) {
    Mac address = {};
    const ByteView octets = reader.take(address.size());
    std::copy(octets.begin(), octets.end(), address.begin());
    return address;
}

bool isStation(const Mac &address) {
    return address != Mac{} && (address[0] & kGroupBit) == 0;
}

bool hasType(EapCode code) {
    return code == EapCode::kRequest || code == EapCode::kResponse;
}

}  // namespace

std::string toText(const Mac &address) {
    constexpr const char *kDigits = "0123456789abcdef";
    std::string text;
    for (const uint8_t octet : address) {
        if (!text.empty()) {
            text += ':';
        }
        text += kDigits[octet >> 4];
        text += kDigits[octet & 0xf];
    }
    return text;
}

ParsedFrame parseFrame(ByteView bytes, const Mac &own) {
    ByteReader reader(bytes);
    const Mac destination = takeMac(reader);
    const Mac source = takeMac(reader);
    const uint16_t etherType = reader.u16();
    const uint8_t version = reader.u8();
    const uint8_t type = reader.u8();
    const ByteView body = reader.take(reader.u16());
    if (!reader.ok() || !isStation(source) || source == own || version < kEapolVersionMin) {
        return {FrameFault::kMalformed, {}};
    }
    if (etherType != kEapolEtherType || (destination != kPaeGroup && destination != own) ||
        type > static_cast<uint8_t>(EapolType::kLogoff)) {
        return {FrameFault::kForeign, {}};
    }
    return {FrameFault::kNone,
            {.source = source,
             .version = std::min(version, kEapolVersionMax),
             .type = static_cast<EapolType>(type),
             .body = body}};
}

Bytes buildFrame(const Mac &destination, const Mac &source, uint8_t version, ByteView eap) {
    Bytes frame(kEthernetHeaderSize + kEapolHeaderSize + eap.size());
    ByteWriter writer(frame);
    writer.bytes(destination);
    writer.bytes(source);
    writer.u16(kEapolEtherType);
    writer.u8(version);
    writer.u8(static_cast<uint8_t>(EapolType::kEap));
    writer.u16(static_cast<uint16_t>(eap.size()));
    writer.bytes(eap);
    return frame;
}

std::optional<EapPacket> parseEap(ByteView bytes) {
    ByteReader header(bytes);
    const EapHead head = readEapHead(header);
    if (!header.ok() || head.length > bytes.size() || head.length > RAD_EAP_PACKET_MAX ||
        head.code < EapCode::kRequest || head.code > EapCode::kFailure) {
        return std::nullopt;
    }
    EapPacket packet{.code = head.code, .identifier = head.identifier};
    packet.bytes = bytes.first(head.length);
    ByteReader reader(packet.bytes);
    reader.take(kEapHeaderSize);
    if (hasType(packet.code)) {
        packet.type = reader.u8();
        packet.typeData = reader.rest();
    }
    // Success and Failure consist of their header (RFC 3748 section 4.2).
    if (!reader.ok() || (!hasType(packet.code) && reader.left() > 0)) {
        return std::nullopt;
    }
    return packet;
}

std::array<uint8_t, kEapHeaderSize + 1> identityRequest(uint8_t identifier) {
    return {static_cast<uint8_t>(EapCode::kRequest), identifier, 0, kEapHeaderSize + 1,
            kEapTypeIdentity};
}

std::array<uint8_t, kEapHeaderSize> eapFailure(uint8_t identifier) {
    return {static_cast<uint8_t>(EapCode::kFailure), identifier, 0, kEapHeaderSize};
}

}  // namespace lanyard::pnac
