// Calls of the C library that fail or answer on order.
//
//     FailingCall failure(SystemCall::bind, EADDRINUSE);     // the next one of this thread
//     EXPECT_EQ(-1, radSendtoServer(&desc, pairs, &reply));
//     EXPECT_TRUE(failure.happened());
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

enum class SystemCall { socket, bind, getsockname, sendto, recvfrom, gethostname };

// The n-th such call of this thread (1: the next) fails with `error` in errno; for as long as the
// object is there, one at a time.
class FailingCall {
  public:
    FailingCall(SystemCall call, int error, int n = 1);
    FailingCall(const FailingCall &) = delete;
    FailingCall &operator=(const FailingCall &) = delete;
    ~FailingCall();

    [[nodiscard]] bool happened() const { return happened_; }

    // Asked by the functions that stand in for the C library's; sets errno when the answer is yes.
    bool strikes(SystemCall call);

  private:
    const SystemCall call_;
    const int error_;
    int left_;
    bool happened_ = false;
};

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
