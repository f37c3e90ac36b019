// Time that only goes forward.
#ifndef LANYARD_BASE_CLOCK_H
#define LANYARD_BASE_CLOCK_H

#include <cstdint>
#include <ctime>

namespace lanyard {

// In microseconds.
constexpr int64_t kMillisecond = 1000;
constexpr int64_t kSecond = 1000 * kMillisecond;

inline int64_t monotonicMicroseconds() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * kSecond + now.tv_nsec / 1000;
}

}  // namespace lanyard

#endif
