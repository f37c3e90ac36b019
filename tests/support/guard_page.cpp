#include "tests/support/guard_page.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include "tools/file_descriptor.h"

namespace lanyard::test {
namespace {

constexpr uint8_t kFiller = 0xa5;

}  // namespace

GuardedBuffer::GuardedBuffer(size_t size, Edge edge)
    : mapping_(nullptr),
      pageSize_(static_cast<size_t>(sysconf(_SC_PAGESIZE))),
      usable_(std::max<size_t>(1, (size + pageSize_ - 1) / pageSize_) * pageSize_),
      data_(nullptr),
      size_(size) {
    void *mapping =
        mmap(nullptr, usable_ + 2 * pageSize_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    checked(mapping == MAP_FAILED ? -1 : 0, "mmap");
    mapping_ = static_cast<uint8_t *>(mapping);
    uint8_t *usable = mapping_ + pageSize_;
    checked(mprotect(usable, usable_, PROT_READ | PROT_WRITE), "mprotect");
    std::fill_n(usable, usable_, kFiller);
    data_ = edge == Edge::end ? usable + usable_ - size_ : usable;
}

GuardedBuffer::GuardedBuffer(ByteView content, Edge edge) : GuardedBuffer(content.size(), edge) {
    std::copy(content.begin(), content.end(), data_);
}

GuardedBuffer::~GuardedBuffer() {
    const uint8_t *usable = mapping_ + pageSize_;
    const auto intact = [](const uint8_t *begin, const uint8_t *end) {
        return std::all_of(begin, end, [](uint8_t byte) { return byte == kFiller; });
    };
    EXPECT_TRUE(intact(usable, data_)) << "bytes in front of the buffer were written to";
    EXPECT_TRUE(intact(data_ + size_, usable + usable_))
        << "bytes after the buffer were written to";
    munmap(mapping_, usable_ + 2 * pageSize_);
}

GuardedBuffer GuardedBuffer::ofText(std::string_view text, Edge edge) {
    Bytes content = fromText(text);
    content.push_back(0);
    return GuardedBuffer(content, edge);
}

void GuardedBuffer::makeReadOnly() {
    checked(mprotect(mapping_ + pageSize_, usable_, PROT_READ), "mprotect");
}

}  // namespace lanyard::test
