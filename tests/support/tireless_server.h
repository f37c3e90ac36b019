// A RADIUS server that answers at once, keeps nothing of what it got, and runs for as long as its object: for
// tests of a million requests. For all others there is the scripted one.
//
//     TirelessServer server([](ByteView request) { return makeReply(2, request, "secret"); });
//     ... the client uses 127.0.0.1 and server.port() ...
#ifndef LANYARD_TESTS_SUPPORT_TIRELESS_SERVER_H
#define LANYARD_TESTS_SUPPORT_TIRELESS_SERVER_H

#include <atomic>
#include <cstdint>
#include <functional>
#include <optional>
#include <thread>

#include "tests/support/bytes.h"
#include "tests/support/scripted_server.h"
#include "tools/file_descriptor.h"

namespace lanyard::test {

class TirelessServer {
  public:
    // Makes the reply, or none, in the server's own thread.
    using Responder = std::function<std::optional<Bytes>(ByteView request)>;

    explicit TirelessServer(Responder responder);
    ~TirelessServer();
    TirelessServer(const TirelessServer &) = delete;
    TirelessServer &operator=(const TirelessServer &) = delete;
    TirelessServer(TirelessServer &&) = delete;
    TirelessServer &operator=(TirelessServer &&) = delete;

    [[nodiscard]] uint16_t port() const { return socket_.port(); }
    [[nodiscard]] uint64_t requests() const { return requests_; }

  private:
    void serve();
    bool answerNext();

    const Responder responder_;
    const SilentPort socket_;
    const FileDescriptor stop_;
    std::atomic<uint64_t> requests_{0};
    std::thread thread_;
};

}  // namespace lanyard::test

#endif
