// This file is built without AddressSanitizer's checks: heads and free blocks are poisoned for everyone else.
#include "platform/pool.h"

#include <algorithm>
#include <bit>
#include <memory>

namespace lanyard::port {

Pool::Word Pool::binOf(Word length) {
    // The six highest bits of the length decide, or all of it where it has no more.
    const Word shift = static_cast<Word>(std::bit_width(length | kBinsInRow)) - 6;
    return shift * kBinsInRow + (length >> shift);
}

bool Pool::create(std::byte *memory, size_t size) {
    void *start = memory;
    // The first half of the first unit is lost; the last word is a head of no length, which is never free.
    if (size > UINT32_MAX ||
        std::align(kAlignment, (1 + kMinLength) * kAlignment, start, size) == nullptr) {
        return false;
    }
    words_ = static_cast<Word *>(start);
    const auto end = static_cast<Word>(size / kAlignment);
    head(end) = 0;
    addFree(1, end - 1);
    return true;
}

// Notes that a block is free. Its neighbours are live.
void Pool::addFree(Word block, Word length) {
    head(block) = length << 2 | kFree;
    lengthBefore(block + length) = length;
    head(block + length) |= kBeforeFree;

    const Word bin = binOf(length);
    const Word second = first_[bin];
    next(block) = second;
    previous(block) = 0;
    if (second != 0) {
        previous(second) = block;
    } else {
        filledBins_[bin / kBinsInRow] |= 1U << bin % kBinsInRow;
        filledRows_ |= 1U << bin / kBinsInRow;
    }
    first_[bin] = block;
}

void Pool::removeFree(Word block) {
    const Word after = next(block);
    const Word before = previous(block);
    if (after != 0) {
        previous(after) = before;
    }
    if (before != 0) {
        next(before) = after;
        return;
    }
    const Word bin = binOf(length(block));
    first_[bin] = after;
    if (after == 0) {
        uint32_t &row = filledBins_[bin / kBinsInRow];
        row &= ~(1U << bin % kBinsInRow);
        if (row == 0) {
            filledRows_ &= ~(1U << bin / kBinsInRow);
        }
    }
}

// Returns a free block of this bin or of the next one that holds any, or 0.
Pool::Word Pool::firstFrom(Word bin) const {
    Word row = bin / kBinsInRow;
    Word bins = filledBins_[row] & ~0U << bin % kBinsInRow;
    if (bins == 0) {
        const Word rows = filledRows_ & ~1U << row;
        if (rows == 0) {
            return 0;
        }
        row = static_cast<Word>(std::countr_zero(rows));
        bins = filledBins_[row];
    }
    return first_[row * kBinsInRow + static_cast<Word>(std::countr_zero(bins))];
}

// Returns a free block of `wanted` units or more, or 0.
Pool::Word Pool::findFree(Word wanted) {
    const Word bin = binOf(wanted);
    const Word likely = first_[bin];
    if (likely != 0 && length(likely) >= wanted) {
        return likely;
    }
    // All blocks of the bins above are long enough.
    if (const Word longer = firstFrom(bin + 1); longer != 0) {
        return longer;
    }
    // The only search there is, and the partition is full when it finds nothing.
    Word block = likely;
    while (block != 0 && length(block) < wanted) {
        block = next(block);
    }
    return block;
}

// Takes a block of `wanted` units from a free one. Returns 0 when there is none.
Pool::Word Pool::cut(Word wanted) {
    const Word block = findFree(wanted);
    if (block == 0) {
        return 0;
    }
    removeFree(block);
    const Word whole = length(block);
    if (whole - wanted >= kMinLength) {
        head(block) = wanted << 2;
        addFree(block + wanted, whole - wanted);
    } else {
        head(block) = whole << 2;
        head(block + whole) &= ~kBeforeFree;
    }
    return block;
}

// Makes one free block of a live one and its free neighbours.
void Pool::join(Word block) {
    Word whole = length(block);
    if (const Word after = block + whole; (head(after) & kFree) != 0) {
        removeFree(after);
        whole += length(after);
    }
    if ((head(block) & kBeforeFree) != 0) {
        const Word before = lengthBefore(block);
        block -= before;
        removeFree(block);
        whole += before;
    }
    addFree(block, whole);
}

// Returns false when there was none.
bool Pool::joinKept() {
    bool any = false;
    for (uint32_t &first : kept_) {
        while (first != 0) {
            const Word block = first;
            first = next(block);
            join(block);
            any = true;
        }
    }
    return any;
}

Pool::Word Pool::cutOrJoin(Word wanted) {
    const Word block = cut(wanted);
    return block == 0 && joinKept() ? cut(wanted) : block;
}

uint32_t Pool::allocate(size_t size) {
    const auto units = static_cast<Word>((size + sizeof(Word) + kAlignment - 1) / kAlignment);
    const Word wanted = std::max(units, kMinLength);
    if (wanted < kLong && kept_[wanted] != 0) {
        const Word block = kept_[wanted];
        kept_[wanted] = next(block);
        return block;
    }
    return cutOrJoin(wanted);
}

void Pool::release(size_t unit) {
    const auto block = static_cast<Word>(unit);
    const Word units = length(block);
    if (units < kLong) {
        next(block) = kept_[units];
        kept_[units] = block;
    } else {
        join(block);
    }
}

size_t Pool::capacity(size_t unit) const {
    return size_t{length(static_cast<Word>(unit))} * kAlignment - sizeof(Word);
}

}  // namespace lanyard::port
