// A memory partition that fails on order, in place of the OS layer's.
//
//     EXPECT_EQ(0U, liveBlocks());
//     failAllocation(1);                          // the next one
//     EXPECT_EQ(nullptr, radPairNew(1, "nemo", 0));
//     EXPECT_TRUE(allocationFailed());
//     stopFailing();
//
//     forEachFailingAllocation([] {               // 1st, 2nd, ... until one run needs no more
//         RadPair *pair = radPairNew(1, "nemo", 0);
//         EXPECT_EQ(allocationFailed(), pair == nullptr);
//         radPairListFree(pair);
//     });
//
// The test program itself defines palMemPartCreate(), ...Alloc(), ...StrDup(), ...Free() and
// ...Destroy(); linking the target lanyard-test-partition brings them in. Every block is one of
// malloc(), so that AddressSanitizer sees each overrun, each use after free and each leak; it is
// filled with 0xa5. A partition still holds no more than its size, counted without any bookkeeping.
// Freeing what is no live block fails the test.
//
//     watchFor("wonderland");                     // do passwords leave with their blocks?
//     radPairListFree(list);
//     EXPECT_EQ(0U, releasedBlocksWithText());
//
// All functions may be called from any thread.
#ifndef LANYARD_TESTS_SUPPORT_FAILING_PARTITION_H
#define LANYARD_TESTS_SUPPORT_FAILING_PARTITION_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include <palcore.h>

namespace lanyard::test {

struct PartitionRecord {
    PalMemPartId id = 0;
    std::string name = {};
    uint32_t size = 0;
    bool ownMemory = false;  // palMemPartCreate() was given the memory by its caller
    size_t liveBlocks = 0;
    size_t liveBytes = 0;
    bool destroyed = false;
    size_t blocksAtDestroy = 0;  // what was live then
};

// Every partition that was created since the start or forgetPartitions(), in order.
std::vector<PartitionRecord> partitions();

// Drops the records of destroyed partitions.
void forgetPartitions();

// Blocks that were allocated and not freed: of all partitions and the heap, of one partition, of the heap.
size_t liveBlocks();
size_t liveBlocks(PalMemPartId part);
size_t heapBlocks();

// Allocations so far, failed ones included.
size_t allocationCount();

// From now on the n-th allocation (1: the next, 0: none) fails, once; or that one and all after it. The
// heap's count as well. A new order replaces the one before and resets allocationFailed().
void failAllocation(unsigned n);
void failAllocationsFrom(unsigned n);

// The next partition is not created.
void failCreation();

// Takes the orders back.
void stopFailing();

// Whether an ordered failure has come to pass since the order.
bool allocationFailed();

// Runs `run` with the 1st, 2nd, ... allocation failing until a run makes it through without a
// failure, and returns how many runs met one. Each run must leave as many live blocks as it found; a
// run that does not, a fatal failure and `bound` end the loop with a failed test.
unsigned forEachFailingAllocation(const std::function<void()> &run, unsigned bound = 1000);

// From now on blocks are searched for this text: those that are live, and those that are freed, which are
// counted from zero. An empty text ends it.
void watchFor(std::string_view text);
size_t liveBlocksWithText();
size_t releasedBlocksWithText();

}  // namespace lanyard::test

#endif
