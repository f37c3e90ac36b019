// The owners of memory from the partition.
#include "base/partition.h"

#include <algorithm>
#include <cstdint>
#include <string>

#include <lanyard/radius/frame.h>
#include <palcore.h>

#include "tests/support/test.h"

namespace lanyard::test::partition_test {
namespace {

struct Record {
    int number;
    const char *text;
};

bool allZero(const uint8_t *bytes, size_t size) {
    return std::all_of(bytes, bytes + size, [](uint8_t byte) { return byte == 0; });
}

class PartitionOwners : public testing::Test {
  protected:
    void SetUp() override { ASSERT_EQ(0, radMemInit(4096)); }

    void TearDown() override {
        stopFailing();
        watchFor({});
        EXPECT_EQ(0U, liveBlocks(radMemPartId));
        EXPECT_EQ(0, radMemCleanUp());
    }
};

TEST_F(PartitionOwners, MakeZeroedRecordsAndReleaseThem) {
    {
        const auto record = allocateRecord<Record>();
        ASSERT_NE(nullptr, record);
        EXPECT_EQ(0, record->number);
        EXPECT_EQ(nullptr, record->text);
        EXPECT_EQ(1U, liveBlocks(radMemPartId));
    }
    EXPECT_EQ(0U, liveBlocks(radMemPartId));
}

TEST_F(PartitionOwners, MakeZeroedBytesAndReleaseThem) {
    {
        const auto bytes = allocateBytes(100);
        ASSERT_NE(nullptr, bytes);
        EXPECT_TRUE(allZero(bytes.get(), 100));
        EXPECT_EQ(1U, liveBlocks(radMemPartId));
    }
    EXPECT_EQ(0U, liveBlocks(radMemPartId));
}

TEST_F(PartitionOwners, CopyTextAndReleaseIt) {
    {
        const auto copy = copyText("nemo");
        EXPECT_STREQ("nemo", copy.get());
        EXPECT_EQ(1U, liveBlocks(radMemPartId));
    }
    EXPECT_EQ(0U, liveBlocks(radMemPartId));
}

TEST_F(PartitionOwners, AreEmptyWhenMemoryIsExhausted) {
    failAllocationsFrom(1);
    EXPECT_EQ(nullptr, allocateRecord<Record>());
    EXPECT_EQ(nullptr, allocateBytes(1));
    EXPECT_EQ(nullptr, allocateSecret(1));
    EXPECT_EQ(nullptr, copyText("nemo"));
}

TEST_F(PartitionOwners, RefuseASizeThatThePlatformCannotExpress) {
    constexpr uint64_t kTooLarge = uint64_t{1} << 32;
    if constexpr (kTooLarge > SIZE_MAX) {
        GTEST_SKIP() << "size_t has no larger size than the platform";
    }
    const size_t before = allocationCount();
    EXPECT_EQ(nullptr, allocateBytes(static_cast<size_t>(kTooLarge)));
    EXPECT_EQ(nullptr, allocateBytes(static_cast<size_t>(kTooLarge + 16)));
    EXPECT_EQ(nullptr, allocateSecret(static_cast<size_t>(kTooLarge + 16)));
    EXPECT_EQ(before, allocationCount());
}

TEST_F(PartitionOwners, WipeASecretBeforeItsReleaseAndNothingElse) {
    const std::string content(32, 'S');
    watchFor("S");
    {
        const auto secret = allocateSecret(content.size());
        ASSERT_NE(nullptr, secret);
        EXPECT_TRUE(allZero(secret.get(), content.size()));
        std::copy(content.begin(), content.end(), secret.get());
        EXPECT_EQ(1U, liveBlocksWithText());
    }
    EXPECT_EQ(0U, releasedBlocksWithText());
    // Bytes that are no secret are seen as they were.
    {
        const auto bytes = allocateBytes(content.size());
        ASSERT_NE(nullptr, bytes);
        std::copy(content.begin(), content.end(), bytes.get());
    }
    EXPECT_EQ(1U, releasedBlocksWithText());
}

}  // namespace
}  // namespace lanyard::test::partition_test
