#include "histogram.h"

#include <algorithm>
#include <cstdio>
#include <utility>

namespace lanyardctl {

namespace {

constexpr size_t kBar = 40;

// 2 after 1, 5 after 2, 10 after 5.
uint64_t stepAfter(uint64_t step) {
    uint64_t unit = 1;
    while (unit * 10 <= step) {
        unit *= 10;
    }
    return unit * (step == unit ? 2 : step == 2 * unit ? 5 : 10);
}

}  // namespace

// The first three digits have a place of their own, in each decade.
size_t Histogram::placeOf(uint64_t microseconds) {
    size_t decade = 0;
    for (; microseconds >= 1000; microseconds /= 10) {
        ++decade;
    }
    return std::min(decade, kDecades - 1) * kDigits + static_cast<size_t>(microseconds);
}

uint64_t Histogram::leastAt(size_t place) {
    uint64_t unit = 1;
    for (; place >= 100 + kDigits; place -= kDigits) {
        unit *= 10;
    }
    return place * unit;
}

void Histogram::add(uint64_t microseconds) {
    ++counts_[placeOf(microseconds)];
    least_ = count_ == 0 ? microseconds : std::min(least_, microseconds);
    most_ = std::max(most_, microseconds);
    ++count_;
}

uint64_t Histogram::percentile(int percent) const {
    const uint64_t rank = (count_ * static_cast<uint64_t>(percent) + 99) / 100;
    uint64_t sum = 0;
    for (size_t place = 0; place < counts_.size() && rank > 0; ++place) {
        sum += counts_[place];
        if (sum >= rank) {
            return leastAt(place);
        }
    }
    return 0;
}

std::vector<Histogram::Row> Histogram::rows() const {
    std::vector<Row> rows;
    size_t place = 0;
    uint64_t left = count_;
    uint64_t from = 0;
    for (uint64_t to = 1; left > 0; to = stepAfter(to)) {
        Row row{std::exchange(from, to), to, 0};
        for (; place < counts_.size() && leastAt(place) < to; ++place) {
            row.count += counts_[place];
        }
        left -= row.count;
        if (row.count > 0 || !rows.empty()) {
            rows.push_back(row);
        }
    }
    return rows;
}

std::string asBars(const std::vector<Histogram::Row> &rows) {
    uint64_t most = 1;
    for (const Histogram::Row &row : rows) {
        most = std::max(most, row.count);
    }
    std::string text;
    for (const Histogram::Row &row : rows) {
        std::array<char, 64> line{};
        (void)std::snprintf(line.data(), line.size(), "\n  %6g to %-6g ms %9llu  ",
                            static_cast<double>(row.from) / 1000,
                            static_cast<double>(row.to) / 1000,
                            static_cast<unsigned long long>(row.count));
        // Rounded up: what occurred is seen.
        const auto places = static_cast<size_t>((row.count * kBar + most - 1) / most);
        text += line.data() + std::string(places, '#');
    }
    return text;
}

}  // namespace lanyardctl
