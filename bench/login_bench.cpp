// login_bench HOST PORT SECRET COUNT: logs "alice" in with radAuth(), COUNT times one after
// another, against a server that knows her password "wonderland", and prints one line:
//
//     n=COUNT rate=LOGINS-A-SECOND p50=MICROSECONDS p99=MICROSECONDS cpu=MICROSECONDS-A-LOGIN
//
// What radAuth() itself prints goes to /dev/null.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <sys/resource.h>
#include <unistd.h>
#include <vector>

#include <lanyard/radius.h>

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kTimeoutSeconds = 5;
constexpr int kRetries = 1;
constexpr long kMaxCount = 10'000'000;

double cpuMicroseconds() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    const auto micro = [](const timeval &time) {
        return static_cast<double>(time.tv_sec) * 1e6 + static_cast<double>(time.tv_usec);
    };
    return micro(usage.ru_utime) + micro(usage.ru_stime);
}

double microsecondsSince(Clock::time_point start) {
    return std::chrono::duration<double, std::micro>(Clock::now() - start).count();
}

// Latencies of the logins in microseconds; fewer than asked for when one failed.
std::vector<double> logIn(long count) {
    std::vector<double> latencies;
    latencies.reserve(static_cast<size_t>(count));
    for (long i = 0; i < count; ++i) {
        const auto start = Clock::now();
        if (radAuth("alice", "wonderland") != 0) {
            break;
        }
        latencies.push_back(microsecondsSince(start));
    }
    return latencies;
}

double percentile(const std::vector<double> &sorted, size_t percent) {
    return sorted[std::min(sorted.size() - 1, sorted.size() * percent / 100)];
}

}  // namespace

int main(int argc, char *argv[]) {
    const long count = argc == 5 ? std::strtol(argv[4], nullptr, 10) : 0;
    if (count < 1 || count > kMaxCount) {
        std::fprintf(stderr, "Usage: %s HOST PORT SECRET COUNT\n", argv[0]);
        return 2;
    }
    radLibInit(nullptr);
    radDictLoad(nullptr);
    radConfSetTimeout("5");
    radConfSetRetries("1");
    const int port = static_cast<int>(std::strtol(argv[2], nullptr, 10));
    if (radConfAddAuthServ(argv[1], port, kTimeoutSeconds, kRetries, argv[3], nullptr) != 0) {
        return 2;
    }
    std::FILE *report = fdopen(dup(STDOUT_FILENO), "w");
    if (!report || !std::freopen("/dev/null", "w", stdout)) {
        std::perror("standard output");
        return 2;
    }

    const double cpuBefore = cpuMicroseconds();
    const auto start = Clock::now();
    std::vector<double> latencies = logIn(count);
    const double elapsed = microsecondsSince(start);
    const double cpu = cpuMicroseconds() - cpuBefore;
    radLibExit();

    if (latencies.size() < static_cast<size_t>(count)) {
        std::fprintf(stderr, "login %zu of %ld failed\n", latencies.size() + 1, count);
        return 1;
    }
    std::sort(latencies.begin(), latencies.end());
    const auto logins = static_cast<double>(count);
    std::fprintf(report, "n=%ld rate=%.0f p50=%.0f p99=%.0f cpu=%.1f\n", count,
                 logins * 1e6 / elapsed, percentile(latencies, 50), percentile(latencies, 99),
                 cpu / logins);
    return std::fclose(report) == 0 ? 0 : 2;
}
