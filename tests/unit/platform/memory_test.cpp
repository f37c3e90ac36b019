// Memory partitions: bounds, reuse, and what is no block.
#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <gtest/gtest.h>
#include <memory>
#include <random>
#include <set>
#include <thread>
#include <vector>

#include <palcore.h>

namespace lanyard::test::memory_test {
namespace {

// A partition for one test.
class Partition {
  public:
    explicit Partition(uint32_t size, void *memory = nullptr)
        : id_(palMemPartCreate("test", memory, size)) {}
    ~Partition() { palMemPartDestroy(id_); }
    Partition(const Partition &) = delete;
    Partition &operator=(const Partition &) = delete;
    Partition(Partition &&) = delete;
    Partition &operator=(Partition &&) = delete;

    PalMemPartId id() const { return id_; }
    void *allocate(uint32_t size) const { return palMemPartAlloc(id_, size); }

    // Allocates blocks of one size until there is no room.
    std::vector<void *> allocateAll(uint32_t size) const {
        std::vector<void *> blocks;
        while (void *block = allocate(size)) {
            blocks.push_back(block);
        }
        return blocks;
    }

  private:
    PalMemPartId id_;
};

TEST(Memory, FullPartition_DoesNotFallBackToTheHeap) {
    constexpr uint32_t kSize = 4096;
    const Partition partition(kSize);
    const std::vector<void *> blocks = partition.allocateAll(64);
    EXPECT_GT(blocks.size(), 40U);
    EXPECT_LE(blocks.size() * 64, kSize);
    EXPECT_EQ(nullptr, partition.allocate(64));
}

TEST(Memory, Blocks_AlignedAndApart) {
    const Partition partition(8192);
    std::vector<void *> blocks;
    uint32_t size = 1;
    while (void *block = partition.allocate(size)) {
        EXPECT_EQ(0U, reinterpret_cast<uintptr_t>(block) % 8);
        std::memset(block, static_cast<int>(size), size);
        blocks.push_back(block);
        ++size;
    }
    for (size_t i = 0; i < blocks.size(); ++i) {
        const auto *bytes = static_cast<const unsigned char *>(blocks[i]);
        for (size_t at = 0; at <= i; ++at) {
            ASSERT_EQ(static_cast<unsigned char>(i + 1), bytes[at]);
        }
    }
}

TEST(Memory, RecordsOfARelayWith220Supplicants_Fit) {
    // docs/porting.md names these figures: a partition of 100 KiB holds 237 times a queue entry,
    // a State pair and an identity, and not one more. The relay itself needs some of it, too.
    const Partition partition(102400);
    int records = 0;
    while (partition.allocate(72) != nullptr && partition.allocate(320) != nullptr &&
           partition.allocate(16) != nullptr) {
        ++records;
    }
    EXPECT_EQ(237, records);
}

TEST(Memory, FreedBlocks_JoinedAndUsedAgain) {
    const Partition partition(65536);
    const std::vector<void *> before = partition.allocateAll(100);
    for (size_t i = 0; i < before.size(); i += 2) {
        EXPECT_EQ(0, palMemPartFree(partition.id(), before[i]));
    }
    for (size_t i = 1; i < before.size(); i += 2) {
        EXPECT_EQ(0, palMemPartFree(partition.id(), before[i]));
    }
    void *large = partition.allocate(60000);
    ASSERT_NE(nullptr, large);
    EXPECT_EQ(0, palMemPartFree(partition.id(), large));
    EXPECT_EQ(before.size(), partition.allocateAll(100).size());
}

TEST(Memory, ShortFreedBlocks_NeverInTheWayOfALongOne) {
    const Partition partition(65536);
    for (const uint32_t size : {8U, 30U, 100U, 312U}) {
        for (void *block : partition.allocateAll(size)) {
            EXPECT_EQ(0, palMemPartFree(partition.id(), block));
        }
    }
    EXPECT_NE(nullptr, partition.allocate(65516));
}

TEST(Memory, MemoryOfTheCaller_Used) {
    for (size_t offset = 0; offset < 16; ++offset) {
        std::vector<std::byte> memory(4096 + 16, std::byte{0x5a});
        std::byte *start = memory.data() + offset;
        {
            const Partition partition(4000, start);
            ASSERT_NE(0U, partition.id());
            for (void *block : partition.allocateAll(48)) {
                EXPECT_GE(static_cast<std::byte *>(block), start);
                EXPECT_LE(static_cast<std::byte *>(block) + 48, start + 4000);
                std::memset(block, 0, 48);
            }
        }
        // Before and after it nothing was touched, and the whole is the caller's again.
        for (size_t i = 0; i < memory.size(); ++i) {
            if (i < offset || i >= offset + 4000) {
                ASSERT_EQ(std::byte{0x5a}, memory[i]);
            }
        }
        std::memset(memory.data(), 1, memory.size());
    }
}

TEST(Memory, SizeTooSmallForAPool_Refused) {
    EXPECT_EQ(0U, palMemPartCreate("none", nullptr, 0));
    EXPECT_EQ(0U, palMemPartCreate("small", nullptr, 16));
    std::array<std::byte, 16> memory{};
    EXPECT_EQ(0U, palMemPartCreate("small", memory.data(), 16));
}

TEST(Memory, EveryAcceptedSize_Works) {
    for (uint32_t size = 1; size < 400; ++size) {
        const Partition partition(size);
        if (partition.id() != 0) {
            for (void *block : partition.allocateAll(16)) {
                std::memset(block, 1, 16);
            }
        }
    }
}

TEST(Memory, NoName_Created) {
    const PalMemPartId id = palMemPartCreate(nullptr, nullptr, 1024);
    EXPECT_NE(0U, id);
    EXPECT_EQ(0, palMemPartDestroy(id));
}

TEST(Memory, SizeWithItsTopBitSet_Fails) {
    const Partition partition(4096);
    for (const uint32_t size : {0x80000000U, 0x80000001U, 0xfffffff0U, 0xffffffffU}) {
        EXPECT_EQ(nullptr, partition.allocate(size));
        EXPECT_EQ(nullptr, palMemPartAlloc(0, size));
    }
    EXPECT_EQ(nullptr, partition.allocate(0x7fffffffU));
    EXPECT_NE(nullptr, partition.allocate(16));
}

TEST(Memory, SizeZero_ReturnsABlockOfItsOwn) {
    const Partition partition(4096);
    for (const PalMemPartId id : {PalMemPartId{0}, partition.id()}) {
        void *first = palMemPartAlloc(id, 0);
        void *second = palMemPartAlloc(id, 0);
        ASSERT_NE(nullptr, first);
        ASSERT_NE(nullptr, second);
        EXPECT_NE(second, first);
        EXPECT_EQ(0, palMemPartFree(id, first));
        EXPECT_EQ(0, palMemPartFree(id, second));
    }
}

TEST(Memory, PartitionZero_IsTheHeap) {
    void *block = palMemPartAlloc(0, 1U << 20);
    ASSERT_NE(nullptr, block);
    std::memset(block, 1, 1U << 20);
    EXPECT_EQ(0, palMemPartFree(0, block));
}

TEST(Memory, FreeWithAnotherId_ReturnsTheBlockToItsOwnPool) {
    const Partition one(4096);
    const Partition two(4096);
    const size_t roomInOne = one.allocateAll(64).size();
    const std::vector<void *> inTwo = two.allocateAll(64);
    void *onHeap = palMemPartAlloc(0, 64);

    EXPECT_EQ(0, palMemPartFree(one.id(), onHeap));
    EXPECT_EQ(0, palMemPartFree(one.id(), inTwo[0]));
    EXPECT_EQ(0, palMemPartFree(0, inTwo[1]));
    EXPECT_EQ(0, palMemPartFree(0xfffffff0U, inTwo[2]));
    EXPECT_EQ(nullptr, one.allocate(64)) << roomInOne;
    EXPECT_EQ(3U, two.allocateAll(64).size());
}

TEST(Memory, FreeOfNull_Ignored) {
    const Partition partition(4096);
    EXPECT_EQ(0, palMemPartFree(partition.id(), nullptr));
    EXPECT_EQ(0, palMemPartFree(0, nullptr));
}

TEST(Memory, DoubleFree_Refused) {
    const Partition partition(4096);
    for (const PalMemPartId id : {PalMemPartId{0}, partition.id()}) {
        void *block = palMemPartAlloc(id, 100);
        EXPECT_EQ(0, palMemPartFree(id, block));
        // The pointer is compared with what is live, never followed.
        // NOLINTNEXTLINE(clang-analyzer-unix.Malloc)
        EXPECT_EQ(-1, palMemPartFree(id, block));
    }
}

TEST(Memory, FreeOfWhatIsNoBlock_Refused) {
    const Partition partition(4096);
    auto *block = static_cast<std::byte *>(partition.allocate(100));
    const std::array<std::byte, 100> before = [&] {
        std::memset(block, 0x33, 100);
        std::array<std::byte, 100> copy{};
        std::memcpy(copy.data(), block, copy.size());
        return copy;
    }();
    for (size_t inside = 1; inside < 128; ++inside) {
        EXPECT_EQ(-1, palMemPartFree(partition.id(), block + inside));
    }
    EXPECT_EQ(0, std::memcmp(before.data(), block, before.size()));

    std::byte foreign{};
    EXPECT_EQ(-1, palMemPartFree(partition.id(), &foreign));
    const auto owned = std::make_unique<int>(1);
    EXPECT_EQ(-1, palMemPartFree(0, owned.get()));
    // Not even mapped. NOLINTNEXTLINE(performance-no-int-to-ptr)
    EXPECT_EQ(-1, palMemPartFree(0, reinterpret_cast<void *>(uintptr_t{64})));
    EXPECT_EQ(0, palMemPartFree(partition.id(), block));
}

TEST(Memory, Destroy_ReleasesAllBlocksAtOnce) {
    const PalMemPartId id = palMemPartCreate("gone", nullptr, 4096);
    void *first = palMemPartAlloc(id, 100);
    ASSERT_NE(nullptr, palMemPartAlloc(id, 200));
    EXPECT_EQ(0, palMemPartDestroy(id));
    EXPECT_EQ(-1, palMemPartFree(id, first));
    EXPECT_EQ(nullptr, palMemPartAlloc(id, 1));
    EXPECT_EQ(-1, palMemPartDestroy(id));

    const Partition next(4096);
    EXPECT_NE(id, next.id());
}

TEST(Memory, PartitionAfterAnother_HasAnIdOfItsOwn) {
    std::set<PalMemPartId> seen;
    PalMemPartId last = 0;
    for (int i = 0; i < 100; ++i) {
        const PalMemPartId id = palMemPartCreate("next", nullptr, 256);
        EXPECT_TRUE(seen.insert(id).second);
        EXPECT_NE(nullptr, palMemPartAlloc(id, 8));
        EXPECT_EQ(nullptr, palMemPartAlloc(last == 0 ? 0x7ffffff0U : last, 8));
        EXPECT_EQ(-1, palMemPartDestroy(last));
        EXPECT_EQ(0, palMemPartDestroy(id));
        last = id;
    }
}

TEST(Memory, ManyPartitions_EachHasItsOwnBlocks) {
    std::vector<std::unique_ptr<Partition>> all;
    std::vector<void *> blocks;
    for (int i = 0; i < 100; ++i) {
        all.push_back(std::make_unique<Partition>(256));
        blocks.push_back(all.back()->allocate(200));
        EXPECT_NE(nullptr, blocks.back());
        EXPECT_EQ(nullptr, all.back()->allocate(200));
    }
    for (size_t i = 0; i < all.size(); ++i) {
        // With the id of another one, or of the heap.
        EXPECT_EQ(0, palMemPartFree(i % 3 == 0 ? 0 : all[i / 2]->id(), blocks[i]));
        EXPECT_EQ(-1, palMemPartFree(all[i]->id(), blocks[i]));
        EXPECT_NE(nullptr, all[i]->allocate(200));
    }
}

TEST(Memory, UnknownPartition_Refused) {
    EXPECT_EQ(nullptr, palMemPartAlloc(0x7ffffff0U, 1));
    EXPECT_EQ(nullptr, palMemPartStrDup(0x7ffffff0U, "text"));
    EXPECT_EQ(-1, palMemPartDestroy(0x7ffffff0U));
    EXPECT_EQ(-1, palMemPartDestroy(0));
}

TEST(Memory, StrDup_Copies) {
    const Partition partition(1024);
    for (const PalMemPartId id : {PalMemPartId{0}, partition.id()}) {
        for (const char *text : {"", "secret"}) {
            char *copy = palMemPartStrDup(id, text);
            ASSERT_NE(nullptr, copy);
            EXPECT_NE(text, copy);
            EXPECT_STREQ(text, copy);
            EXPECT_EQ(0, palMemPartFree(id, copy));
        }
        EXPECT_EQ(nullptr, palMemPartStrDup(id, nullptr));
    }
    const std::string large(2048, 'x');
    EXPECT_EQ(nullptr, palMemPartStrDup(partition.id(), large.c_str()));
}

TEST(Memory, ThreadsOnOnePartition_KeepTheirBlocks) {
    const Partition partition(65536);
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (unsigned t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            std::minstd_rand random(t + 1);
            std::vector<std::pair<unsigned char *, uint32_t>> mine;
            for (int i = 0; i < 5000; ++i) {
                const auto size = static_cast<uint32_t>(random() % 400 + 1);
                const PalMemPartId id = random() % 4 == 0 ? 0 : partition.id();
                if (auto *block = static_cast<unsigned char *>(palMemPartAlloc(id, size))) {
                    std::memset(block, static_cast<int>(t), size);
                    mine.emplace_back(block, size);
                }
                if (mine.size() > 20) {
                    const size_t at = random() % mine.size();
                    const auto [block, length] = mine[at];
                    failures += block[0] == t && block[length - 1] == t ? 0 : 1;
                    failures += palMemPartFree(partition.id(), block) == 0 ? 0 : 1;
                    mine.erase(mine.begin() + static_cast<ptrdiff_t>(at));
                }
            }
            for (const auto &[block, length] : mine) {
                failures += palMemPartFree(0, block) == 0 ? 0 : 1;
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(0, failures);
    EXPECT_NE(nullptr, partition.allocate(64000)) << "something was not given back";
}

TEST(Memory, PartitionDestroyedWhileThreadsUseIt_RefusesThem) {
    constexpr int kRounds = 50;
    std::atomic<PalMemPartId> current{palMemPartCreate("shared", nullptr, 4096)};
    std::vector<std::thread> threads;
    threads.reserve(3);
    for (int t = 0; t < 3; ++t) {
        threads.emplace_back([&] {
            while (current != 0) {
                palMemPartFree(current, palMemPartAlloc(current, 40));
            }
        });
    }
    for (int i = 0; i < kRounds; ++i) {
        const PalMemPartId gone = current;
        current = palMemPartCreate("shared", nullptr, 4096);
        EXPECT_EQ(0, palMemPartDestroy(gone));
        EXPECT_EQ(nullptr, palMemPartAlloc(gone, 40));
    }
    EXPECT_EQ(0, palMemPartDestroy(current.exchange(0)));
    for (std::thread &thread : threads) {
        thread.join();
    }
}

TEST(Memory, ThreadsThatCreateAndDestroy_DoNotDisturbEachOther) {
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 200; ++i) {
                const PalMemPartId id = palMemPartCreate("own", nullptr, 2048);
                failures += id != 0 && palMemPartAlloc(id, 64) != nullptr ? 0 : 1;
                failures += palMemPartDestroy(id) == 0 ? 0 : 1;
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(0, failures);
}

#ifdef __SANITIZE_ADDRESS__
// Volatile, so that the compiler neither warns of the fault nor leaves it out.
using Byte = volatile unsigned char;

TEST(MemoryDeathTest, Overrun_SeenByAddressSanitizer) {
    const Partition partition(4096);
    for (const uint32_t size : {0U, 1U, 16U, 72U, 320U}) {
        auto *block = static_cast<Byte *>(partition.allocate(size));
        ASSERT_NE(nullptr, partition.allocate(16));
        EXPECT_DEATH(block[size] = 1, "use-after-poison");
    }
}

TEST(MemoryDeathTest, UseAfterFree_SeenByAddressSanitizer) {
    const Partition partition(4096);
    auto *block = static_cast<Byte *>(partition.allocate(72));
    ASSERT_EQ(0, palMemPartFree(partition.id(), const_cast<unsigned char *>(block)));
    EXPECT_DEATH(block[0] = 1, "use-after-poison");
}
#endif

}  // namespace
}  // namespace lanyard::test::memory_test
