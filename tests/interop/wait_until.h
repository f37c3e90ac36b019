// Waiting for what other processes do.
#ifndef LANYARD_TESTS_INTEROP_WAIT_UNTIL_H
#define LANYARD_TESTS_INTEROP_WAIT_UNTIL_H

#include <chrono>
#include <thread>

namespace lanyard::test {

// Asks a condition until it holds. Returns false when it did not within the limit.
template <typename Condition>
bool waitUntil(Condition condition, std::chrono::milliseconds limit = std::chrono::seconds(20)) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

}  // namespace lanyard::test

#endif
