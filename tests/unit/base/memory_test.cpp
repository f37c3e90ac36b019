// The partition that all memory of the library comes from.
#include <lanyard/radius/frame.h>
#include <palcore.h>

#include "tests/support/test.h"
#include "tests/unit/base/fresh_process.h"

namespace lanyard::test::memory_test {
namespace {

using testing::IsEmpty;

class Memory : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ(0U, radMemPartId);
        forgetPartitions();
    }

    void TearDown() override {
        stopFailing();
        EXPECT_EQ(0, radMemCleanUp());
        EXPECT_EQ(0U, radMemPartId);
        EXPECT_LOG(log_);
    }

  private:
    LogRecorder log_;
};

TEST(MemoryAtStart, HasNoPartition) {
    EXPECT_PASSES_IN_FRESH_PROCESS({
        EXPECT_EQ(0U, radMemPartId);
        EXPECT_EQ(0, radMemCleanUp());
        EXPECT_EQ(0U, radMemPartId);
        EXPECT_THAT(partitions(), IsEmpty());
    });
}

TEST_F(Memory, IsOnePartitionHoweverOftenItIsInitialised) {
    EXPECT_EQ(0, radMemInit(4096));
    const uint32_t partition = radMemPartId;
    EXPECT_NE(0U, partition);
    EXPECT_EQ(0, radMemInit(8192));
    EXPECT_EQ(partition, radMemPartId);

    ASSERT_EQ(1U, partitions().size());
    const PartitionRecord record = partitions()[0];
    EXPECT_EQ(partition, record.id);
    EXPECT_EQ("radiusPartition", record.name);
    EXPECT_EQ(4096U, record.size);
    EXPECT_FALSE(record.ownMemory);
}

TEST_F(Memory, IsDestroyedWithEverythingInIt) {
    ASSERT_EQ(0, radMemInit(4096));
    EXPECT_NE(nullptr, palMemPartAlloc(radMemPartId, 16));
    EXPECT_EQ(0, radMemCleanUp());
    EXPECT_EQ(0U, radMemPartId);
    ASSERT_EQ(1U, partitions().size());
    EXPECT_TRUE(partitions()[0].destroyed);
    EXPECT_EQ(1U, partitions()[0].blocksAtDestroy);
    EXPECT_EQ(0, radMemCleanUp());
}

TEST_F(Memory, ReportsThatItCouldNotBeCreated) {
    failCreation();
    EXPECT_EQ(-1, radMemInit(4096));
    EXPECT_EQ(0U, radMemPartId);
    stopFailing();
    EXPECT_EQ(0, radMemInit(4096));
    EXPECT_NE(0U, radMemPartId);
}

TEST_F(Memory, ForgetsItsPartitionWithoutDestroyingItWhenTheHostHandsInNone) {
    ASSERT_EQ(0, radMemInit(4096));
    const uint32_t forgotten = radMemPartId;
    EXPECT_EQ(0, radiusPartIdInit(0));
    EXPECT_EQ(0U, radMemPartId);
    ASSERT_EQ(1U, partitions().size());
    EXPECT_FALSE(partitions()[0].destroyed);

    // The library still owns what it creates from now on.
    EXPECT_EQ(0, radMemInit(8192));
    EXPECT_NE(forgotten, radMemPartId);
    EXPECT_EQ(0, radMemCleanUp());
    ASSERT_EQ(2U, partitions().size());
    EXPECT_FALSE(partitions()[0].destroyed);
    EXPECT_TRUE(partitions()[1].destroyed);

    EXPECT_EQ(0, palMemPartDestroy(forgotten));
}

TEST(MemoryOfTheHost, IsUsedAndNeverDestroyed) {
    EXPECT_PASSES_IN_FRESH_PROCESS({
        const PalMemPartId host = palMemPartCreate("host", nullptr, 4096);
        EXPECT_EQ(0, radiusPartIdInit(host));
        EXPECT_EQ(host, radMemPartId);
        EXPECT_EQ(0, radMemInit(102400));
        EXPECT_EQ(host, radMemPartId);
        EXPECT_EQ(1U, partitions().size());
        EXPECT_EQ(0, radMemCleanUp());
        EXPECT_EQ(host, radMemPartId);
        EXPECT_FALSE(partitions()[0].destroyed);
        EXPECT_EQ(0, palMemPartDestroy(host));
    });
}

TEST(MemoryOfTheHost, TakesOwnershipFromTheLibraryForGood) {
    EXPECT_PASSES_IN_FRESH_PROCESS({
        const PalMemPartId host = palMemPartCreate("host", nullptr, 4096);
        EXPECT_EQ(0, radiusPartIdInit(host));
        EXPECT_EQ(0, radiusPartIdInit(0));
        EXPECT_EQ(0U, radMemPartId);
        EXPECT_EQ(0, radMemInit(102400));
        const uint32_t created = radMemPartId;
        EXPECT_NE(host, created);
        EXPECT_EQ(0, radMemCleanUp());
        EXPECT_EQ(created, radMemPartId);
        for (const PartitionRecord &record : partitions()) {
            EXPECT_FALSE(record.destroyed) << record.name;
            EXPECT_EQ(0, palMemPartDestroy(record.id));
        }
    });
}

TEST(MemoryOfTheHost, TakesTheBlocksOfTheLibrary) {
    EXPECT_PASSES_IN_FRESH_PROCESS({
        EXPECT_EQ(0, radMemInit(102400));
        const uint32_t own = radMemPartId;
        const PalMemPartId host = palMemPartCreate("host", nullptr, 4096);
        EXPECT_EQ(0, radiusPartIdInit(host));
        EXPECT_EQ(host, radMemPartId);
        EXPECT_EQ(0, radMemCleanUp());
        EXPECT_EQ(host, radMemPartId);
        EXPECT_EQ(0, palMemPartDestroy(host));
        EXPECT_EQ(0, palMemPartDestroy(own)) << "the library destroyed its own behind the host's";
    });
}

}  // namespace
}  // namespace lanyard::test::memory_test
