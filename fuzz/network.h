// A network and a time that are made up: the program's sockets, timers and waits are those of network.cpp.
//
//     network.begin([](int socket, ByteView request) { network.deliver(socket, answerTo(request)); });
//     radBuildAndSendReq(...);
//
// Nothing ever waits. Whoever has nothing to read when it waits finds that its time is over, and the clock
// with it. What would wait for ever ends the process.
#ifndef LANYARD_FUZZ_NETWORK_H
#define LANYARD_FUZZ_NETWORK_H

#include <deque>
#include <functional>
#include <map>
#include <string>

#include "fuzz/environment.h"

namespace lanyard::fuzz {

class Network {
  public:
    // Called with each datagram that is sent; an errno in place of 0 has the call fail.
    using Sent = std::function<int(int socket, ByteView datagram)>;

    // A new network, in which nothing is known of any server and chance is the same again.
    void begin(Sent sent);
    // Ends the process if a socket is left open.
    void end();

    // An address that no network before had.
    [[nodiscard]] const std::string &address() const { return address_; }

    // What the socket reads next; for a closed one it is lost.
    void deliver(int socket, Bytes datagram);
    void fail(int socket, int error);
    void pass(int64_t microseconds) { now_ += microseconds; }
    [[nodiscard]] int64_t now() const { return now_; }

    // The calls that the library makes.
    int open();
    void close(int fd);
    int send(int fd, const void *bytes, size_t size);
    ssize_t receive(int fd, void *place, size_t size, bool stays);
    [[nodiscard]] bool isReadable(int fd) const;
    int openSet();
    void watch(int set, int fd, void *context);
    void forget(int set, int fd);
    // Contexts of what is ready.
    std::vector<void *> await(int set, int64_t microseconds);
    void setTimer(int fd, int64_t due);
    // When a timer of the set is due.
    [[nodiscard]] int64_t alarm(int set) const;
    // Ends when something is readable or due in the set.
    bool wait(int set, int64_t microseconds);

  private:
    struct Arrival {
        Bytes datagram;
        int error = 0;
    };

    static constexpr int64_t kNever = INT64_MAX;

    Sent sent_;
    std::string address_;
    unsigned networks_ = 0;
    int64_t now_ = 1000000000;
    std::map<int, std::deque<Arrival>> sockets_;
    std::map<int, std::map<int, void *>> sets_;
    std::map<int, int64_t> timers_;
};

extern Network network;

}  // namespace lanyard::fuzz

#endif
