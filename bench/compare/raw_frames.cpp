#include "bench/compare/raw_frames.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <linux/if_packet.h>
#include <net/if.h>
#include <sys/socket.h>

namespace lanyard::bench {

namespace {

constexpr size_t kEthernetHeader = 14;
constexpr size_t kEapolHeader = 4;

}  // namespace

FileDescriptor rawSocket(const test::VirtualWire &wire, Frames frames) {
    using test::VirtualWire;

    const VirtualWire::SupplicantsSide side(wire);
    // Without a protocol nothing is received.
    const uint16_t protocol = frames == Frames::kSend ? uint16_t{0} : htons(pnac::kEapolEtherType);
    FileDescriptor made(socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, protocol),
                        "packet socket");
    sockaddr_ll place = {};
    place.sll_family = AF_PACKET;
    place.sll_protocol = protocol;
    place.sll_ifindex = static_cast<int>(if_nametoindex(VirtualWire::kUser));
    checked(bind(made.get(), reinterpret_cast<const sockaddr *>(&place), sizeof place),
            VirtualWire::kUser);
    if (frames == Frames::kSendAndReceive) {
        packet_mreq all = {};
        all.mr_ifindex = place.sll_ifindex;
        all.mr_type = PACKET_MR_PROMISC;
        checked(setsockopt(made.get(), SOL_PACKET, PACKET_ADD_MEMBERSHIP, &all, sizeof all),
                "PACKET_ADD_MEMBERSHIP");
    }
    return made;
}

std::vector<uint8_t> supplicantFrame(const pnac::Mac &source, pnac::EapolType type,
                                     pnac::ByteView body) {
    const std::array<uint8_t, 6> head = {static_cast<uint8_t>(pnac::kEapolEtherType >> 8),
                                         static_cast<uint8_t>(pnac::kEapolEtherType & 0xff),
                                         pnac::kEapolVersionMin,
                                         static_cast<uint8_t>(type),
                                         static_cast<uint8_t>(body.size() >> 8),
                                         static_cast<uint8_t>(body.size() & 0xff)};
    std::vector<uint8_t> frame(kEthernetHeader + kEapolHeader + body.size());
    auto at = std::copy(pnac::kPaeGroup.begin(), pnac::kPaeGroup.end(), frame.begin());
    at = std::copy(source.begin(), source.end(), at);
    at = std::copy(head.begin(), head.end(), at);
    std::copy(body.begin(), body.end(), at);
    return frame;
}

std::vector<uint8_t> eapOf(pnac::ByteView frame, const pnac::Mac &destination) {
    if (frame.size() < kEthernetHeader + kEapolHeader ||
        !std::equal(destination.begin(), destination.end(), frame.begin()) ||
        frame[kEthernetHeader + 1] != static_cast<uint8_t>(pnac::EapolType::kEap)) {
        return {};
    }
    const auto eap = pnac::parseEap(frame.subspan(kEthernetHeader + kEapolHeader));
    return eap ? std::vector<uint8_t>(eap->bytes.begin(), eap->bytes.end())
               : std::vector<uint8_t>{};
}

}  // namespace lanyard::bench
