#include "tests/support/tireless_server.h"

#include <array>
#include <poll.h>
#include <span>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <utility>

namespace lanyard::test {

TirelessServer::TirelessServer(Responder responder)
    : responder_(std::move(responder)),
      stop_(eventfd(0, EFD_CLOEXEC), "eventfd"),
      thread_([this] { serve(); }) {}

TirelessServer::~TirelessServer() {
    eventfd_write(stop_.get(), 1);
    thread_.join();
}

void TirelessServer::serve() {
    std::array<pollfd, 2> watched = {{{stop_.get(), POLLIN, 0}, {socket_.socket(), POLLIN, 0}}};
    while (watched[0].revents == 0) {
        while (answerNext()) {
        }
        poll(watched.data(), watched.size(), -1);
    }
}

// False when none waits.
bool TirelessServer::answerNext() {
    std::array<uint8_t, 4096> buffer;
    sockaddr_in client{};
    socklen_t size = sizeof client;
    auto *generic = reinterpret_cast<sockaddr *>(&client);
    const ssize_t length =
        recvfrom(socket_.socket(), buffer.data(), buffer.size(), MSG_DONTWAIT, generic, &size);
    if (length < 0) {
        return false;
    }
    ++requests_;
    const auto reply = responder_(std::span(buffer).first(static_cast<size_t>(length)));
    if (reply) {
        (void)sendto(socket_.socket(), reply->data(), reply->size(), 0, generic, size);
    }
    return true;
}

}  // namespace lanyard::test
