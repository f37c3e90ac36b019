/**
 * @file
 * The allocator inside of a partition: a best-fit pool that lives in one stretch of memory.
 */
#ifndef LANYARD_PLATFORM_POOL_H
#define LANYARD_PLATFORM_POOL_H

#include <cstddef>

namespace port {

/**
 * A pool. It keeps all its bookkeeping within its memory, does not lock and trusts its caller:
 * only blocks that are live may be passed in.
 */
class Pool {
  public:
    /**
     * Every block starts at a multiple of this: what pointers, 64-bit numbers and double need. That
     * of long double would cost small blocks a third more.
     */
    static constexpr std::size_t alignment = 8;

    Pool() noexcept = default;

    /**
     * Lays out a pool in `size` bytes at `memory`, which the pool does not own.
     * @return false when they are too few.
     */
    bool create(std::byte *memory, std::size_t size) noexcept;

    /** @return `size` bytes or more, or null when there is no stretch that long. */
    std::byte *allocate(std::size_t size) noexcept;

    void release(std::byte *block) noexcept;

    /** @return how many bytes a live block may hold: what was asked for, rounded up. */
    [[nodiscard]] std::size_t capacity(const std::byte *block) const noexcept;

  private:
    void *algorithm_ = nullptr;
};

}  // namespace port

#endif
