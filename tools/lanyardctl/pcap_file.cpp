// Packets in capture files.
#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <cstdio>
#include <memory>
#include <netinet/in.h>
#include <optional>
#include <pcap/pcap.h>

#include "captured.h"
#include "failure.h"

namespace lanyardctl {

namespace {

constexpr std::array kPorts = {1812, 1813, 1645, 1646, 3799};
constexpr size_t kUdpHeader = 8;
constexpr size_t kIpv4Header = 20;
constexpr size_t kIpv6Header = 40;

uint16_t u16(View bytes, size_t at) {
    return static_cast<uint16_t>(bytes[at] << 8U | bytes[at + 1]);
}

// Where the network layer begins; none for a link type that is not known.
std::optional<size_t> networkOffset(int linkType, View frame) {
    switch (linkType) {
        case DLT_EN10MB: {
            size_t at = 12;
            while (frame.size() >= at + 4 &&
                   (u16(frame, at) == 0x8100 || u16(frame, at) == 0x88a8)) {
                at += 4;
            }
            return at + 2;
        }
        case DLT_LINUX_SLL:
            return 16;
        case DLT_LINUX_SLL2:
            return 20;
        case DLT_NULL:
            return 4;
        case DLT_RAW:
            return 0;
        default:
            return std::nullopt;
    }
}

std::string addressText(int family, View bytes) {
    std::array<char, INET6_ADDRSTRLEN> text{};
    inet_ntop(family, bytes.data(), text.data(), text.size());
    return text.data();
}

// A UDP datagram and its addresses; empty bytes for anything else.
Captured datagramIn(View network) {
    Captured found;
    size_t header = 0;
    int protocol = -1;
    if (network.size() >= kIpv4Header && network[0] >> 4U == 4) {
        const bool isWhole = (u16(network, 6) & 0x3fffU) == 0;
        header = size_t{4} * (network[0] & 15U);
        protocol = isWhole && header >= kIpv4Header ? network[9] : -1;
        found.source = addressText(AF_INET, network.subspan(12));
        found.destination = addressText(AF_INET, network.subspan(16));
    } else if (network.size() >= kIpv6Header && network[0] >> 4U == 6) {
        header = kIpv6Header;
        protocol = network[6];
        found.source = '[' + addressText(AF_INET6, network.subspan(8)) + ']';
        found.destination = '[' + addressText(AF_INET6, network.subspan(24)) + ']';
    }
    if (protocol != IPPROTO_UDP || network.size() < header + kUdpHeader) {
        return {};
    }
    const View udp = network.subspan(header);
    const size_t length = std::clamp<size_t>(u16(udp, 4), kUdpHeader, udp.size());
    const View payload = udp.first(length).subspan(kUdpHeader);
    found.source += ':' + std::to_string(u16(udp, 0));
    found.destination += ':' + std::to_string(u16(udp, 2));
    found.bytes.assign(payload.begin(), payload.end());
    return found;
}

bool hasPort(const Captured &captured, int port) {
    const auto is = [&captured](int number) {
        const std::string end = ':' + std::to_string(number);
        return captured.source.ends_with(end) || captured.destination.ends_with(end);
    };
    return is(port) || std::any_of(kPorts.begin(), kPorts.end(), is);
}

}  // namespace

bool isPcap(std::string_view content) {
    constexpr std::array kMagics = {"\xa1\xb2\xc3\xd4", "\xd4\xc3\xb2\xa1", "\xa1\xb2\x3c\x4d",
                                    "\x4d\x3c\xb2\xa1", "\x0a\x0d\x0d\x0a"};
    return std::any_of(kMagics.begin(), kMagics.end(),
                       [content](const char *magic) { return content.starts_with(magic); });
}

std::vector<Captured> packetsInPcap(const std::string &content, const std::string &name, int port) {
    std::array<char, PCAP_ERRBUF_SIZE> problem{};
    std::unique_ptr<FILE, decltype(&fclose)> file(
        fmemopen(const_cast<char *>(content.data()), content.size(), "r"), fclose);
    const std::unique_ptr<pcap_t, decltype(&pcap_close)> capture(
        file ? pcap_fopen_offline(file.get(), problem.data()) : nullptr, pcap_close);
    if (!capture) {
        throw Failure("cannot read " + name + ": " + problem.data());
    }
    (void)file.release();  // the capture's
    const int linkType = pcap_datalink(capture.get());
    std::vector<Captured> packets;
    pcap_pkthdr *header = nullptr;
    const u_char *data = nullptr;
    int status = 0;
    for (int number = 1; (status = pcap_next_ex(capture.get(), &header, &data)) == 1; ++number) {
        const View frame(data, header->caplen);
        const auto offset = networkOffset(linkType, frame);
        if (!offset) {
            throw Failure(name + " has frames of link type " + std::to_string(linkType) +
                          ", which this program does not know");
        }
        Captured found = *offset < frame.size() ? datagramIn(frame.subspan(*offset)) : Captured();
        if (!found.bytes.empty() && hasPort(found, port)) {
            found.title = "frame " + std::to_string(number);
            packets.push_back(found);
        }
    }
    if (status == PCAP_ERROR) {
        throw Failure("cannot read " + name + ": " + pcap_geterr(capture.get()));
    }
    return packets;
}

}  // namespace lanyardctl
