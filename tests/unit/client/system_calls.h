// What the system answers on order; calls of sockets, epoll and timers, and of the resolver, also fail on order
// (FailingCall).
//
//     const HostName name("gateway");                        // of this machine
//     const ResolverEntry entry("gateway", "127.0.0.9");     // what the resolver knows
//     const ClockAhead clock;                                // of this thread
//     clock.advance(60);                                     // seconds, which have passed at once
//
// The resolver knows dotted addresses, "localhost" and the entries that are there: no name ever
// leaves the machine.
#ifndef LANYARD_TESTS_UNIT_ENGINE_SYSTEM_CALLS_H
#define LANYARD_TESTS_UNIT_ENGINE_SYSTEM_CALLS_H

#include <string>

namespace lanyard::test {

class HostName {
  public:
    explicit HostName(const std::string &name);
    HostName(const HostName &) = delete;
    HostName &operator=(const HostName &) = delete;
    ~HostName();
};

class ResolverEntry {
  public:
    ResolverEntry(const std::string &name, const std::string &dotted);
    ResolverEntry(const ResolverEntry &) = delete;
    ResolverEntry &operator=(const ResolverEntry &) = delete;
    ~ResolverEntry();

  private:
    const std::string name_;
};

// Questions to the resolver so far.
int resolverCalls();

// The monotonic clock of this thread, and the timers that it sets, ahead of the system's. The next one goes on
// where this one ended: the library remembers times from one test to the next.
class ClockAhead {
  public:
    ClockAhead();
    ClockAhead(const ClockAhead &) = delete;
    ClockAhead &operator=(const ClockAhead &) = delete;
    ~ClockAhead();

    void advance(double seconds) const;
};

}  // namespace lanyard::test

#endif
