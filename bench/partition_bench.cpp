// Blocks of the library's partition: what every pair, packet and record of the library pays for.
#include <array>
#include <benchmark/benchmark.h>
#include <random>

#include <palcore.h>

namespace {

class Partition {
  public:
    Partition() : id_(palMemPartCreate("bench", nullptr, 102400)) {}
    Partition(const Partition &) = delete;
    Partition &operator=(const Partition &) = delete;
    ~Partition() { palMemPartDestroy(id_); }

    void *allocate(uint32_t size) const { return palMemPartAlloc(id_, size); }
    void release(void *block) const { palMemPartFree(id_, block); }

  private:
    PalMemPartId id_;
};

void blockTakenAndFreed(benchmark::State &state) {
    const Partition partition;
    for ([[maybe_unused]] auto _ : state) {
        void *block = partition.allocate(static_cast<uint32_t>(state.range(0)));
        benchmark::DoNotOptimize(block);
        partition.release(block);
    }
}
BENCHMARK(blockTakenAndFreed)->Arg(16)->Arg(72)->Arg(312)->Arg(4096);

// As one login has them: the pairs of request and reply, and what is worked on beside them.
void blocksOfALogin(benchmark::State &state) {
    constexpr std::array<uint32_t, 12> kSizes{80, 312, 312, 312, 312, 312,
                                              16, 37,  312, 312, 312, 26};
    const Partition partition;
    std::array<void *, kSizes.size()> blocks{};
    for ([[maybe_unused]] auto _ : state) {
        for (size_t i = 0; i < kSizes.size(); ++i) {
            blocks[i] = partition.allocate(kSizes[i]);
        }
        for (void *block : blocks) {
            partition.release(block);
        }
    }
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(kSizes.size()));
}
BENCHMARK(blocksOfALogin);

// A partition in use: free stretches of many lengths between the blocks of 150 conversations.
void blocksAmongOthers(benchmark::State &state) {
    const Partition partition;
    std::minstd_rand random;
    std::array<void *, 256> blocks{};
    for ([[maybe_unused]] auto _ : state) {
        void *&block = blocks[random() % blocks.size()];
        partition.release(block);
        block = partition.allocate(static_cast<uint32_t>(random() % 600));
    }
}
BENCHMARK(blocksAmongOthers);

}  // namespace
