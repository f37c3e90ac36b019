// The head of an EAP packet (RFC 3748 section 4).
#ifndef LANYARD_RELAY_EAP_PACKET_H
#define LANYARD_RELAY_EAP_PACKET_H

#include <cstddef>
#include <cstdint>

#include "base/wire.h"

namespace lanyard {

enum class EapCode : uint8_t { kRequest = 1, kResponse = 2, kSuccess = 3, kFailure = 4 };

constexpr uint8_t kEapTypeIdentity = 1;  // section 5.1
constexpr uint16_t kEapHeaderSize = 4;

struct EapHead {
    EapCode code = {};  // any byte, when it comes from outside
    uint8_t identifier = 0;
    uint16_t length = 0;  // of the packet, this head included
};

// All zero from where the reader ends.
inline EapHead readEapHead(ByteReader &reader) {
    EapHead head;
    head.code = static_cast<EapCode>(reader.u8());
    head.identifier = reader.u8();
    head.length = reader.u16();
    return head;
}

inline void writeEapHead(ByteWriter &writer, const EapHead &head) {
    writer.u8(static_cast<uint8_t>(head.code));
    writer.u8(head.identifier);
    writer.u16(head.length);
}

}  // namespace lanyard

#endif
