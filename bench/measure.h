// What the benchmarks of whole exchanges share: their command line, HOST PORT SECRET COUNT
// [--threads N], and the line that they print:
//
//     n=EXCHANGES rate=EXCHANGES-A-SECOND p50=MICROSECONDS p99=MICROSECONDS cpu=MICROSECONDS-EACH
//
// Processor time is that of the process and of the programs that it has run.
#ifndef LANYARD_BENCH_MEASURE_H
#define LANYARD_BENCH_MEASURE_H

#include <CLI/CLI.hpp>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace lanyard::bench {

using Clock = std::chrono::steady_clock;

constexpr int kTimeoutSeconds = 5;

struct Settings {
    std::string host{};
    uint16_t port = 0;
    std::string secret{};
    size_t count = 0;  // of each thread
    size_t threads = 1;

    void addTo(CLI::App &app);
};

// How long the exchanges of one thread took.
class Laps {
  public:
    explicit Laps(size_t count) { microseconds_.reserve(count); }

    void add(Clock::time_point start) {
        microseconds_.push_back(
            std::chrono::duration<double, std::micro>(Clock::now() - start).count());
    }
    [[nodiscard]] const std::vector<double> &microseconds() const { return microseconds_; }

  private:
    std::vector<double> microseconds_;
};

// Parses the command line, has every thread do its work, which adds a lap for each of
// `settings.count` exchanges, and prints the line. What the work itself prints goes to /dev/null.
// When a thread throws, that is the error, and there is no line. Returns the exit status.
//
// `prepare` runs before the clock does.
int measure(CLI::App &app, int argc, char *argv[], const Settings &settings,
            const std::function<void()> &prepare, const std::function<void(Laps &)> &work);

// Does one exchange after the other.
void repeat(const Settings &settings, Laps &laps, const std::function<void()> &exchange);

}  // namespace lanyard::bench

#endif
