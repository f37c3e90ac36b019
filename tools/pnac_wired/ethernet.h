// An Ethernet interface of Linux: EAPOL frames (packet(7)) and the state of its link (rtnetlink(7)).
#ifndef LANYARD_TOOLS_PNAC_WIRED_ETHERNET_H
#define LANYARD_TOOLS_PNAC_WIRED_ETHERNET_H

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "tools/file_descriptor.h"
#include "tools/pnac_wired/eapol.h"

namespace lanyard::pnac {

class Ethernet {
  public:
    // Throws std::system_error, or std::runtime_error for an interface that is no Ethernet.
    explicit Ethernet(const std::string &interface);

    const Mac &address() const { return address_; }
    int index() const { return index_; }

    int frames() const { return frames_.get(); }
    // The next frame, valid until the next call; nothing when none waits. One of a VLAN, which comes
    // without its tag and is nothing of this port's, has no octets.
    std::optional<ByteView> receive();
    // Counts what the interface does not take: retransmission makes up for it.
    void send(ByteView frame);
    uint64_t notSent() const { return notSent_; }

    enum class Link { kUp, kDown, kGone };
    int linkNews() const { return link_.get(); }
    // Hands on all that the kernel says of the link, in its order: a link that was down for a
    // moment was down.
    void receiveLink(const std::function<void(Link)> &receiver);
    // Asks for the present state, which comes like the news of later changes.
    void requestLink() const;

  private:
    FileDescriptor frames_;
    FileDescriptor link_;
    int index_ = 0;
    Mac address_ = {};
    uint64_t notSent_ = 0;
    std::array<uint8_t, 9018> room_ = {};  // a jumbo frame
};

}  // namespace lanyard::pnac

#endif
