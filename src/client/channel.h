// A connected socket to one server, and the requests that wait on it: at most one for each of its 256
// identifiers.
#ifndef LANYARD_CLIENT_CHANNEL_H
#define LANYARD_CLIENT_CHANNEL_H

#include <array>
#include <cstdint>
#include <netinet/in.h>
#include <utility>

#include <lanyard/radius/loop.h>
#include <palcore.h>

#include "base/descriptor.h"

namespace lanyard {

class Channel : public PalListNode {
  public:
    Channel(Descriptor socket, const sockaddr_in &server)
        : PalListNode{}, socket_(std::move(socket)), server_(server) {}

    // A socket that is connected to a server. On failure none, and errno says why.
    static Descriptor connect(const sockaddr_in &server);

    int socket() const { return socket_.get(); }
    const sockaddr_in &server() const { return server_; }
    bool isFull() const { return used_ == waiting_.size(); }
    bool isIdle() const { return used_ == 0; }
    int64_t idleSince() const { return idleSince_; }
    RadRequest *waiting(uint8_t identifier) const { return waiting_[identifier]; }

    // Gives a request the next free identifier in turn, so that late answers to an earlier request
    // mostly find nobody. The channel is not full.
    uint8_t enter(RadRequest *request) {
        while (waiting_[next_]) {
            ++next_;
        }
        ++used_;
        waiting_[next_] = request;
        return next_++;
    }

    void leave(uint8_t identifier, int64_t now) {
        waiting_[identifier] = nullptr;
        --used_;
        idleSince_ = now;
    }

  private:
    Descriptor socket_;
    sockaddr_in server_;
    int64_t idleSince_ = 0;
    size_t used_ = 0;
    uint8_t next_ = 0;
    std::array<RadRequest *, 256> waiting_{};
};

}  // namespace lanyard

#endif
