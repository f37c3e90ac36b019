// Reading and writing the bytes of a packet, always within bounds. Numbers are most significant byte
// first.
//
// A read or write that does not fit does nothing, returns zero or an empty span, and makes ok() false
// for good, so that a parser may run to its end and ask once.
#ifndef LANYARD_BASE_WIRE_H
#define LANYARD_BASE_WIRE_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

namespace lanyard {

class ByteReader {
  public:
    explicit ByteReader(std::span<const uint8_t> bytes) : left_(bytes) {}

    bool ok() const { return ok_; }
    size_t left() const { return left_.size(); }
    std::span<const uint8_t> rest() const { return left_; }

    std::span<const uint8_t> take(size_t count) {
        if (count > left_.size()) {
            ok_ = false;
            left_ = {};
            return {};
        }
        const auto taken = left_.first(count);
        left_ = left_.subspan(count);
        return taken;
    }

    uint8_t u8() { return static_cast<uint8_t>(number(1)); }
    uint16_t u16() { return static_cast<uint16_t>(number(2)); }
    uint32_t u32() { return number(4); }

  private:
    uint32_t number(size_t width) {
        uint32_t value = 0;
        for (const uint8_t byte : take(width)) {
            value = value << 8 | byte;
        }
        return value;
    }

    std::span<const uint8_t> left_;
    bool ok_ = true;
};

class ByteWriter {
  public:
    explicit ByteWriter(std::span<uint8_t> room) : left_(room) {}

    bool ok() const { return ok_; }
    size_t left() const { return left_.size(); }

    // The next `count` bytes, for the caller to fill.
    std::span<uint8_t> claim(size_t count) {
        if (count > left_.size()) {
            ok_ = false;
            left_ = {};
            return {};
        }
        const auto claimed = left_.first(count);
        left_ = left_.subspan(count);
        return claimed;
    }

    void bytes(std::span<const uint8_t> source) {
        const auto place = claim(source.size());
        if (!place.empty()) {
            std::memcpy(place.data(), source.data(), place.size());
        }
    }

    void u8(uint8_t value) { number(value, 1); }
    void u16(uint16_t value) { number(value, 2); }
    void u32(uint32_t value) { number(value, 4); }

  private:
    void number(uint32_t value, size_t width) {
        const auto place = claim(width);
        for (size_t index = place.size(); index > 0; --index) {
            place[index - 1] = static_cast<uint8_t>(value);
            value >>= 8;
        }
    }

    std::span<uint8_t> left_;
    bool ok_ = true;
};

}  // namespace lanyard

#endif
