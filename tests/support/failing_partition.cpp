#include "tests/support/failing_partition.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <map>
#include <mutex>
#include <optional>
#include <unordered_map>

namespace lanyard::test {
namespace {

constexpr uint8_t kFiller = 0xa5;

struct Block {
    PalMemPartId part;
    uint32_t size;
};

// Addresses are kept in a form that the leak checker does not take for a pointer.
uintptr_t hidden(const void *block) {
    return ~reinterpret_cast<uintptr_t>(block);
}

void *revealed(uintptr_t key) {
    return reinterpret_cast<void *>(~key);  // NOLINT(performance-no-int-to-ptr): the way back
}

using Blocks = std::unordered_map<uintptr_t, Block>;

class Pool {
  public:
    PalMemPartId create(const char *name, bool ownMemory, uint32_t size) {
        const std::lock_guard lock(mutex_);
        if (size == 0 || std::exchange(creationFails_, false)) {
            return 0;
        }
        PartitionRecord record;
        record.id = ++lastId_;
        record.name = name != nullptr ? name : "";
        record.size = size;
        record.ownMemory = ownMemory;
        records_.emplace(record.id, record);
        return record.id;
    }

    void *allocate(PalMemPartId part, uint32_t size) {
        const std::lock_guard lock(mutex_);
        ++allocations_;
        PartitionRecord *record = find(part);
        if (takeOrderedFailure() || record == nullptr || size > INT32_MAX ||
            size > record->size - record->liveBytes) {
            return nullptr;
        }
        void *block = std::malloc(size);
        if (block != nullptr) {
            std::memset(block, kFiller, size);
            blocks_.emplace(hidden(block), Block{part, size});
            ++record->liveBlocks;
            record->liveBytes += size;
        }
        return block;
    }

    bool release(void *block) {
        const std::lock_guard lock(mutex_);
        const auto position = blocks_.find(hidden(block));
        if (position == blocks_.end()) {
            return false;
        }
        releasedWithText_ += holdsText(*position) ? 1 : 0;
        PartitionRecord *record = find(position->second.part);
        --record->liveBlocks;
        record->liveBytes -= position->second.size;
        blocks_.erase(position);
        std::free(block);
        return true;
    }

    bool destroy(PalMemPartId part) {
        const std::lock_guard lock(mutex_);
        PartitionRecord *record = find(part);
        if (part == 0 || record == nullptr) {
            return false;
        }
        std::erase_if(blocks_, [part](const auto &entry) {
            if (entry.second.part != part) {
                return false;
            }
            std::free(revealed(entry.first));
            return true;
        });
        record->destroyed = true;
        record->blocksAtDestroy = std::exchange(record->liveBlocks, 0);
        record->liveBytes = 0;
        return true;
    }

    std::vector<PartitionRecord> records() {
        const std::lock_guard lock(mutex_);
        std::vector<PartitionRecord> all;
        for (const auto &[id, record] : records_) {
            if (id != 0) {
                all.push_back(record);
            }
        }
        return all;
    }

    void forget() {
        const std::lock_guard lock(mutex_);
        std::erase_if(records_, [](const auto &entry) { return entry.second.destroyed; });
    }

    size_t live() {
        const std::lock_guard lock(mutex_);
        return blocks_.size();
    }

    size_t live(PalMemPartId part) {
        const std::lock_guard lock(mutex_);
        const PartitionRecord *record = find(part);
        return record != nullptr ? record->liveBlocks : 0;
    }

    size_t allocations() {
        const std::lock_guard lock(mutex_);
        return allocations_;
    }

    void order(std::optional<unsigned> n, bool andAllAfter) {
        const std::lock_guard lock(mutex_);
        failingAt_ = n;
        allAfterFail_ = andAllAfter;
        failed_ = false;
    }

    void orderCreationFailure(bool fails) {
        const std::lock_guard lock(mutex_);
        creationFails_ = fails;
    }

    // Ends the orders, and leaves what came of them to be asked for.
    void stop() {
        const std::lock_guard lock(mutex_);
        failingAt_.reset();
        creationFails_ = false;
    }

    bool failed() {
        const std::lock_guard lock(mutex_);
        return failed_;
    }

    void watchFor(std::string_view text) {
        const std::lock_guard lock(mutex_);
        text_ = text;
        releasedWithText_ = 0;
    }

    size_t liveWithText() {
        const std::lock_guard lock(mutex_);
        return static_cast<size_t>(
            std::count_if(blocks_.begin(), blocks_.end(),
                          [this](const auto &entry) { return holdsText(entry); }));
    }

    size_t releasedWithText() {
        const std::lock_guard lock(mutex_);
        return releasedWithText_;
    }

  private:
    PartitionRecord *find(PalMemPartId part) {
        const auto position = records_.find(part);
        return position != records_.end() && !position->second.destroyed ? &position->second
                                                                         : nullptr;
    }

    bool holdsText(const Blocks::value_type &entry) const {
        const auto &[key, block] = entry;
        const std::string_view content(static_cast<const char *>(revealed(key)), block.size);
        return !text_.empty() && content.find(text_) != std::string_view::npos;
    }

    bool takeOrderedFailure() {
        if (!failingAt_) {
            return false;
        }
        if (*failingAt_ > 1) {
            --*failingAt_;
            return false;
        }
        if (!allAfterFail_) {
            failingAt_.reset();
        }
        failed_ = true;
        return true;
    }

    std::mutex mutex_;
    // The heap is a partition of its own, without a name and of unlimited size.
    std::map<PalMemPartId, PartitionRecord> records_ = {{0, {.name = {}, .size = UINT32_MAX}}};
    Blocks blocks_;
    PalMemPartId lastId_ = 0;
    size_t allocations_ = 0;
    std::optional<unsigned> failingAt_;
    bool allAfterFail_ = false;
    bool creationFails_ = false;
    bool failed_ = false;
    std::string text_;
    size_t releasedWithText_ = 0;
};

// It outlives every static object that may still free a block.
Pool &pool() {
    static Pool &instance = *new Pool;
    return instance;
}

}  // namespace

std::vector<PartitionRecord> partitions() {
    return pool().records();
}

void forgetPartitions() {
    pool().forget();
}

size_t liveBlocks() {
    return pool().live();
}

size_t liveBlocks(PalMemPartId part) {
    return pool().live(part);
}

size_t heapBlocks() {
    return pool().live(0);
}

size_t allocationCount() {
    return pool().allocations();
}

void failAllocation(unsigned n) {
    pool().order(n == 0 ? std::nullopt : std::optional(n), false);
}

void failAllocationsFrom(unsigned n) {
    pool().order(n, true);
}

void failCreation() {
    pool().orderCreationFailure(true);
}

void stopFailing() {
    pool().stop();
}

bool allocationFailed() {
    return pool().failed();
}

unsigned forEachFailingAllocation(const std::function<void()> &run, unsigned bound) {
    for (unsigned n = 1; n <= bound; ++n) {
        const testing::ScopedTrace trace(__FILE__, __LINE__,
                                         "with allocation " + std::to_string(n) + " failing");
        const size_t blocksBefore = liveBlocks();
        failAllocation(n);
        run();
        stopFailing();
        const size_t blocksAfter = liveBlocks();
        EXPECT_EQ(blocksBefore, blocksAfter) << "the run left other blocks than it found";
        if (!allocationFailed() || blocksBefore != blocksAfter ||
            testing::Test::HasFatalFailure()) {
            return n - 1;
        }
    }
    ADD_FAILURE() << "still failing after " << bound << " runs";
    return bound;
}

void watchFor(std::string_view text) {
    pool().watchFor(text);
}

size_t liveBlocksWithText() {
    return pool().liveWithText();
}

size_t releasedBlocksWithText() {
    return pool().releasedWithText();
}

}  // namespace lanyard::test

using lanyard::test::pool;

PalMemPartId palMemPartCreate(const char *name, void *memory, uint32_t size) {
    return pool().create(name, memory != nullptr, size);
}

void *palMemPartAlloc(PalMemPartId part, uint32_t size) {
    return pool().allocate(part, size);
}

char *palMemPartStrDup(PalMemPartId part, const char *text) {
    if (text == nullptr) {
        return nullptr;
    }
    const size_t size = std::strlen(text) + 1;
    void *copy = pool().allocate(
        part, static_cast<uint32_t>(std::min(size, static_cast<size_t>(UINT32_MAX))));
    if (copy != nullptr) {
        std::memcpy(copy, text, size);
    }
    return static_cast<char *>(copy);
}

int palMemPartFree(PalMemPartId part, void *block) {
    if (block == nullptr || pool().release(block)) {
        return 0;
    }
    ADD_FAILURE() << "palMemPartFree(" << part << ", " << block << "): no live block";
    return -1;
}

int palMemPartDestroy(PalMemPartId part) {
    return pool().destroy(part) ? 0 : -1;
}
