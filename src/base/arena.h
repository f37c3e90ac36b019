// Memory of the partition for many small records that end together.
#ifndef LANYARD_BASE_ARENA_H
#define LANYARD_BASE_ARENA_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <new>
#include <type_traits>

#include <lanyard/radius/frame.h>
#include <palcore.h>

namespace lanyard {

// Takes blocks of the partition: the first for one record, each further one for as many as there
// are already, up to kMostRoom bytes.
class Arena {
  public:
    // Zeroed records; null when memory is exhausted.
    template <typename T>
    requires std::is_trivially_copyable_v<T>
    [[nodiscard]] T *allocate(size_t count = 1) {
        static_assert(alignof(T) == alignof(Block), "each record begins where the last one ends");
        // NOLINTNEXTLINE(bugprone-sizeof-expression): a record may be a pointer
        return static_cast<T *>(allocateBytes(count * sizeof(T)));
    }

    // Ends all records. A destructor does not: the partition may be gone by then.
    void clear() {
        while (newest_) {
            Block *before = newest_->before;
            palMemPartFree(radMemPartId, newest_);
            newest_ = before;
        }
        *this = Arena();
    }

  private:
    struct Block {
        Block *before;
    };
    static constexpr size_t kMostRoom = 1024;

    void *allocateBytes(size_t size) {
        if (size > left_ && !addBlock(size)) {
            return nullptr;
        }
        void *record = free_;
        free_ += size;
        left_ -= size;
        return std::memset(record, 0, size);
    }

    // Leaves what the block before has left.
    bool addBlock(size_t size) {
        const size_t room = std::max(size, std::min(held_, kMostRoom) / size * size);
        void *block = palMemPartAlloc(radMemPartId, static_cast<uint32_t>(sizeof(Block) + room));
        if (!block) {
            return false;
        }
        newest_ = new (block) Block{newest_};
        free_ = reinterpret_cast<std::byte *>(newest_ + 1);
        left_ = room;
        held_ += room;
        return true;
    }

    Block *newest_ = nullptr;
    std::byte *free_ = nullptr;
    size_t left_ = 0;
    size_t held_ = 0;
};

}  // namespace lanyard

#endif
