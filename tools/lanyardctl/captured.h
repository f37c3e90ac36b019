// Packets out of text and capture files.
#ifndef LANYARDCTL_CAPTURED_H
#define LANYARDCTL_CAPTURED_H

#include <istream>
#include <string>
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
std::vector<Captured> packetsInText(std::istream &text);

// UDP payloads to or from the ports of RADIUS, and that port, in a file of libpcap. Fragments are left
// out. Throws a Failure when it cannot be read.
std::vector<Captured> packetsInPcap(const std::string &file, int port);

// Whether a file begins as one of libpcap.
bool isPcap(const std::string &file);

}  // namespace lanyardctl

#endif
