// What was measured, for both sides, and its table.
#ifndef LANYARD_BENCH_COMPARE_TABLE_H
#define LANYARD_BENCH_COMPARE_TABLE_H

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace lanyard::bench {

enum class Side : size_t { kOurs, kOther };
constexpr std::array<Side, 2> kSides = {Side::kOurs, Side::kOther};

class Table {
  public:
    // A figure of one round; none when it could not be measured, for what was measured has failed.
    void add(Side side, const std::string &figure, std::optional<double> value);
    // So many of so many in one round; rounds add up.
    void addCount(Side side, const std::string &figure, size_t count, size_t all);

    // A line for each figure, in the order in which they came; `names` are those of the sides.
    std::string text(const std::string &row, const std::string &title,
                     const std::array<std::string, 2> &names) const;

  private:
    struct Results {
        std::vector<double> values = {};
        size_t failed = 0;
        size_t count = 0;
        size_t all = 0;
    };
    struct Figure {
        std::string name;
        std::array<Results, 2> sides = {};
    };

    Results &results(Side side, const std::string &figure);
    static std::string cell(const Results &results);

    std::vector<Figure> figures_;
};

}  // namespace lanyard::bench

#endif
