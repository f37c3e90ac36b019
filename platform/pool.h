// The allocator inside of a partition: a best-fit pool that lives in one stretch of memory.
#ifndef LANYARD_PLATFORM_POOL_H
#define LANYARD_PLATFORM_POOL_H

#include <cstddef>

namespace lanyard::port {

// A pool. It keeps all its bookkeeping within its memory, does not lock and trusts its caller:
// only blocks that are live may be passed in.
class Pool {
  public:
    // Every block starts at a multiple of this: what pointers, 64-bit numbers and double need. That
    // of long double would cost small blocks a third more.
    static constexpr size_t kAlignment = 8;

    Pool() = default;

    // Lays out a pool in `size` bytes at `memory`, which the pool does not own.
    // Returns false when they are too few.
    [[nodiscard]] bool create(std::byte *memory, size_t size);

    // Returns `size` bytes or more, or null when there is no stretch that long.
    [[nodiscard]] std::byte *allocate(size_t size);

    void release(std::byte *block);

    // Returns how many bytes a live block may hold: what was asked for, rounded up.
    size_t capacity(const std::byte *block) const;

  private:
    void *algorithm_ = nullptr;
};

}  // namespace lanyard::port

#endif
