// Memory for many records that end together.
#include "base/arena.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <vector>

#include <lanyard/radius/frame.h>

#include "tests/support/failing_partition.h"
#include "tests/support/test.h"

namespace lanyard::test::arena_test {
namespace {

// 72 bytes, aligned as a pointer is, on every machine.
struct Record {
    std::array<uintptr_t, 72 / sizeof(uintptr_t) - 1> numbers;
    Record *next;
};
static_assert(sizeof(Record) == 72);

class Records : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ(0, radMemInit(RAD_PARTITION_SIZE));
        before_ = liveBlocks();
    }
    void TearDown() override {
        stopFailing();
        arena.clear();
        EXPECT_EQ(0U, blocks());
        EXPECT_EQ(0, radMemCleanUp());
    }

    [[nodiscard]] size_t blocks() const { return liveBlocks() - before_; }

    Arena arena;

  private:
    size_t before_ = 0;
};

TEST_F(Records, OfAnArena_AreZeroedAndApart) {
    std::vector<Record *> records;
    for (size_t i = 0; i < 100; ++i) {
        auto *record = arena.allocate<Record>();
        ASSERT_NE(nullptr, record);
        EXPECT_EQ(nullptr, record->next);
        EXPECT_TRUE(std::ranges::all_of(record->numbers, [](uintptr_t n) { return n == 0; }));
        record->numbers.fill(i);
        records.push_back(record);
    }
    for (size_t i = 0; i < records.size(); ++i) {
        EXPECT_TRUE(std::ranges::all_of(records[i]->numbers, [i](uintptr_t n) { return n == i; }));
    }
}

// 14 of these records fit into 1024 bytes.
TEST_F(Records, OfAnArena_ShareBlocksThatGrow) {
    const std::vector<size_t> lastOfBlock = {1, 2, 4, 8, 16, 30, 44, 58};
    for (size_t count = 1; count <= 58; ++count) {
        ASSERT_NE(nullptr, arena.allocate<Record>());
        const auto block = std::lower_bound(lastOfBlock.begin(), lastOfBlock.end(), count);
        EXPECT_EQ(block - lastOfBlock.begin() + 1, static_cast<std::ptrdiff_t>(blocks())) << count;
    }
}

TEST_F(Records, InARowLongerThanABlock_GetOneOfTheirOwn) {
    auto *row = arena.allocate<Record>(100);
    ASSERT_NE(nullptr, row);
    EXPECT_EQ(1U, blocks());
    EXPECT_EQ(nullptr, row[99].next);
}

TEST_F(Records, WithoutMemory_AreNullAndLeaveTheOthers) {
    auto *first = arena.allocate<Record>();
    ASSERT_NE(nullptr, first);
    failAllocation(1);
    EXPECT_EQ(nullptr, arena.allocate<Record>());
    EXPECT_EQ(1U, blocks());
    EXPECT_EQ(nullptr, first->next);
    EXPECT_NE(nullptr, arena.allocate<Record>());
}

TEST_F(Records, AfterClearing_BeginWithASmallBlock) {
    for (int count = 0; count < 20; ++count) {
        ASSERT_NE(nullptr, arena.allocate<Record>());
    }
    arena.clear();
    EXPECT_EQ(0U, blocks());
    ASSERT_NE(nullptr, arena.allocate<Record>());
    ASSERT_NE(nullptr, arena.allocate<Record>());
    EXPECT_EQ(2U, blocks());
}

}  // namespace
}  // namespace lanyard::test::arena_test
