// Memory partitions by their ids, and partition 0, the heap, whose live blocks are kept in a set: a pointer
// that is none of them is refused without a look at what it points to.
#include <array>
#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <new>
#include <unordered_set>
#include <utility>

#include <palcore.h>

#include "platform/export.h"
#include "platform/lock.h"
#include "platform/partition.h"

namespace lanyard::port {
namespace {

constexpr uint32_t kTopBit = 0x80000000U;

// Where a partition stands. A place stays when its partition goes, so that a call with an old id finds a lock.
struct Place {
    Lock lock;
    PalMemPartId id = 0;  // of the partition that stands here, or stood here last
    std::unique_ptr<Partition> partition;
};

// An id modulo the number of places is its place; no id has the first one, as 0 is the heap. The places
// are made from the front on and never go.
constexpr PalMemPartId kPlaces = 4096;
constinit std::array<std::atomic<Place *>, kPlaces> places;
constinit std::mutex placesMutex;  // for who creates a partition

Place *placeOf(PalMemPartId id) {
    return places[id % kPlaces].load(std::memory_order_acquire);
}

// Puts the partition where none stands. Returns its id, or 0.
PalMemPartId place(std::unique_ptr<Partition> partition) {
    const std::lock_guard creating(placesMutex);
    for (PalMemPartId number = 1; number < kPlaces; ++number) {
        Place *at = placeOf(number);
        if (at == nullptr) {
            at = new (std::nothrow) Place;
            if (at == nullptr) {
                return 0;
            }
            at->id = number;
            at->partition = std::move(partition);
            places[number].store(at, std::memory_order_release);
            return number;
        }
        const std::lock_guard guard(at->lock);
        if (!at->partition && at->id <= UINT32_MAX - kPlaces) {
            at->id += kPlaces;
            at->partition = std::move(partition);
            return at->id;
        }
    }
    return 0;
}

// Frees a block of the partition that stands where this id has its place.
bool releaseAt(PalMemPartId id, void *block) {
    Place *at = placeOf(id);
    if (at == nullptr) {
        return false;
    }
    const std::lock_guard guard(at->lock);
    return at->partition && at->partition->release(block);
}

bool releaseAnywhere(void *block) {
    for (PalMemPartId number = 1; number < kPlaces && placeOf(number) != nullptr; ++number) {
        if (releaseAt(number, block)) {
            return true;
        }
    }
    return false;
}

// The live blocks of partition 0. Its functions are apart from what the other partitions do, which is short.
class Heap {
  public:
    [[gnu::noinline]] void *allocate(size_t size);
    [[gnu::noinline]] bool release(void *block);

  private:
    // A leak checker must not take the set of live blocks for their owner.
    static uintptr_t disguised(void *block) { return ~reinterpret_cast<uintptr_t>(block); }

    std::mutex mutex_;
    std::unordered_set<uintptr_t> blocks_;
};

void *Heap::allocate(size_t size) {
    HeapOwner<void> block(std::malloc(size == 0 ? 1 : size));
    if (!block) {
        return nullptr;
    }
    const std::lock_guard lock(mutex_);
    try {
        blocks_.insert(disguised(block.get()));
    } catch (const std::bad_alloc &) {
        return nullptr;
    }
    return block.release();
}

bool Heap::release(void *block) {
    {
        const std::lock_guard lock(mutex_);
        if (blocks_.erase(disguised(block)) == 0) {
            return false;
        }
    }
    std::free(block);
    return true;
}

// Never destroyed: other libraries may free their blocks while the process exits.
Heap &heap() {
    alignas(Heap) static std::byte storage[sizeof(Heap)];
    static auto *const instance = new (storage) Heap;
    return *instance;
}

}  // namespace
}  // namespace lanyard::port

using namespace lanyard::port;

PAL_EXPORT PalMemPartId palMemPartCreate(const char * /*name*/, void *memory, uint32_t size) {
    std::unique_ptr<Partition> partition = Partition::create(memory, size);
    return partition ? place(std::move(partition)) : 0;
}

PAL_EXPORT void *palMemPartAlloc(PalMemPartId part, uint32_t size) {
    if ((size & kTopBit) != 0) {
        return nullptr;
    }
    if (part == 0) {
        return heap().allocate(size);
    }
    Place *at = placeOf(part);
    if (at == nullptr) {
        return nullptr;
    }
    const std::lock_guard guard(at->lock);
    return at->id == part && at->partition ? at->partition->allocate(size) : nullptr;
}

PAL_EXPORT char *palMemPartStrDup(PalMemPartId part, const char *text) {
    if (text == nullptr) {
        return nullptr;
    }
    const size_t size = std::strlen(text) + 1;
    if (size >= kTopBit) {
        return nullptr;
    }
    void *copy = palMemPartAlloc(part, static_cast<uint32_t>(size));
    if (copy != nullptr) {
        std::memcpy(copy, text, size);
    }
    return static_cast<char *>(copy);
}

PAL_EXPORT int palMemPartFree(PalMemPartId part, void *block) {
    // A pool's memory may itself be a block of another pool or of the heap, but no block of it starts there:
    // the order in which they are asked does not matter.
    return block == nullptr || releaseAt(part, block) || heap().release(block) ||
                   releaseAnywhere(block)
               ? 0
               : -1;
}

PAL_EXPORT int palMemPartDestroy(PalMemPartId part) {
    Place *at = placeOf(part);
    std::unique_ptr<Partition> gone;
    if (at != nullptr) {
        const std::lock_guard guard(at->lock);
        if (at->id == part) {
            gone = std::move(at->partition);
        }
    }
    return gone ? 0 : -1;
}
