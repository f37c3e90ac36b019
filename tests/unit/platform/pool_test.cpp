// The allocator inside of a partition, against a model, with a look at all of its memory.
#include "platform/pool.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <gtest/gtest.h>
#include <iterator>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

namespace lanyard::port {

// Goes through a pool from its first block to its last.
class PoolWalk {
  public:
    explicit PoolWalk(Pool &pool) : pool_(pool) {
        walkKept();
        walkBins();
        walkBlocks();
    }

    bool sound() const { return faults_.empty(); }
    const std::string &faults() const { return faults_; }
    const std::set<uint32_t> &live() const { return live_; }
    uint32_t longestFree() const { return longestFree_; }

  private:
    void expect(bool holds, const char *what, uint32_t block) {
        if (!holds) {
            faults_ += std::string(what) + " at unit " + std::to_string(block) + "\n";
        }
    }

    void walkKept() {
        for (uint32_t length = 0; length < Pool::kLong; ++length) {
            for (uint32_t at = pool_.kept_[length]; at != 0; at = pool_.next(at)) {
                expect(pool_.length(at) == length, "kept for another length", at);
                expect(kept_.insert(at).second, "kept twice", at);
            }
        }
    }

    void walkBins() {
        for (uint32_t bin = 0; bin < pool_.first_.size(); ++bin) {
            const uint32_t row = bin / Pool::kBinsInRow;
            const uint32_t bits = pool_.filledBins_[row];
            const bool marked = (bits >> bin % Pool::kBinsInRow & 1U) != 0;
            expect(marked == (pool_.first_[bin] != 0), "wrong bit for a bin", bin);
            expect((pool_.filledRows_ >> row & 1U) == (bits != 0 ? 1U : 0U), "wrong bit", row);
            uint32_t before = 0;
            for (uint32_t at = pool_.first_[bin]; at != 0; at = pool_.next(at)) {
                expect(Pool::binOf(pool_.length(at)) == bin, "in another's bin", at);
                expect(pool_.previous(at) == before, "wrong way back", at);
                expect(free_.insert(at).second, "free twice", at);
                before = at;
            }
        }
    }

    void walkBlocks() {
        bool beforeFree = false;
        uint32_t at = 1;
        size_t free = 0;
        for (; pool_.length(at) != 0; at += pool_.length(at)) {
            const bool isFree = (pool_.head(at) & Pool::kFree) != 0;
            expect(pool_.length(at) >= Pool::kMinLength, "too short", at);
            expect(((pool_.head(at) & Pool::kBeforeFree) != 0) == beforeFree, "wrong flag", at);
            expect(!(isFree && beforeFree), "two free ones in a row", at);
            expect(isFree == (free_.count(at) != 0), "free in one place only", at);
            if (isFree) {
                ++free;
                longestFree_ = std::max(longestFree_, pool_.length(at));
                expect(pool_.lengthBefore(at + pool_.length(at)) == pool_.length(at),
                       "no length at the end", at);
            } else if (kept_.erase(at) == 0) {
                live_.insert(at);
            }
            beforeFree = isFree;
        }
        expect(((pool_.head(at) & Pool::kBeforeFree) != 0) == beforeFree, "wrong flag", at);
        expect(free == free_.size(), "lost a free one", at);
        expect(kept_.empty(), "kept, and no block", at);
    }

    Pool &pool_;
    std::string faults_;
    std::set<uint32_t> live_, kept_, free_;
    uint32_t longestFree_ = 0;
};

}  // namespace lanyard::port

namespace lanyard::test::pool_test {
namespace {

using port::Pool;
using port::PoolWalk;

// A pool, what it should hold, and a mark on each byte that it gave away.
class Model {
  public:
    explicit Model(size_t size) : memory_(size) {
        EXPECT_TRUE(pool_.create(memory_.data(), memory_.size()));
    }

    bool allocate(size_t size) {
        const uint32_t unit = pool_.allocate(size);
        if (unit == 0) {
            return false;
        }
        EXPECT_GE(pool_.capacity(unit), size);
        EXPECT_LE(bytesOf(unit) + pool_.capacity(unit), memory_.data() + memory_.size());
        const Block block{pool_.capacity(unit), static_cast<int>(++marks_ % 251 + 1)};
        std::memset(bytesOf(unit), block.mark, block.size);
        EXPECT_TRUE(blocks_.emplace(unit, block).second);
        return true;
    }

    void release(size_t index) {
        const auto at = std::next(blocks_.begin(), static_cast<ptrdiff_t>(index));
        const auto [unit, block] = *at;
        const std::byte *bytes = bytesOf(unit);
        EXPECT_TRUE(std::all_of(bytes, bytes + block.size,
                                [mark = block.mark](std::byte b) { return std::byte(mark) == b; }));
        pool_.release(unit);
        blocks_.erase(at);
    }

    void releaseAll() {
        while (!blocks_.empty()) {
            release(0);
        }
    }

    // Returns the longest free stretch.
    uint32_t check() {
        const PoolWalk walk(pool_);
        EXPECT_TRUE(walk.sound()) << walk.faults();
        std::set<uint32_t> mine;
        for (const auto &[unit, block] : blocks_) {
            mine.insert(unit);
        }
        EXPECT_EQ(mine, walk.live());
        return walk.longestFree();
    }

    size_t count() const { return blocks_.size(); }

  private:
    struct Block {
        size_t size;
        int mark;
    };

    std::byte *bytesOf(uint32_t unit) { return pool_.start() + unit * Pool::kAlignment; }

    std::vector<std::byte> memory_;
    Pool pool_;
    std::map<uint32_t, Block> blocks_;
    unsigned marks_ = 0;
};

size_t unitsFor(size_t size) {
    return std::max<size_t>(2, (size + 4 + Pool::kAlignment - 1) / Pool::kAlignment);
}

// Small blocks above all, as the library has them, and some of each other order.
size_t randomSize(std::minstd_rand &random, size_t most) {
    size_t size = random() % most;
    for (auto halves = random() % 8; halves > 0; --halves) {
        size /= 2;
    }
    return size;
}

TEST(Pool, RandomUse_KeepsItsMemorySoundAndRefusesNothingThatFits) {
    for (const size_t size : {64U, 1000U, 10'000U, 102'400U, 1'000'000U}) {
        for (unsigned seed = 1; seed <= 2; ++seed) {
            SCOPED_TRACE(testing::Message() << size << " bytes, seed " << seed);
            std::minstd_rand random(seed);
            Model model(size);
            const uint32_t whole = model.check();
            int refused = 0;
            for (int step = 0; step < 2000 && !testing::Test::HasFailure(); ++step) {
                // In turns it is filled and emptied.
                const bool fills = step / 400 % 2 == 0;
                if (model.count() == 0 || random() % 8 < (fills ? 6U : 2U)) {
                    const size_t wanted = randomSize(random, size / 2 + 1);
                    if (!model.allocate(wanted)) {
                        ++refused;
                        EXPECT_LT(model.check(), unitsFor(wanted)) << "refused what fits";
                    }
                } else {
                    model.release(random() % model.count());
                }
                if (step % 64 == 0) {
                    model.check();
                }
            }
            EXPECT_LT(0, refused) << "was never full";

            model.releaseAll();
            EXPECT_FALSE(model.allocate(size));
            EXPECT_EQ(whole, model.check()) << "all of it is one stretch again";
        }
    }
}

TEST(Pool, StretchOfExactlyThatLength_FoundAmongShorterOnesOfItsBin) {
    // Lengths of 64 and 65 units share a bin, and the shorter one was freed last.
    Model model(160 * 8);
    for (const size_t size : {65U * 8 - 4, 12U, 64U * 8 - 4, 12U}) {
        ASSERT_TRUE(model.allocate(size));
    }
    while (model.allocate(0)) {
    }
    model.release(0);
    model.release(1);
    EXPECT_TRUE(model.allocate(65 * 8 - 4));
    EXPECT_TRUE(model.allocate(64 * 8 - 4));
    EXPECT_FALSE(model.allocate(0));
    model.check();
}

TEST(Pool, RestTooShortForABlock_StaysWithTheBlock) {
    Model model(6 * 8);  // five units for blocks
    ASSERT_TRUE(model.allocate(4 * 8 - 4));
    EXPECT_FALSE(model.allocate(0));
    model.release(0);
    EXPECT_TRUE(model.allocate(5 * 8 - 4));
    model.check();
}

TEST(Pool, RestThatIsTheShortestBlock_Used) {
    Model model(6 * 8);
    ASSERT_TRUE(model.allocate(3 * 8 - 4));
    EXPECT_TRUE(model.allocate(12));
    model.check();
}

TEST(Pool, ShortBlock_NextOfItsLengthIsTheSame) {
    std::vector<std::byte> memory(4096);
    Pool pool;
    ASSERT_TRUE(pool.create(memory.data(), memory.size()));
    const uint32_t first = pool.allocate(312);
    const uint32_t second = pool.allocate(312);
    ASSERT_NE(0U, pool.allocate(16));
    pool.release(first);
    pool.release(second);
    EXPECT_EQ(second, pool.allocate(310));
    EXPECT_EQ(first, pool.allocate(312));
}

TEST(Pool, TooLittleMemory_Refused) {
    alignas(8) std::array<std::byte, 24> memory{};
    Pool pool;
    EXPECT_FALSE(pool.create(memory.data(), 0));
    EXPECT_FALSE(pool.create(memory.data(), 23));
    EXPECT_FALSE(pool.create(memory.data() + 1, 23));
    ASSERT_TRUE(pool.create(memory.data(), 24));
    EXPECT_NE(0U, pool.allocate(12));
    EXPECT_EQ(0U, pool.allocate(0));
}

}  // namespace
}  // namespace lanyard::test::pool_test
