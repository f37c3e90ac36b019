#include "tools/pnac_wired/ethernet.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstring>
#include <linux/if_packet.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <stdexcept>
#include <sys/ioctl.h>
#include <sys/socket.h>

namespace lanyard::pnac {
namespace {

constexpr int kReceiveBuffer = 1 << 20;  // several hundred supplicants speak at once
constexpr int kSocketFlags = SOCK_NONBLOCK | SOCK_CLOEXEC;

// The interface's request for ioctl().
ifreq requestFor(const std::string &interface) {
    ifreq request = {};
    if (interface.empty() || interface.size() >= sizeof(request.ifr_name)) {
        throw std::runtime_error("no interface can be called '" + interface + "'");
    }
    std::memcpy(request.ifr_name, interface.data(), interface.size());
    return request;
}

template <typename Address>
void bindTo(int fd, const Address &address, const std::string &what) {
    checked(bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof(address)), what);
}

Ethernet::Link linkOf(const nlmsghdr &header, unsigned flags) {
    constexpr unsigned kWorks = IFF_UP | IFF_RUNNING;
    if (header.nlmsg_type == RTM_DELLINK) {
        return Ethernet::Link::kGone;
    }
    return (flags & kWorks) == kWorks ? Ethernet::Link::kUp : Ethernet::Link::kDown;
}

}  // namespace

Ethernet::Ethernet(const std::string &interface)
    // Protocol 0 until it is bound: no frame of another interface gets in.
    : frames_(socket(AF_PACKET, SOCK_RAW | kSocketFlags, 0), "packet socket"),
      link_(socket(AF_NETLINK, SOCK_RAW | kSocketFlags, NETLINK_ROUTE), "netlink socket") {
    ifreq request = requestFor(interface);
    checked(ioctl(frames_.get(), SIOCGIFINDEX, &request), interface);
    index_ = request.ifr_ifindex;
    checked(ioctl(frames_.get(), SIOCGIFHWADDR, &request), interface);
    if (request.ifr_hwaddr.sa_family != ARPHRD_ETHER) {
        throw std::runtime_error(interface + " is no Ethernet interface");
    }
    std::memcpy(address_.data(), request.ifr_hwaddr.sa_data, address_.size());

    packet_mreq membership = {};
    membership.mr_ifindex = index_;
    membership.mr_type = PACKET_MR_MULTICAST;
    membership.mr_alen = kPaeGroup.size();
    std::copy(kPaeGroup.begin(), kPaeGroup.end(), membership.mr_address);
    checked(setsockopt(frames_.get(), SOL_PACKET, PACKET_ADD_MEMBERSHIP, &membership,
                       sizeof(membership)),
            interface + ": joining the PAE group");
    // Beyond the system's limit where that is allowed.
    if (setsockopt(frames_.get(), SOL_SOCKET, SO_RCVBUFFORCE, &kReceiveBuffer,
                   sizeof(kReceiveBuffer)) != 0) {
        setsockopt(frames_.get(), SOL_SOCKET, SO_RCVBUF, &kReceiveBuffer, sizeof(kReceiveBuffer));
    }

    sockaddr_ll place = {};
    place.sll_family = AF_PACKET;
    place.sll_protocol = htons(kEapolEtherType);
    place.sll_ifindex = index_;
    bindTo(frames_.get(), place, interface);

    sockaddr_nl news = {};
    news.nl_family = AF_NETLINK;
    news.nl_groups = RTMGRP_LINK;
    bindTo(link_.get(), news, "netlink");
    requestLink();
}

void Ethernet::requestLink() const {
    struct {
        nlmsghdr header;
        ifinfomsg link;
    } request = {};
    request.header.nlmsg_len = sizeof(request);
    request.header.nlmsg_type = RTM_GETLINK;
    request.header.nlmsg_flags = NLM_F_REQUEST;
    request.link.ifi_family = AF_UNSPEC;
    request.link.ifi_index = index_;
    checked(static_cast<int>(::send(link_.get(), &request, sizeof(request), 0)), "netlink");
}

std::optional<ByteView> Ethernet::receive() {
    // An interface that goes down leaves an error here; the link's own news tells of it.
    constexpr int kTries = 2;
    for (int i = 0; i < kTries; ++i) {
        sockaddr_ll from = {};
        socklen_t fromSize = sizeof(from);
        const ssize_t size = recvfrom(frames_.get(), room_.data(), room_.size(), MSG_TRUNC,
                                      reinterpret_cast<sockaddr *>(&from), &fromSize);
        if (size >= 0) {
            // A VLAN that the machine knows has an interface of its own, any other is nobody's.
            if (from.sll_ifindex != index_ || from.sll_pkttype == PACKET_OTHERHOST) {
                return ByteView();
            }
            return ByteView(room_).first(std::min(static_cast<size_t>(size), room_.size()));
        }
        if (errno == EAGAIN) {
            break;
        }
    }
    return std::nullopt;
}

void Ethernet::send(ByteView frame) {
    if (::send(frames_.get(), frame.data(), frame.size(), 0) < 0) {
        ++notSent_;
    }
}

void Ethernet::receiveLink(const std::function<void(Link)> &receiver) {
    alignas(nlmsghdr) std::array<char, 16384> messages = {};
    for (;;) {
        const ssize_t size = recv(link_.get(), messages.data(), messages.size(), 0);
        if (size < 0 && errno == ENOBUFS) {
            requestLink();  // some news were lost
            continue;
        }
        if (size <= 0) {
            return;
        }
        ssize_t left = size;  // signed: what is left behind an unaligned end is less than nothing
        for (auto *header = reinterpret_cast<nlmsghdr *>(messages.data()); NLMSG_OK(header, left);
             header = NLMSG_NEXT(header, left)) {
            if ((header->nlmsg_type != RTM_NEWLINK && header->nlmsg_type != RTM_DELLINK) ||
                header->nlmsg_len < NLMSG_LENGTH(sizeof(ifinfomsg))) {
                continue;
            }
            ifinfomsg news = {};
            std::memcpy(&news, NLMSG_DATA(header), sizeof(news));
            if (news.ifi_index == index_ && news.ifi_family == AF_UNSPEC) {
                receiver(linkOf(*header, news.ifi_flags));
            }
        }
    }
}

}  // namespace lanyard::pnac
