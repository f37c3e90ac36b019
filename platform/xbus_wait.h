/**
 * @file
 * Waiting with an end.
 */
#ifndef LANYARD_PLATFORM_XBUS_WAIT_H
#define LANYARD_PLATFORM_XBUS_WAIT_H

#include <algorithm>
#include <chrono>
#include <ctime>
#include <poll.h>
#include <span>

namespace port::bus {

using Clock = std::chrono::steady_clock;

/**
 * Waits for descriptors, at most until the deadline; looks at them once when it has passed.
 * @return as poll(): how many are ready; 0 once the deadline has passed; -1 with `errno` set, EINTR
 *         for a signal.
 */
inline int waitUntil(std::span<pollfd> entries, Clock::time_point deadline) noexcept {
    using std::chrono::nanoseconds;
    using std::chrono::seconds;
    const auto left = std::max<nanoseconds>(deadline - Clock::now(), nanoseconds::zero());
    const auto whole = std::chrono::duration_cast<seconds>(left);
    const timespec limit{static_cast<time_t>(whole.count()),
                         static_cast<long>((left - whole).count())};
    return ppoll(entries.data(), entries.size(), &limit, nullptr);
}

}  // namespace port::bus

#endif
