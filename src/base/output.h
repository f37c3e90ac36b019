// Lines for standard output, put together without printf() and written with one call each: what a
// login prints would otherwise cost more than its digests.
#ifndef LANYARD_BASE_OUTPUT_H
#define LANYARD_BASE_OUTPUT_H

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string_view>

namespace lanyard {

// Two lower-case hexadecimal digits.
inline std::array<char, 2> hexOf(uint8_t byte) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    return {kDigits[byte >> 4], kDigits[byte & 15]};
}

// A line of at most `size` characters; what does not fit is cut.
template <size_t size>
class OutputLine {
  public:
    OutputLine() {}  // NOLINT(*-member-init, *-use-equals-default): what is not used stays unset

    OutputLine(const OutputLine &) = delete;
    OutputLine &operator=(const OutputLine &) = delete;
    ~OutputLine() { explicit_bzero(text_.data(), length_); }  // it may show a key

    void add(std::string_view text) {
        const size_t count = std::min(text.size(), size - length_);
        std::memcpy(text_.data() + length_, text.data(), count);
        length_ += count;
    }

    void add(char character) { add(std::array{character}); }

    // All of it or nothing.
    template <size_t count>
    void add(const std::array<char, count> &text) {
        if (size - length_ >= count) {
            std::memcpy(text_.data() + length_, text.data(), count);
            length_ += count;
        }
    }

    void print() const { std::fwrite(text_.data(), 1, length_, stdout); }

  private:
    std::array<char, size> text_;
    size_t length_ = 0;
};

}  // namespace lanyard

#endif
