// A RADIUS packet (RFC 2865 section 3) as a view: bytes whose length field is known to be right.
#ifndef LANYARD_CLIENT_PACKET_H
#define LANYARD_CLIENT_PACKET_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include <lanyard/radius/engine.h>

#include "base/wire.h"

namespace lanyard {

// What a length field says, whatever stands behind it.
inline size_t lengthField(const RadPacket &packet) {
    return static_cast<size_t>(packet.length[0] << 8 | packet.length[1]);
}

inline void setLengthField(RadPacket &packet, size_t length) {
    ByteWriter(packet.length).u16(static_cast<uint16_t>(length));
}

// At least a header, and as many bytes as the length field says. The bytes stay their owner's.
class Packet {
  public:
    // Bytes as they were received: none too few, none too many, and not above the limit.
    static std::optional<Packet> received(std::span<uint8_t> bytes) {
        if (bytes.size() < sizeof(RadPacket) || bytes.size() > RAD_PACKET_MAX) {
            return std::nullopt;
        }
        const auto packet = ofCaller(reinterpret_cast<RadPacket *>(bytes.data()));
        return packet && packet->bytes_.size() == bytes.size() ? packet : std::nullopt;
    }

    // A record of a caller, whose length field is to be believed unless it is below the header.
    static std::optional<Packet> ofCaller(RadPacket *record) {
        const size_t length = lengthField(*record);
        if (length < sizeof(RadPacket)) {
            return std::nullopt;
        }
        return Packet({reinterpret_cast<uint8_t *>(record), length});
    }

    RadPacket &record() const { return *reinterpret_cast<RadPacket *>(bytes_.data()); }
    std::span<uint8_t> bytes() const { return bytes_; }
    std::span<uint8_t> attributes() const { return bytes_.subspan(sizeof(RadPacket)); }

  private:
    explicit Packet(std::span<uint8_t> bytes) : bytes_(bytes) {}

    std::span<uint8_t> bytes_;
};

static_assert(sizeof(RadPacket) == RAD_HEADER_SIZE && alignof(RadPacket) == 1);

}  // namespace lanyard

#endif
