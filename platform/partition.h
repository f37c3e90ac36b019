// One memory partition: a bounded pool that knows its live blocks.
#ifndef LANYARD_PLATFORM_PARTITION_H
#define LANYARD_PLATFORM_PARTITION_H

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>

#include "platform/pool.h"

namespace lanyard::port {

struct HeapDeleter {
    void operator()(void *memory) const { std::free(memory); }
};
template <typename T>
using HeapOwner = std::unique_ptr<T, HeapDeleter>;

// A pool and, outside of its memory, a map with one bit for each unit where a block can start. A pointer
// is freed only when its bit is set, so a double free, a foreign pointer or one into the middle of a
// block is refused without a look at what it points to. Does not lock.
//
// Under AddressSanitizer every byte of the pool is poisoned that no live block has asked for: free
// blocks, the rounding after a block and the pool's own words.
class Partition {
  public:
    // Returns null when there is no memory, or too little of it. `memory` null: takes its own.
    static std::unique_ptr<Partition> create(void *memory, size_t size);

    Partition() = default;
    Partition(const Partition &) = delete;
    Partition &operator=(const Partition &) = delete;
    Partition(Partition &&) = delete;
    Partition &operator=(Partition &&) = delete;
    ~Partition();

    void *allocate(size_t size);

    // Returns false, and has done nothing, when this is no live block of this partition.
    bool release(void *block);

  private:
    // The live blocks: a bit for each unit of the pool, set where a block starts.
    uint32_t &bitsOf(size_t unit) { return live_.get()[unit / 32]; }
    static uint32_t bitOf(size_t unit) { return 1U << unit % 32; }

    HeapOwner<std::byte> own_;
    HeapOwner<uint32_t> live_;
    std::byte *memory_ = nullptr;
    size_t size_ = 0;
    Pool pool_;
};

}  // namespace lanyard::port

#endif
