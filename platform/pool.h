// The allocator inside of a partition: a pool in one stretch of memory, where everything takes constant time
// until it is full.
#ifndef LANYARD_PLATFORM_POOL_H
#define LANYARD_PLATFORM_POOL_H

#include <array>
#include <cstddef>
#include <cstdint>

namespace lanyard::port {

// A pool. It keeps what it knows of a block within its memory, does not lock and trusts its caller:
// only blocks that are live may be passed in.
//
// A short block that is freed is kept as it is, for the next one of its length. All others become one with
// their free neighbours; blocks of similar length are in one list, a bin, and bitmaps tell which bins hold
// any. Before an allocation fails, the kept ones are joined too, so they cost no room.
class Pool {
  public:
    // Every block starts at a multiple of this: what pointers, 64-bit numbers and double need. That
    // of long double would cost small blocks a third more.
    static constexpr size_t kAlignment = 8;

    Pool() = default;

    // Lays out a pool in `size` bytes at `memory`, which the pool does not own.
    // Returns false when they are too few, or more than 4 GiB.
    [[nodiscard]] bool create(std::byte *memory, size_t size);

    // Units are counted from here; none of the pool's memory before it is used.
    std::byte *start() const { return reinterpret_cast<std::byte *>(words_); }

    // Returns the unit where a block of `size` bytes or more starts, or 0 when there is no stretch that long.
    // The memory's size, or less, may be asked for.
    [[nodiscard]] uint32_t allocate(size_t size);

    // Takes the unit where a live block starts, as the next one does.
    void release(size_t unit);

    // Returns how many bytes a block may hold: what was asked for, rounded up.
    size_t capacity(size_t unit) const;

  private:
    friend class PoolWalk;  // of the tests

    // The memory is seen as words, two to a unit of kAlignment bytes. A block is named by the unit where
    // its bytes start, and its length is in units. The word before a block is its head: the length and
    // two flags. The words of a free block are its neighbours in the bin and, as the last one, its length
    // again. A block that is kept for the next one of its length counts as live for its neighbours.
    using Word [[gnu::may_alias]] = uint32_t;

    static constexpr Word kFree = 1;        // this block
    static constexpr Word kBeforeFree = 2;  // the one before it
    static constexpr Word kMinLength = 2;   // head, two neighbours, length

    // What is shorter than this is kept when it is freed: up to 63 units, 508 bytes.
    static constexpr Word kLong = 64;

    // A bin for each length below kLong, then 32 for each power of two.
    static constexpr Word kBinsInRow = 32;
    static constexpr Word kRows = 26;
    static Word binOf(Word length);

    Word &head(Word block) { return words_[size_t{2} * block - 1]; }
    Word length(Word block) const { return words_[size_t{2} * block - 1] >> 2; }
    Word &next(Word block) { return words_[size_t{2} * block]; }
    Word &previous(Word block) { return words_[size_t{2} * block + 1]; }
    Word &lengthBefore(Word block) { return words_[size_t{2} * block - 2]; }

    void addFree(Word block, Word length);
    void removeFree(Word block);
    Word firstFrom(Word bin) const;
    Word findFree(Word wanted);
    Word cut(Word wanted);
    void join(Word block);
    bool joinKept();
    [[gnu::noinline]] Word cutOrJoin(Word wanted);

    Word *words_ = nullptr;
    std::array<uint32_t, kLong> kept_{};        // for each length the one that was freed last, or 0
    uint32_t filledRows_ = 0;                   // a bit for each row
    std::array<uint32_t, kRows> filledBins_{};  // a bit for each bin of a row
    std::array<uint32_t, size_t{kRows} * kBinsInRow> first_{};  // each bin's first block, or 0
};

}  // namespace lanyard::port

#endif
