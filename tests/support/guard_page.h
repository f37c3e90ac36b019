// Buffers between inaccessible pages: reading or writing one byte past the edge ends the test at
// once, in every build, with the faulty access on top of the stack.
//
//     GuardedBuffer packet("0200 0014 ..."_hex);               // ends where its guard begins
//     radPairGen(packet.as<RadPacket>(), &list);
//
//     GuardedBuffer value(bytes, GuardedBuffer::Edge::start);  // begins where its guard ends
//     GuardedBuffer name = GuardedBuffer::ofText("nemo");      // with a NUL; text() is the char *
//     GuardedBuffer room(32);                                  // to be written; filled with 0xa5
//
// The bytes between the other end and its inaccessible page are checked when the buffer goes: a
// test fails when they were written to.
#ifndef LANYARD_TESTS_SUPPORT_GUARD_PAGE_H
#define LANYARD_TESTS_SUPPORT_GUARD_PAGE_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "tests/support/bytes.h"

namespace lanyard::test {

class GuardedBuffer {
  public:
    enum class Edge { end, start };

    explicit GuardedBuffer(size_t size, Edge edge = Edge::end);
    explicit GuardedBuffer(ByteView content, Edge edge = Edge::end);
    GuardedBuffer(const GuardedBuffer &) = delete;
    GuardedBuffer &operator=(const GuardedBuffer &) = delete;
    ~GuardedBuffer();

    // The characters and a NUL.
    static GuardedBuffer ofText(std::string_view text, Edge edge = Edge::end);

    [[nodiscard]] uint8_t *data() { return data_; }
    [[nodiscard]] const uint8_t *data() const { return data_; }
    [[nodiscard]] size_t size() const { return size_; }
    [[nodiscard]] std::span<uint8_t> bytes() { return {data_, size_}; }
    [[nodiscard]] ByteView bytes() const { return {data_, size_}; }
    [[nodiscard]] char *text() { return as<char>(); }

    // The bytes as a record of the public interface that has no alignment, such as RadPacket.
    template <typename Record>
    [[nodiscard]] Record *as() {
        static_assert(alignof(Record) == 1);
        return reinterpret_cast<Record *>(data_);
    }

    // From now on writing to the content ends the test as well.
    void makeReadOnly();

  private:
    uint8_t *mapping_;
    size_t pageSize_;
    size_t usable_;  // bytes between the two inaccessible pages
    uint8_t *data_;
    size_t size_;
};

}  // namespace lanyard::test

#endif
