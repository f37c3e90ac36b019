// Times of a load, and how they are shown.
#include "tools/lanyardctl/histogram.h"

#include <cstdint>
#include <string>
#include <vector>

#include "tests/support/test.h"

namespace lanyard::test::histogram_test {
namespace {

using lanyardctl::asBars;
using lanyardctl::Histogram;

Histogram of(const std::vector<uint64_t> &times) {
    Histogram histogram;
    for (const uint64_t time : times) {
        histogram.add(time);
    }
    return histogram;
}

TEST(HistogramTest, Nothing_HasNoRowsAndNoTimes) {
    const Histogram empty;
    EXPECT_EQ(0U, empty.count());
    EXPECT_EQ(0U, empty.least());
    EXPECT_EQ(0U, empty.most());
    EXPECT_EQ(0U, empty.percentile(50));
    EXPECT_TRUE(empty.rows().empty());
    EXPECT_EQ("", asBars(empty.rows()));
}

TEST(HistogramTest, EveryTime_KeepsItsFirstThreeDigits) {
    for (const uint64_t time : {0ULL, 1ULL, 99ULL, 100ULL, 999ULL, 1000ULL, 1009ULL, 1010ULL,
                                9999ULL, 10000ULL, 123456ULL, 9'990'000'000ULL}) {
        uint64_t shown = time;
        uint64_t unit = 1;
        for (; shown >= 1000; shown /= 10) {
            unit *= 10;
        }
        EXPECT_EQ(shown * unit, of({time}).percentile(100)) << time;
        EXPECT_EQ(time, of({time}).least());
        EXPECT_EQ(time, of({time}).most());
    }
}

TEST(HistogramTest, LongestTimes_CountAsTheLastOne) {
    const Histogram histogram = of({UINT64_MAX, 5});
    EXPECT_EQ(UINT64_MAX, histogram.most());
    EXPECT_GE(histogram.percentile(100), 1'000'000'000U);
    EXPECT_EQ(2U, histogram.count());
}

TEST(HistogramTest, Percentiles_AreTimesThatSoManyDidNotExceed) {
    std::vector<uint64_t> times;
    for (uint64_t time = 200; time > 0; --time) {
        times.push_back(time);
    }
    const Histogram histogram = of(times);
    EXPECT_EQ(2U, histogram.percentile(1));
    EXPECT_EQ(100U, histogram.percentile(50));
    EXPECT_EQ(198U, histogram.percentile(99));
    EXPECT_EQ(200U, histogram.percentile(100));
    EXPECT_EQ(7U, of({7}).percentile(1));
}

TEST(HistogramTest, Rows_GoInOneTwoFiveFromTheFirstToTheLast) {
    const std::vector<Histogram::Row> rows = of({100, 199, 200, 1999}).rows();
    ASSERT_EQ(4U, rows.size());
    const std::vector<std::vector<uint64_t>> expected = {
        {100, 200, 2}, {200, 500, 1}, {500, 1000, 0}, {1000, 2000, 1}};
    for (size_t i = 0; i < rows.size(); ++i) {
        EXPECT_EQ(expected[i], std::vector({rows[i].from, rows[i].to, rows[i].count})) << i;
    }
    ASSERT_EQ(1U, of({0}).rows().size());
    EXPECT_EQ(1U, of({0}).rows()[0].to);
}

TEST(HistogramTest, Bars_AreLongestForTheMostAndSeenForTheFewest) {
    Histogram histogram = of({60'000});
    for (int i = 0; i < 1000; ++i) {
        histogram.add(1500);
    }
    EXPECT_EQ("\n       1 to 2      ms      1000  " + std::string(40, '#') +
                  "\n       2 to 5      ms         0  \n       5 to 10     ms         0  "
                  "\n      10 to 20     ms         0  \n      20 to 50     ms         0  "
                  "\n      50 to 100    ms         1  #",
              asBars(histogram.rows()));
}

}  // namespace
}  // namespace lanyard::test::histogram_test
