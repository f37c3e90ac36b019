#include "tools/pnac_wired/relay_record.h"

#include <lanyard/radius/eap.h>

#include "base/wire.h"
#include "relay/record.h"

namespace lanyard::pnac {
namespace {

constexpr size_t kBlockHeaderSize = 2;
constexpr uint8_t kElementHeaderSize = 2;

enum class PortElement : uint8_t { kSupplicant = 1, kAddress = 2, kNumber = 3, kName = 4 };

// Elements of a relay that has many packets in flight.
constexpr uint8_t kFailureReason = 6;
constexpr uint8_t kVlan = 7;

static_assert(kRecordCommand != RAD_EAP_CMD_DB_UPDATE);
static_assert(static_cast<int>(SessionRule::kReauthenticate) == RAD_EAP_SESSION_REAUTH);
static_assert(static_cast<int>(SessionRule::kChallengeWait) == RAD_EAP_SESSION_CHALLENGE);
static_assert(static_cast<int>(SessionRule::kTerminate) == RAD_EAP_SESSION_TERMINATE);

bool readKey(ByteView value, ByteView &key) {
    ByteReader reader(value);
    key = reader.take(reader.u8());
    return reader.ok() && reader.left() == 0;
}

bool readSession(ByteView value, uint8_t type, std::optional<SessionTimeout> &session) {
    ByteReader reader(value);
    session = SessionTimeout{static_cast<SessionRule>(type), reader.u32()};
    return reader.ok() && reader.left() == 0;
}

// A reason that is not known stands for no better one than none does.
bool readFailure(ByteView value, FailureReason &failure) {
    ByteReader reader(value);
    const uint8_t reason = reader.u8();
    const bool isKnown = reason >= static_cast<uint8_t>(FailureReason::kRejected) &&
                         reason <= static_cast<uint8_t>(FailureReason::kExpired);
    failure = isKnown ? static_cast<FailureReason>(reason) : FailureReason::kRejected;
    return reader.ok() && reader.left() == 0;
}

// Later elements of a type replace earlier ones; unknown types are passed over.
bool readElement(uint8_t type, ByteView value, KeyInfo &info) {
    switch (type) {
        case RAD_EAP_KEY_RECV:
            return readKey(value, info.recvKey);
        case RAD_EAP_KEY_SEND:
            return readKey(value, info.sendKey);
        case RAD_EAP_SESSION_REAUTH:
        case RAD_EAP_SESSION_CHALLENGE:
        case RAD_EAP_SESSION_TERMINATE:
            return readSession(value, type, info.session);
        case kFailureReason:
            return readFailure(value, info.failure);
        case kVlan:
            info.vlan = value;
            return !value.empty();
        default:
            return true;
    }
}

}  // namespace

Bytes portInformation(const Mac &supplicant, const Port &port) {
    const size_t size = kBlockHeaderSize + size_t{4} * kElementHeaderSize + 2 * supplicant.size() +
                        sizeof(port.number) + port.name.size();
    Bytes block(size);
    ByteWriter writer(block);
    const auto element = [&](PortElement type, size_t length) {
        writer.u8(static_cast<uint8_t>(type));
        writer.u8(static_cast<uint8_t>(kElementHeaderSize + length));
    };
    writer.u16(static_cast<uint16_t>(size));
    element(PortElement::kSupplicant, supplicant.size());
    writer.bytes(supplicant);
    element(PortElement::kAddress, port.address.size());
    writer.bytes(port.address);
    element(PortElement::kNumber, sizeof(port.number));
    writer.u32(port.number);
    element(PortElement::kName, port.name.size());
    writer.bytes({reinterpret_cast<const uint8_t *>(port.name.data()), port.name.size()});
    return block;
}

Bytes buildRecord(uint32_t cookie, ByteView eap, ByteView portInformation) {
    Bytes record(kRecordHeadSize + eap.size() + portInformation.size());
    ByteWriter writer(record);
    writeRecordHead(
        writer,
        {.cookie = cookie, .command = kRecordCommand, .length = static_cast<uint32_t>(eap.size())});
    writer.bytes(eap);
    writer.bytes(portInformation);
    return record;
}

std::optional<RelayRecord> parseRecord(ByteView bytes) {
    ByteReader reader(bytes);
    const RadEapXbusMsg head = readRecordHead(reader);
    const ByteView payload = reader.rest();
    if (!reader.ok() || head.length != payload.size()) {
        return std::nullopt;
    }
    const auto eap = parseEap(payload);
    if (!eap || eap->code == EapCode::kResponse) {
        return std::nullopt;
    }
    const auto keyInfo = parseKeyInfo(payload.subspan(eap->bytes.size()));
    // The relay hands on whatever the server has put after the end of a request.
    if (!keyInfo && eap->code != EapCode::kRequest) {
        return std::nullopt;
    }
    return RelayRecord{.cookie = head.cookie, .eap = *eap, .keyInfo = keyInfo.value_or(KeyInfo{})};
}

std::optional<KeyInfo> parseKeyInfo(ByteView block) {
    KeyInfo info;
    if (block.empty()) {
        return info;
    }
    ByteReader reader(block);
    bool good = reader.u16() == block.size();
    while (good && reader.left() > 0) {
        const uint8_t type = reader.u8();
        const uint8_t length = reader.u8();
        good = reader.ok() && length >= kElementHeaderSize &&
               readElement(type, reader.take(length - kElementHeaderSize), info) && reader.ok();
    }
    if (!good) {
        return std::nullopt;
    }
    return info;
}

}  // namespace lanyard::pnac
