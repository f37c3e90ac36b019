// The pool on Boost.Interprocess' red-black tree best-fit algorithm, without a segment manager:
// no index, no names, no lock. A block costs one word, and its size is rounded up so that block and
// word together are a multiple of the alignment.
//
// This file is built without AddressSanitizer's checks. The algorithm keeps its tree in the free
// blocks, which the partitions poison for everyone else.
#include "platform/pool.h"

#include <boost/interprocess/mem_algo/rbtree_best_fit.hpp>
#include <boost/interprocess/sync/mutex_family.hpp>
#include <memory>
#include <new>

#ifdef LANYARD_POOL_IS_POISONED
// The algorithm clears its words in a block before it hands the block out. The sanitizer checks
// memset() wherever it is called from, so in this file the name stands for a fill of its own.
extern "C" [[gnu::used, gnu::visibility("hidden")]] void *lanyardPoolFill(void *memory, int value,
                                                                          size_t size) {
    auto *byte = static_cast<volatile unsigned char *>(memory);  // Or it would become memset().
    for (size_t i = 0; i < size; ++i) {
        byte[i] = static_cast<unsigned char>(value);
    }
    return memory;
}
__asm__(".set memset, lanyardPoolFill");
#endif

namespace lanyard::port {
namespace {

using Algorithm =
    boost::interprocess::rbtree_best_fit<boost::interprocess::null_mutex_family,
                                         boost::interprocess::offset_ptr<void>, Pool::kAlignment>;

Algorithm &algorithmAt(void *address) {
    return *static_cast<Algorithm *>(address);
}

}  // namespace

bool Pool::create(std::byte *memory, size_t size) {
    void *start = memory;
    size_t left = size;
    if (std::align(kAlignment, Algorithm::get_min_size(0), start, left) == nullptr) {
        return false;
    }
    algorithm_ = new (start) Algorithm(left, 0);
    return true;
}

std::byte *Pool::allocate(size_t size) {
    return static_cast<std::byte *>(algorithmAt(algorithm_).allocate(size));
}

void Pool::release(std::byte *block) {
    algorithmAt(algorithm_).deallocate(block);
}

size_t Pool::capacity(const std::byte *block) const {
    return algorithmAt(algorithm_).size(block);
}

}  // namespace lanyard::port
