#include "platform/kernel_random.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <new>
#include <sys/mman.h>
#include <sys/random.h>

namespace lanyard::port {

bool drawFromKernel(std::span<uint8_t> out) {
    while (!out.empty()) {
        const ssize_t got = getrandom(out.data(), out.size(), 0);
        if (got > 0) {
            out = out.subspan(static_cast<size_t>(got));
        } else if (got == 0 || errno != EINTR) {
            return false;
        }
    }
    return true;
}

// All zeros is an empty reserve: what a new page is, and that of a child.
struct RandomReserve::Page {
    std::array<uint8_t, kSize> bytes;
    size_t left;
    // Set while the reserve is at work, for a signal handler to see. It is gone when a handler forked.
    std::atomic<bool> busy;
};

RandomReserve::RandomReserve() {
    void *memory =
        mmap(nullptr, sizeof(Page), PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) {
        return;
    }
    if (madvise(memory, sizeof(Page), MADV_WIPEONFORK) != 0) {
        munmap(memory, sizeof(Page));
        return;
    }
    madvise(memory, sizeof(Page), MADV_DONTDUMP);
    page_ = new (memory) Page{};
}

RandomReserve::~RandomReserve() {
    if (page_ != nullptr) {
        explicit_bzero(page_, sizeof(Page));
        munmap(page_, sizeof(Page));
    }
}

bool RandomReserve::draw(std::span<uint8_t> out) {
    if (page_ == nullptr || out.size() > kSize || page_->busy.exchange(true)) {
        return false;
    }
    size_t left = page_->left;
    if (left < out.size()) {
        left = drawFromKernel(page_->bytes) ? kSize : 0;
    }
    const bool enough = left >= out.size();
    if (enough) {
        uint8_t *from = page_->bytes.data() + kSize - left;
        std::copy_n(from, out.size(), out.data());
        explicit_bzero(from, out.size());
        left -= out.size();
    }
    page_->left = left;
    if (!page_->busy.exchange(false)) {
        page_->left = 0;  // This is the child of a handler that forked: zeros may have been copied.
        return false;
    }
    return enough;
}

std::span<const uint8_t> RandomReserve::bytes() const {
    return page_ == nullptr ? std::span<const uint8_t>() : page_->bytes;
}

}  // namespace lanyard::port
