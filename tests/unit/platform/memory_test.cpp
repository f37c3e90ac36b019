#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <gtest/gtest.h>
#include <memory>
#include <random>
#include <thread>
#include <vector>

#include <palcore.h>

namespace {

/** A partition for one test. */
class Partition {
  public:
    explicit Partition(uint32_t size, void *memory = nullptr)
        : id_(palMemPartCreate("test", memory, size)) {}
    ~Partition() { palMemPartDestroy(id_); }
    Partition(const Partition &) = delete;
    Partition &operator=(const Partition &) = delete;
    Partition(Partition &&) = delete;
    Partition &operator=(Partition &&) = delete;

    [[nodiscard]] PalMemPartId id() const { return id_; }
    [[nodiscard]] void *allocate(uint32_t size) const { return palMemPartAlloc(id_, size); }

    /** Allocates blocks of one size until there is no room. */
    [[nodiscard]] std::vector<void *> allocateAll(uint32_t size) const {
        std::vector<void *> blocks;
        while (void *block = allocate(size)) {
            blocks.push_back(block);
        }
        return blocks;
    }

  private:
    PalMemPartId id_;
};

TEST(Memory, APartitionIsBoundedAndNeverFallsBackToTheHeap) {
    constexpr uint32_t size = 4096;
    const Partition partition(size);
    const std::vector<void *> blocks = partition.allocateAll(64);
    EXPECT_GT(blocks.size(), 40U);
    EXPECT_LE(blocks.size() * 64, size);
    EXPECT_EQ(partition.allocate(64), nullptr);
}

TEST(Memory, BlocksDoNotOverlapAndAreAligned) {
    const Partition partition(8192);
    std::vector<void *> blocks;
    uint32_t size = 1;
    while (void *block = partition.allocate(size)) {
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(block) % 8, 0U);
        std::memset(block, static_cast<int>(size), size);
        blocks.push_back(block);
        ++size;
    }
    for (std::size_t i = 0; i < blocks.size(); ++i) {
        const auto *bytes = static_cast<const unsigned char *>(blocks[i]);
        for (std::size_t at = 0; at <= i; ++at) {
            ASSERT_EQ(bytes[at], static_cast<unsigned char>(i + 1));
        }
    }
}

TEST(Memory, HoldsTheRecordsOfARelayWith220Supplicants) {
    // docs/porting.md names these figures: a partition of 100 KiB holds 228 times a queue entry,
    // a State pair and an identity, and not one more. The relay itself needs some of it, too.
    const Partition partition(102400);
    int records = 0;
    while (partition.allocate(72) != nullptr && partition.allocate(320) != nullptr &&
           partition.allocate(16) != nullptr) {
        ++records;
    }
    EXPECT_EQ(records, 228);
}

TEST(Memory, FreedMemoryIsJoinedAndUsedAgain) {
    const Partition partition(65536);
    const std::vector<void *> before = partition.allocateAll(100);
    for (std::size_t i = 0; i < before.size(); i += 2) {
        EXPECT_EQ(palMemPartFree(partition.id(), before[i]), 0);
    }
    for (std::size_t i = 1; i < before.size(); i += 2) {
        EXPECT_EQ(palMemPartFree(partition.id(), before[i]), 0);
    }
    void *large = partition.allocate(60000);
    ASSERT_NE(large, nullptr);
    EXPECT_EQ(palMemPartFree(partition.id(), large), 0);
    EXPECT_EQ(partition.allocateAll(100).size(), before.size());
}

TEST(Memory, UsesTheMemoryThatItIsGiven) {
    for (std::size_t offset = 0; offset < 16; ++offset) {
        std::vector<std::byte> memory(4096 + 16, std::byte{0x5a});
        std::byte *start = memory.data() + offset;
        {
            const Partition partition(4000, start);
            ASSERT_NE(partition.id(), 0U);
            for (void *block : partition.allocateAll(48)) {
                EXPECT_GE(static_cast<std::byte *>(block), start);
                EXPECT_LE(static_cast<std::byte *>(block) + 48, start + 4000);
                std::memset(block, 0, 48);
            }
        }
        // Before and behind it nothing was touched, and the whole is the caller's again.
        for (std::size_t i = 0; i < memory.size(); ++i) {
            if (i < offset || i >= offset + 4000) {
                ASSERT_EQ(memory[i], std::byte{0x5a});
            }
        }
        std::memset(memory.data(), 1, memory.size());
    }
}

TEST(Memory, RefusesASizeThatIsTooSmallForAPool) {
    EXPECT_EQ(palMemPartCreate("none", nullptr, 0), 0U);
    EXPECT_EQ(palMemPartCreate("small", nullptr, 16), 0U);
    std::array<std::byte, 16> memory{};
    EXPECT_EQ(palMemPartCreate("small", memory.data(), 16), 0U);
}

TEST(Memory, EverySizeThatIsAcceptedWorks) {
    for (uint32_t size = 1; size < 400; ++size) {
        const Partition partition(size);
        if (partition.id() != 0) {
            for (void *block : partition.allocateAll(16)) {
                std::memset(block, 1, 16);
            }
        }
    }
}

TEST(Memory, NeedsNoName) {
    const PalMemPartId id = palMemPartCreate(nullptr, nullptr, 1024);
    EXPECT_NE(id, 0U);
    EXPECT_EQ(palMemPartDestroy(id), 0);
}

TEST(Memory, ASizeWithItsTopBitSetFails) {
    const Partition partition(4096);
    for (const uint32_t size : {0x80000000U, 0x80000001U, 0xfffffff0U, 0xffffffffU}) {
        EXPECT_EQ(partition.allocate(size), nullptr);
        EXPECT_EQ(palMemPartAlloc(0, size), nullptr);
    }
    EXPECT_EQ(partition.allocate(0x7fffffffU), nullptr);
    EXPECT_NE(partition.allocate(16), nullptr);
}

TEST(Memory, SizeZeroYieldsABlockOfItsOwn) {
    const Partition partition(4096);
    for (const PalMemPartId id : {PalMemPartId{0}, partition.id()}) {
        void *first = palMemPartAlloc(id, 0);
        void *second = palMemPartAlloc(id, 0);
        ASSERT_NE(first, nullptr);
        ASSERT_NE(second, nullptr);
        EXPECT_NE(first, second);
        EXPECT_EQ(palMemPartFree(id, first), 0);
        EXPECT_EQ(palMemPartFree(id, second), 0);
    }
}

TEST(Memory, PartitionZeroIsTheHeap) {
    void *block = palMemPartAlloc(0, 1U << 20);
    ASSERT_NE(block, nullptr);
    std::memset(block, 1, 1U << 20);
    EXPECT_EQ(palMemPartFree(0, block), 0);
}

TEST(Memory, ABlockReturnsToItsOwnPoolWhateverIdIsGiven) {
    const Partition one(4096);
    const Partition two(4096);
    const std::size_t roomInOne = one.allocateAll(64).size();
    const std::vector<void *> inTwo = two.allocateAll(64);
    void *onHeap = palMemPartAlloc(0, 64);

    EXPECT_EQ(palMemPartFree(one.id(), onHeap), 0);
    EXPECT_EQ(palMemPartFree(one.id(), inTwo[0]), 0);
    EXPECT_EQ(palMemPartFree(0, inTwo[1]), 0);
    EXPECT_EQ(palMemPartFree(0xfffffff0U, inTwo[2]), 0);
    EXPECT_EQ(one.allocate(64), nullptr) << roomInOne;
    EXPECT_EQ(two.allocateAll(64).size(), 3U);
}

TEST(Memory, IgnoresNull) {
    const Partition partition(4096);
    EXPECT_EQ(palMemPartFree(partition.id(), nullptr), 0);
    EXPECT_EQ(palMemPartFree(0, nullptr), 0);
}

TEST(Memory, RefusesADoubleFree) {
    const Partition partition(4096);
    for (const PalMemPartId id : {PalMemPartId{0}, partition.id()}) {
        void *block = palMemPartAlloc(id, 100);
        EXPECT_EQ(palMemPartFree(id, block), 0);
        // The pointer is compared with what is live, never followed.
        // NOLINTNEXTLINE(clang-analyzer-unix.Malloc)
        EXPECT_EQ(palMemPartFree(id, block), -1);
    }
}

TEST(Memory, RefusesWhatIsNoBlock) {
    const Partition partition(4096);
    auto *block = static_cast<std::byte *>(partition.allocate(100));
    const std::array<std::byte, 100> before = [&] {
        std::memset(block, 0x33, 100);
        std::array<std::byte, 100> copy{};
        std::memcpy(copy.data(), block, copy.size());
        return copy;
    }();
    for (std::size_t inside = 1; inside < 128; ++inside) {
        EXPECT_EQ(palMemPartFree(partition.id(), block + inside), -1);
    }
    EXPECT_EQ(std::memcmp(before.data(), block, before.size()), 0);

    std::byte foreign{};
    EXPECT_EQ(palMemPartFree(partition.id(), &foreign), -1);
    const auto owned = std::make_unique<int>(1);
    EXPECT_EQ(palMemPartFree(0, owned.get()), -1);
    // Not even mapped. NOLINTNEXTLINE(performance-no-int-to-ptr)
    EXPECT_EQ(palMemPartFree(0, reinterpret_cast<void *>(std::uintptr_t{64})), -1);
    EXPECT_EQ(palMemPartFree(partition.id(), block), 0);
}

TEST(Memory, DestroyingReleasesAllBlocksAtOnce) {
    const PalMemPartId id = palMemPartCreate("gone", nullptr, 4096);
    void *first = palMemPartAlloc(id, 100);
    ASSERT_NE(palMemPartAlloc(id, 200), nullptr);
    EXPECT_EQ(palMemPartDestroy(id), 0);
    EXPECT_EQ(palMemPartFree(id, first), -1);
    EXPECT_EQ(palMemPartAlloc(id, 1), nullptr);
    EXPECT_EQ(palMemPartDestroy(id), -1);

    const Partition next(4096);
    EXPECT_NE(next.id(), id);
}

TEST(Memory, KnowsNoUnknownPartition) {
    EXPECT_EQ(palMemPartAlloc(0x7ffffff0U, 1), nullptr);
    EXPECT_EQ(palMemPartStrDup(0x7ffffff0U, "text"), nullptr);
    EXPECT_EQ(palMemPartDestroy(0x7ffffff0U), -1);
    EXPECT_EQ(palMemPartDestroy(0), -1);
}

TEST(Memory, CopiesStrings) {
    const Partition partition(1024);
    for (const PalMemPartId id : {PalMemPartId{0}, partition.id()}) {
        for (const char *text : {"", "secret"}) {
            char *copy = palMemPartStrDup(id, text);
            ASSERT_NE(copy, nullptr);
            EXPECT_NE(copy, text);
            EXPECT_STREQ(copy, text);
            EXPECT_EQ(palMemPartFree(id, copy), 0);
        }
        EXPECT_EQ(palMemPartStrDup(id, nullptr), nullptr);
    }
    const std::string large(2048, 'x');
    EXPECT_EQ(palMemPartStrDup(partition.id(), large.c_str()), nullptr);
}

TEST(Memory, ThreadsShareAPartition) {
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
                    const std::size_t at = random() % mine.size();
                    const auto [block, length] = mine[at];
                    failures += block[0] == t && block[length - 1] == t ? 0 : 1;
                    failures += palMemPartFree(partition.id(), block) == 0 ? 0 : 1;
                    mine.erase(mine.begin() + static_cast<std::ptrdiff_t>(at));
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
    EXPECT_EQ(failures, 0);
    EXPECT_NE(partition.allocate(64000), nullptr) << "something was not given back";
}

TEST(Memory, ThreadsCreateAndDestroyPartitions) {
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
    EXPECT_EQ(failures, 0);
}

#ifdef __SANITIZE_ADDRESS__
/** Volatile, so that the compiler neither warns of the fault nor leaves it out. */
using Byte = volatile unsigned char;

TEST(MemoryDeathTest, AddressSanitizerSeesOverruns) {
    const Partition partition(4096);
    for (const uint32_t size : {0U, 1U, 16U, 72U, 320U}) {
        auto *block = static_cast<Byte *>(partition.allocate(size));
        ASSERT_NE(partition.allocate(16), nullptr);
        EXPECT_DEATH(block[size] = 1, "use-after-poison");
    }
}

TEST(MemoryDeathTest, AddressSanitizerSeesUseAfterFree) {
    const Partition partition(4096);
    auto *block = static_cast<Byte *>(partition.allocate(72));
    ASSERT_EQ(palMemPartFree(partition.id(), const_cast<unsigned char *>(block)), 0);
    EXPECT_DEATH(block[0] = 1, "use-after-poison");
}
#endif

}  // namespace
