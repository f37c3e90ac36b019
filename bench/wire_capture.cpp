#include "bench/wire_capture.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <linux/filter.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <stdexcept>
#include <sys/socket.h>
#include <system_error>

namespace lanyard::bench {

namespace {

constexpr size_t kHeader = 14;  // of Ethernet
constexpr size_t kEapolHeaderSize = 4;
constexpr int kRoom = 32 << 20;  // a storm of logins
constexpr uint8_t kEapolEap = 0;

void require(bool done, const char *what) {
    if (!done) {
        throw std::system_error(errno, std::generic_category(), what);
    }
}

}  // namespace

void wantKernelTime(int socket) {
    const int yes = 1;
    require(setsockopt(socket, SOL_SOCKET, SO_TIMESTAMPNS, &yes, sizeof yes) == 0,
            "SO_TIMESTAMPNS");
}

Moment kernelTime(msghdr &message) {
    for (cmsghdr *control = CMSG_FIRSTHDR(&message); control != nullptr;
         control = CMSG_NXTHDR(&message, control)) {
        if (control->cmsg_level == SOL_SOCKET && control->cmsg_type == SO_TIMESTAMPNS) {
            timespec time = {};
            std::memcpy(&time, CMSG_DATA(control), sizeof time);
            return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
        }
    }
    throw std::runtime_error("a message without a time");
}

WireCapture::WireCapture(const std::string &interface)
    : socket_(socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, htons(ETH_P_ALL)),
              "packet socket") {
    sockaddr_ll place = {};
    place.sll_family = AF_PACKET;
    place.sll_protocol = htons(ETH_P_ALL);  // what is sent is seen by those alone that want all
    place.sll_ifindex = static_cast<int>(if_nametoindex(interface.c_str()));
    require(bind(socket_.get(), reinterpret_cast<const sockaddr *>(&place), sizeof place) == 0,
            interface.c_str());
    require(setsockopt(socket_.get(), SOL_SOCKET, SO_RCVBUFFORCE, &kRoom, sizeof kRoom) == 0,
            "SO_RCVBUFFORCE");
    wantKernelTime(socket_.get());
}

void WireCapture::overlook(uint16_t addresses) const {
    constexpr uint32_t kSourceAt = 6;
    constexpr uint32_t kWhole = 0xffff;
    std::array<sock_filter, 6> steps = {{BPF_STMT(BPF_LD | BPF_H | BPF_ABS, 0),
                                         BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, addresses, 3, 0),
                                         BPF_STMT(BPF_LD | BPF_H | BPF_ABS, kSourceAt),
                                         BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, addresses, 1, 0),
                                         BPF_STMT(BPF_RET | BPF_K, kWhole),
                                         BPF_STMT(BPF_RET | BPF_K, 0)}};
    const sock_fprog program = {.len = steps.size(), .filter = steps.data()};
    require(setsockopt(socket_.get(), SOL_SOCKET, SO_ATTACH_FILTER, &program, sizeof program) == 0,
            "SO_ATTACH_FILTER");
}

std::vector<EapolFrame> WireCapture::frames() const {
    std::vector<EapolFrame> seen;
    for (;;) {
        std::array<uint8_t, 64> head = {};
        std::array<char, 128> control = {};
        iovec part = {head.data(), head.size()};
        msghdr message = {};
        message.msg_iov = &part;
        message.msg_iovlen = 1;
        message.msg_control = control.data();
        message.msg_controllen = control.size();
        const ssize_t size = recvmsg(socket_.get(), &message, 0);
        if (size < 0) {
            require(errno == EAGAIN, "packet socket");
            return seen;
        }
        const auto type = static_cast<uint16_t>(head[12] << 8 | head[13]);
        if (static_cast<size_t>(size) < kHeader + kEapolHeaderSize ||
            type != pnac::kEapolEtherType) {
            continue;
        }
        EapolFrame frame = {.at = kernelTime(message), .type = head[kHeader + 1]};
        std::copy_n(head.begin(), 6, frame.destination.begin());
        std::copy_n(head.begin() + 6, 6, frame.source.begin());
        if (frame.type == kEapolEap && static_cast<size_t>(size) > kHeader + kEapolHeaderSize) {
            frame.code = head[kHeader + kEapolHeaderSize];
        }
        seen.push_back(frame);
    }
}

}  // namespace lanyard::bench
