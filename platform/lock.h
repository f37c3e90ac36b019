// A lock for a few instructions' work: inline, where std::mutex calls the C library twice.
#ifndef LANYARD_PLATFORM_LOCK_H
#define LANYARD_PLATFORM_LOCK_H

#include <atomic>
#if __has_include(<sys/single_threaded.h>)
#include <sys/single_threaded.h>
#endif

namespace lanyard::port {

// Works with std::lock_guard. Who finds it locked sleeps in the kernel until it is free. Nobody may start
// or join a thread while he holds it: a process with one thread takes it without an atomic instruction.
class Lock {
  public:
    void lock() {
        int found = kOpen;
        if (aloneInProcess()) {
            state_.store(kLocked, std::memory_order_relaxed);
        } else if (!state_.compare_exchange_strong(found, kLocked, std::memory_order_acquire)) {
            lockAfterWaiting();
        }
    }

    void unlock() {
        if (aloneInProcess()) {
            state_.store(kOpen, std::memory_order_relaxed);
        } else if (state_.exchange(kOpen, std::memory_order_release) == kAwaited) {
            wake();
        }
    }

  private:
    static constexpr int kOpen = 0;
    static constexpr int kLocked = 1;
    static constexpr int kAwaited = 2;  // locked, and somebody may wait

    static bool aloneInProcess() {
#if __has_include(<sys/single_threaded.h>)
        return __libc_single_threaded != 0;
#else
        return false;
#endif
    }

    // Apart from the calls' short way.
    [[gnu::noinline]] void wake() {
        state_.notify_one();
    }
    [[gnu::noinline]] void lockAfterWaiting() {
        while (state_.exchange(kAwaited, std::memory_order_acquire) != kOpen) {
            state_.wait(kAwaited, std::memory_order_relaxed);
        }
    }

    std::atomic<int> state_{kOpen};
};

}  // namespace lanyard::port

#endif
