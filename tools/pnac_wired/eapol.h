// EAPOL frames on Ethernet (IEEE 802.1X-2004 section 7) and the EAP packets in them (RFC 3748
// section 4).
#ifndef LANYARD_TOOLS_PNAC_WIRED_EAPOL_H
#define LANYARD_TOOLS_PNAC_WIRED_EAPOL_H

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "relay/eap_packet.h"

namespace lanyard::pnac {

using Bytes = std::vector<uint8_t>;
using ByteView = std::span<const uint8_t>;
using Mac = std::array<uint8_t, 6>;

// "02:00:00:00:00:0a"
std::string toText(const Mac &address);

constexpr Mac kPaeGroup = {0x01, 0x80, 0xc2, 0x00, 0x00, 0x03};
constexpr uint16_t kEapolEtherType = 0x888e;

// The versions of EAPOL that are spoken here. A frame of a later one is read as the last of them
// (section 11.4 of 802.1X-2010), and answered in it.
constexpr uint8_t kEapolVersionMin = 1;
constexpr uint8_t kEapolVersionMax = 2;

enum class EapolType : uint8_t { kEap = 0, kStart = 1, kLogoff = 2 };

enum class FrameFault {
    kNone,
    kMalformed,  // too short, a length beyond its end, an impossible sender or version
    kForeign     // for another address, or a packet type that is not an authenticator's
};

// A frame from a supplicant; `body` lies in what was parsed and has no padding.
struct EapolFrame {
    Mac source = {};
    uint8_t version = kEapolVersionMin;  // to answer in
    EapolType type = EapolType::kEap;
    ByteView body = {};
};

struct ParsedFrame {
    FrameFault fault = FrameFault::kMalformed;
    EapolFrame frame = {};
};

// Reads an Ethernet frame that reached the interface with that address.
ParsedFrame parseFrame(ByteView bytes, const Mac &own);

// An Ethernet frame with an EAP packet.
Bytes buildFrame(const Mac &destination, const Mac &source, uint8_t version, ByteView eap);

// An EAP packet; `bytes` is the packet up to its own end.
struct EapPacket {
    EapCode code = EapCode::kFailure;
    uint8_t identifier = 0;
    uint8_t type = 0;        // of a request or response
    ByteView typeData = {};  // likewise
    ByteView bytes = {};
};

// Reads the packet at the head of `bytes`; what lies behind it by its length field is left to the
// caller. Nothing for a packet that does not hold together, or is none for the relay: it takes and
// sends up to RAD_EAP_PACKET_MAX bytes.
std::optional<EapPacket> parseEap(ByteView bytes);

std::array<uint8_t, kEapHeaderSize + 1> identityRequest(uint8_t identifier);
std::array<uint8_t, kEapHeaderSize> eapFailure(uint8_t identifier);

}  // namespace lanyard::pnac

#endif
