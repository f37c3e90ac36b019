// A RADIUS server that is there and says nothing.
#ifndef LANYARD_TESTS_INTEROP_SILENT_SERVER_H
#define LANYARD_TESTS_INTEROP_SILENT_SERVER_H

#include <cstdint>

#include "tools/file_descriptor.h"

namespace lanyard::test {

// A UDP port of this machine that takes packets and never answers.
class SilentServer {
  public:
    explicit SilentServer(const char *address = "127.0.0.1");

    uint16_t port() const { return port_; }
    // Number of packets that came in since the last call.
    int packets() const;

  private:
    FileDescriptor socket_;
    uint16_t port_ = 0;
};

}  // namespace lanyard::test

#endif
