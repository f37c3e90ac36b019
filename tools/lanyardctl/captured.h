// Packets out of text and capture files.
#ifndef LANYARDCTL_CAPTURED_H
#define LANYARDCTL_CAPTURED_H

#include <string>
#include <string_view>
#include <vector>

#include "radius_packet.h"

namespace lanyardctl {

// One packet, and where it was found. Source and destination are empty in text.
struct Captured {
    Bytes bytes;
    std::string title;
    std::string source = {};
    std::string destination = {};
};

// Packets in text: hexadecimal digits with or without blanks, dumps with an offset in front of each line and
// characters behind it, and the library's own "RADIUS Tx Buffer" among other lines of its log. A line
// without digits ends a packet.
std::vector<Captured> packetsInText(const std::string &text);

// UDP payloads to or from the ports of RADIUS, and that port, in what a file of libpcap holds. Fragments are left
// out. Throws a Failure, which calls it by the name, when it is broken.
std::vector<Captured> packetsInPcap(const std::string &content, const std::string &name, int port);

// Whether content begins as that of a file of libpcap.
bool isPcap(std::string_view content);

}  // namespace lanyardctl

#endif
