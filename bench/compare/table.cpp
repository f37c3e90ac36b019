#include "bench/compare/table.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace lanyard::bench {

namespace {

std::string number(double value) {
    std::array<char, 32> text = {};
    const bool whole = value == std::floor(value);
    const int decimals = whole || value >= 100 ? 0 : value < 10 ? 3 : 2;
    (void)std::snprintf(text.data(), text.size(), "%.*f", decimals, value);
    return text.data();
}

double median(const std::vector<double> &sorted) {
    const size_t middle = sorted.size() / 2;
    return sorted.size() % 2 != 0 ? sorted[middle] : (sorted[middle - 1] + sorted[middle]) / 2;
}

// Fills a column up.
std::string padded(std::string text, size_t width) {
    text.resize(std::max(text.size(), width), ' ');
    return text + "  ";
}

}  // namespace

Table::Results &Table::results(Side side, const std::string &figure) {
    auto found = std::find_if(figures_.begin(), figures_.end(),
                              [&](const Figure &known) { return known.name == figure; });
    if (found == figures_.end()) {
        found = figures_.insert(figures_.end(), Figure{.name = figure});
    }
    return found->sides.at(static_cast<size_t>(side));
}

void Table::add(Side side, const std::string &figure, std::optional<double> value) {
    Results &of = results(side, figure);
    if (value) {
        of.values.push_back(*value);
    } else {
        ++of.failed;
    }
}

void Table::addCount(Side side, const std::string &figure, size_t count, size_t all) {
    Results &of = results(side, figure);
    of.count += count;
    of.all += all;
}

std::string Table::cell(const Results &results) {
    const std::string rounds = std::to_string(results.values.size() + results.failed);
    if (results.all > 0) {
        return std::to_string(results.count) + " of " + std::to_string(results.all);
    }
    if (results.values.empty()) {
        return results.failed > 0 ? "failed " + rounds + " of " + rounds : "not measured";
    }
    std::vector<double> sorted = results.values;
    std::sort(sorted.begin(), sorted.end());
    return number(median(sorted)) + " (" + number(sorted.front()) + " to " + number(sorted.back()) +
           "; " + std::to_string(sorted.size()) + " of " + rounds + ")";
}

std::string Table::text(const std::string &row, const std::string &title,
                        const std::array<std::string, 2> &names) const {
    constexpr size_t kName = 34;
    constexpr size_t kCell = 36;
    std::string lines = row + ": " + title + "\n  " +
                        padded("median (least to most; of rounds)", kName) +
                        padded(names[0], kCell) + names[1] + "\n";
    for (const Figure &figure : figures_) {
        lines += "  " + padded(figure.name, kName) + padded(cell(figure.sides[0]), kCell) +
                 cell(figure.sides[1]) + "\n";
    }
    return lines;
}

}  // namespace lanyard::bench
