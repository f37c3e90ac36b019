// Times and how often they occurred, to three digits, in the same little memory however many there are.
#ifndef LANYARDCTL_HISTOGRAM_H
#define LANYARDCTL_HISTOGRAM_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace lanyardctl {

class Histogram {
  public:
    void add(uint64_t microseconds);

    [[nodiscard]] uint64_t count() const { return count_; }
    // The extremes; 0 while there is none.
    [[nodiscard]] uint64_t least() const { return least_; }
    [[nodiscard]] uint64_t most() const { return most_; }
    // The time that so much of a hundred, 1 to 100, did not exceed: its first three digits; 0 while there is none.
    [[nodiscard]] uint64_t percentile(int percent) const;

    // From a time to below another, in steps of 1, 2 and 5.
    struct Row {
        uint64_t from;
        uint64_t to;
        uint64_t count;
    };
    // Those from the first that has any to the last.
    [[nodiscard]] std::vector<Row> rows() const;

  private:
    static constexpr size_t kDigits = 900;  // 100 to 999
    static constexpr size_t kDecades = 8;   // up to 10000 seconds

    static size_t placeOf(uint64_t microseconds);
    static uint64_t leastAt(size_t place);

    std::array<uint64_t, 100 + kDecades * kDigits> counts_{};
    uint64_t count_ = 0;
    uint64_t least_ = 0;
    uint64_t most_ = 0;
};

// The rows as lines of milliseconds, counts and bars, each with a newline before it.
std::string asBars(const std::vector<Histogram::Row> &rows);

}  // namespace lanyardctl

#endif
