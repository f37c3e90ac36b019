// Calls and a partition that fail on order.
#include <cerrno>
#include <gtest/gtest-spi.h>
#include <thread>

#include <lanyard/radius/dict.h>
#include <lanyard/radius/frame.h>
#include <palcore.h>

#include "tests/support/test.h"

namespace lanyard::test::failing_test {
namespace {

using testing::SizeIs;

TEST(FailingCallTest, StrikesTheNthCallOfTheThreadOnce) {
    EXPECT_FALSE(strikes("bind"));
    {
        const FailingCall failure("bind", EADDRINUSE, 2);
        std::thread([] { EXPECT_FALSE(strikes("bind")); }).join();
        EXPECT_FALSE(strikes("socket"));
        EXPECT_FALSE(strikes("bind"));
        EXPECT_FALSE(failure.happened());
        errno = 0;
        EXPECT_TRUE(strikes("bind"));
        EXPECT_EQ(EADDRINUSE, errno);
        EXPECT_TRUE(failure.happened());
        EXPECT_FALSE(strikes("bind"));
    }
    const FailingCall next("socket", EMFILE);
    EXPECT_FALSE(strikes("bind"));
    EXPECT_TRUE(strikes("socket"));
}

TEST(FailingPartitionTest, StandsInForThatOfTheLibrary) {
    forgetPartitions();
    ASSERT_EQ(0, radMemInit(1000));
    ASSERT_THAT(partitions(), SizeIs(1));
    EXPECT_EQ("radiusPartition", partitions()[0].name);
    EXPECT_EQ(1000U, partitions()[0].size);
    ASSERT_EQ(0, radDictAddAttr("User-Name 1 string"));
    EXPECT_EQ(1U, liveBlocks(radMemPartId));
    failAllocation(2);
    EXPECT_EQ(-1, radDictAddAttr("Other 2 string"));
    EXPECT_TRUE(allocationFailed());
    ASSERT_EQ(0, radDictAddAttr("Other 2 string"));
    EXPECT_EQ(2U, liveBlocks(radMemPartId));
    EXPECT_EQ(0, radDictUnload());
    EXPECT_EQ(0U, liveBlocks(radMemPartId));

    const PalMemPartId part = radMemPartId;
    EXPECT_NE(nullptr, palMemPartAlloc(part, 10));
    EXPECT_EQ(0, radMemCleanUp());
    EXPECT_TRUE(partitions()[0].destroyed);
    EXPECT_EQ(1U, partitions()[0].blocksAtDestroy);
    EXPECT_EQ(0U, liveBlocks());
    EXPECT_EQ(-1, palMemPartDestroy(part));
    EXPECT_EQ(nullptr, palMemPartAlloc(part, 1));
}

TEST(FailingPartitionTest, HoldsNoMoreThanItsSize) {
    const PalMemPartId part = palMemPartCreate("small", nullptr, 100);
    void *block = palMemPartAlloc(part, 60);
    ASSERT_NE(nullptr, block);
    EXPECT_EQ(nullptr, palMemPartAlloc(part, 41));
    EXPECT_EQ(nullptr, palMemPartAlloc(0, 0x80000000U));
    char *text = palMemPartStrDup(part, "copy");
    EXPECT_STREQ("copy", text);
    EXPECT_EQ(2U, liveBlocks(part));
    EXPECT_EQ(0, palMemPartFree(0, text));
    EXPECT_EQ(0, palMemPartFree(part, block));
    EXPECT_EQ(0, palMemPartFree(part, nullptr));
    EXPECT_NONFATAL_FAILURE(EXPECT_EQ(-1, palMemPartFree(part, block)), "no live block");
    EXPECT_EQ(0, palMemPartDestroy(part));
    failCreation();
    EXPECT_EQ(0U, palMemPartCreate("failing", nullptr, 100));
}

TEST(FailingPartitionTest, FindsATextInBlocks) {
    watchFor("nemo");
    char *with = palMemPartStrDup(0, "captain nemo");
    char *without = palMemPartStrDup(0, "captain");
    EXPECT_EQ(1U, liveBlocksWithText());
    EXPECT_EQ(0, palMemPartFree(0, without));
    EXPECT_EQ(0U, releasedBlocksWithText());
    EXPECT_EQ(0, palMemPartFree(0, with));
    EXPECT_EQ(0U, liveBlocksWithText());
    EXPECT_EQ(1U, releasedBlocksWithText());
    watchFor({});
    EXPECT_EQ(0, palMemPartFree(0, palMemPartStrDup(0, "nemo")));
    EXPECT_EQ(0U, releasedBlocksWithText());
}

TEST(FailingPartitionTest, FailsOnOrder) {
    const auto succeeds = [] {
        void *block = palMemPartAlloc(0, 1);
        palMemPartFree(0, block);
        return block != nullptr;
    };
    failAllocation(2);
    EXPECT_TRUE(succeeds());
    EXPECT_FALSE(succeeds());
    EXPECT_TRUE(succeeds());
    failAllocationsFrom(2);
    EXPECT_FALSE(allocationFailed());
    EXPECT_TRUE(succeeds());
    EXPECT_FALSE(succeeds());
    EXPECT_FALSE(succeeds());
    stopFailing();
    EXPECT_TRUE(succeeds());
    EXPECT_TRUE(allocationFailed());
}

TEST(FailingPartitionTest, TriesEachAllocation) {
    int runs = 0;
    EXPECT_EQ(2U, forEachFailingAllocation([&] {
                  ++runs;
                  palMemPartFree(0, palMemPartAlloc(0, 1));
                  palMemPartFree(0, palMemPartAlloc(0, 1));
              }));
    EXPECT_EQ(3, runs);
    EXPECT_NONFATAL_FAILURE(
        forEachFailingAllocation([] { palMemPartFree(0, palMemPartAlloc(0, 1)); }, 1),
        "still failing after 1 runs");
    void *leaked = nullptr;
    EXPECT_NONFATAL_FAILURE(forEachFailingAllocation([&] { leaked = palMemPartAlloc(0, 1); }),
                            "left other blocks");
    palMemPartFree(0, leaked);
}

}  // namespace
}  // namespace lanyard::test::failing_test
