// Signals for a thread that stands in a blocking call.
#ifndef LANYARD_TESTS_UNIT_PLATFORM_SIGNALS_H
#define LANYARD_TESTS_UNIT_PLATFORM_SIGNALS_H

#include <atomic>
#include <csignal>
#include <pthread.h>
#include <thread>

namespace lanyard::test {

inline std::atomic<int> signalsHandled{0};

inline void countSignal(int /*signal*/) {
    ++signalsHandled;
}

// Interrupts the thread that makes it `times` times from another thread, then calls `then` there.
// System calls are not restarted by the kernel meanwhile.
template <typename Then>
class Interruptions {
  public:
    Interruptions(int times, Then then) : then_(std::move(then)) {
        struct sigaction action {};
        action.sa_handler = countSignal;
        sigaction(SIGUSR1, &action, &before_);
        signalsHandled = 0;
        worker_ = std::thread([this, times, target = pthread_self()] {
            for (int sent = 1; sent <= times; ++sent) {
                pthread_kill(target, SIGUSR1);
                awaitHandled(sent);
            }
            then_();
        });
    }
    ~Interruptions() {
        worker_.join();
        sigaction(SIGUSR1, &before_, nullptr);
    }
    Interruptions(const Interruptions &) = delete;
    Interruptions &operator=(const Interruptions &) = delete;
    Interruptions(Interruptions &&) = delete;
    Interruptions &operator=(Interruptions &&) = delete;

  private:
    // ThreadSanitizer holds a signal back in some calls that block: there the wait has an end.
    static void awaitHandled(int count) {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(20);
        while (signalsHandled < count && std::chrono::steady_clock::now() < deadline) {
            std::this_thread::yield();
        }
    }

    Then then_;
    struct sigaction before_ {};
    std::thread worker_;
};

}  // namespace lanyard::test

#endif
