#include "bench/measure.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <future>
#include <stdexcept>
#include <sys/resource.h>
#include <unistd.h>

#include "tools/file_descriptor.h"

namespace lanyard::bench {

namespace {

double processorMicroseconds() {
    double sum = 0;
    for (const auto who : {RUSAGE_SELF, RUSAGE_CHILDREN}) {
        rusage usage{};
        getrusage(who, &usage);
        for (const timeval &time : {usage.ru_utime, usage.ru_stime}) {
            sum += static_cast<double>(time.tv_sec) * 1e6 + static_cast<double>(time.tv_usec);
        }
    }
    return sum;
}

// The laps of all threads. With one there is none but the program's own, as in most users.
std::vector<double> runThreads(const Settings &settings, const std::function<void(Laps &)> &work) {
    const auto run = [&] {
        Laps laps(settings.count);
        work(laps);
        return laps.microseconds();
    };
    std::vector<std::future<std::vector<double>>> others;
    for (size_t i = 1; i < settings.threads; ++i) {
        others.push_back(std::async(std::launch::async, run));
    }
    std::vector<double> all = run();
    for (auto &other : others) {
        const auto laps = other.get();
        all.insert(all.end(), laps.begin(), laps.end());
    }
    if (all.size() != settings.count * settings.threads) {
        throw std::logic_error("the work has left laps out");
    }
    return all;
}

double percentile(const std::vector<double> &sorted, size_t percent) {
    return sorted[std::min(sorted.size() - 1, sorted.size() * percent / 100)];
}

}  // namespace

void Settings::addTo(CLI::App &app) {
    app.add_option("HOST", host, "dotted address of the server")->required();
    app.add_option("PORT", port, "its port")->required();
    app.add_option("SECRET", secret, "shared with it")->required();
    app.add_option("COUNT", count, "exchanges of each thread")
        ->required()
        ->check(CLI::Range(1, 10'000'000));
    app.add_option("--threads", threads, "that do so at once")
        ->check(CLI::Range(1, 64))
        ->capture_default_str();
}

int measure(CLI::App &app, int argc, char *argv[], const Settings &settings,
            const std::function<void()> &prepare, const std::function<void(Laps &)> &work) {
    CLI11_PARSE(app, argc, argv);
    try {
        const FileDescriptor output(dup(STDOUT_FILENO), "standard output");
        if (!std::freopen("/dev/null", "w", stdout)) {
            checked(-1, "/dev/null");
        }
        prepare();
        const double processorBefore = processorMicroseconds();
        const auto start = Clock::now();
        auto laps = runThreads(settings, work);
        const std::chrono::duration<double> elapsed = Clock::now() - start;
        const double processor = processorMicroseconds() - processorBefore;
        std::sort(laps.begin(), laps.end());
        const auto count = static_cast<double>(laps.size());
        dprintf(output.get(), "n=%zu rate=%.0f p50=%.1f p99=%.1f cpu=%.2f\n", laps.size(),
                count / elapsed.count(), percentile(laps, 50), percentile(laps, 99),
                processor / count);
        return EXIT_SUCCESS;
    } catch (const std::exception &reason) {
        (void)std::fprintf(stderr, "%s: %s\n", app.get_name().c_str(), reason.what());
        return EXIT_FAILURE;
    }
}

void repeat(const Settings &settings, Laps &laps, const std::function<void()> &exchange) {
    for (size_t i = 0; i < settings.count; ++i) {
        const auto start = Clock::now();
        exchange();
        laps.add(start);
    }
}

}  // namespace lanyard::bench
