// What passes an Ethernet interface, with the kernel's times.
#ifndef LANYARD_BENCH_WIRE_CAPTURE_H
#define LANYARD_BENCH_WIRE_CAPTURE_H

#include <chrono>
#include <cstdint>
#include <string>
#include <sys/socket.h>
#include <vector>

#include "tools/file_descriptor.h"
#include "tools/pnac_wired/eapol.h"

namespace lanyard::bench {

using Moment = std::chrono::duration<double>;  // seconds since the epoch

struct EapolFrame {
    Moment at{};
    pnac::Mac destination = {};
    pnac::Mac source = {};
    uint8_t type = 0;
    uint8_t code = 0;  // of the EAP packet in it; 0 for none
};

class WireCapture {
  public:
    explicit WireCapture(const std::string &interface);

    // The EAPOL frames since the last call.
    std::vector<EapolFrame> frames() const;

    // Leaves out what comes from or goes to addresses that begin with these two bytes.
    void overlook(uint16_t addresses) const;

  private:
    FileDescriptor socket_;
};

// The time that the kernel has put beside a message of recvmsg().
Moment kernelTime(msghdr &message);
// Has the kernel do so.
void wantKernelTime(int socket);

}  // namespace lanyard::bench

#endif
