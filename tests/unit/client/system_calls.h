// What the system answers on order; socket, bind, getsockname, sendto, recvfrom and gethostname also fail
// on order (FailingCall).
//
//     const HostName name("gateway");                        // of this machine
//     const ResolverEntry entry("gateway", "127.0.0.9");     // what the resolver knows
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

}  // namespace lanyard::test

#endif
