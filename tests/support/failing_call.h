// Functions of the C library and of the OS layer that fail on order.
//
//     const FailingCall failure("bind", EADDRINUSE);     // the next one of this thread
//     EXPECT_EQ(-1, radSendtoServer(&desc, pairs, &reply));
//     EXPECT_TRUE(failure.happened());
//
// The test program defines the function in place of the real one (lanyard_interpose() in CMake) and asks:
//
//     int bind(int fd, const sockaddr *addr, socklen_t len) noexcept {
//         static auto *const real = following<decltype(bind)>("bind");
//         return strikes("bind") ? -1 : real(fd, addr, len);
//     }
#ifndef LANYARD_TESTS_SUPPORT_FAILING_CALL_H
#define LANYARD_TESTS_SUPPORT_FAILING_CALL_H

#include <array>
#include <cstddef>
#include <dlfcn.h>
#include <span>

namespace lanyard::test {

// The n-th call of that function by this thread (1: the next) fails with `error` in errno; for as long as
// the object is there, one at a time. The name is kept as it is, not copied.
class FailingCall {
  public:
    FailingCall(const char *function, int error, int n = 1);
    FailingCall(const FailingCall &) = delete;
    FailingCall &operator=(const FailingCall &) = delete;
    ~FailingCall();

    [[nodiscard]] bool happened() const { return happened_; }

  private:
    friend bool strikes(const char *function);

    const char *const function_;
    const int error_;
    int left_;
    bool happened_ = false;
};

// The functions that this thread calls while the object is there, one at a time.
//
//     const CalledFunctions called;
//     radGetHostIP();
//     EXPECT_THAT(called.names(), Contains(StrEq("gethostname")));
class CalledFunctions {
  public:
    CalledFunctions();
    CalledFunctions(const CalledFunctions &) = delete;
    CalledFunctions &operator=(const CalledFunctions &) = delete;
    ~CalledFunctions();

    // Each once, in the order of their first calls.
    [[nodiscard]] std::span<const char *const> names() const { return {names_.data(), count_}; }

  private:
    friend bool strikes(const char *function);

    void add(const char *function);

    std::array<const char *, 64> names_{};
    size_t count_ = 0;
};

// Whether a failure that was ordered for this thread, and is still there, has come to pass.
[[nodiscard]] bool hasStruck();

// Counts a call. Whether it has to fail; errno is set then. Allocates nothing, and may be called before any
// constructor has run.
[[nodiscard]] bool strikes(const char *function);

// The function that the program's own one stands in for, or the sanitizer's in front of it.
template <typename Function>
[[nodiscard]] Function *following(const char *name) {
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

}  // namespace lanyard::test

#endif
