#include "bench/compare/table.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace lanyard::bench::table_test {
namespace {

using testing::HasSubstr;
using testing::Not;

std::string textOf(const Table &table) {
    return table.text("row", "title", {"ours", "theirs"});
}

TEST(Table, OddRounds_ShowTheMiddleOne) {
    Table table;
    for (const double value : {0.5, 20.25, 3.0625}) {
        table.add(Side::kOurs, "login", value);
    }
    EXPECT_THAT(textOf(table), HasSubstr("3.062 (0.500 to 20.25; 3 of 3)"));
}

TEST(Table, EvenRounds_ShowTheMeanOfTheMiddleTwo) {
    Table table;
    for (const double value : {4.0, 1.0, 8.0, 2.0}) {
        table.add(Side::kOther, "logins", value);
    }
    EXPECT_THAT(textOf(table), HasSubstr("3 (1 to 8; 4 of 4)"));
}

TEST(Table, FailedRounds_AreSaidAndCountForNoMedian) {
    Table table;
    table.add(Side::kOurs, "login", std::nullopt);
    table.add(Side::kOurs, "login", 2);
    table.add(Side::kOther, "login", std::nullopt);
    EXPECT_THAT(textOf(table), HasSubstr("2 (2 to 2; 1 of 2)"));
    EXPECT_THAT(textOf(table), HasSubstr("failed 1 of 1"));
    EXPECT_THAT(textOf(table), Not(HasSubstr("not measured")));
}

TEST(Table, SideWithoutFigure_IsNotMeasured) {
    Table table;
    table.add(Side::kOurs, "login", 1);
    EXPECT_THAT(textOf(table), HasSubstr("not measured"));
}

TEST(Table, Counts_AddUp) {
    Table table;
    table.addCount(Side::kOurs, "logged in", 47, 48);
    table.addCount(Side::kOurs, "logged in", 48, 48);
    table.addCount(Side::kOther, "logged in", 0, 48);
    EXPECT_THAT(textOf(table), HasSubstr("95 of 96"));
    EXPECT_THAT(textOf(table), HasSubstr("0 of 48"));
}

}  // namespace
}  // namespace lanyard::bench::table_test
