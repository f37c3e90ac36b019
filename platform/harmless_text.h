// Text from outside that is shown to people: which of it does no harm at a terminal or in a log. Uses nothing of
// this folder, so that the tools above it show text by the same rule.
#ifndef LANYARD_PLATFORM_HARMLESS_TEXT_H
#define LANYARD_PLATFORM_HARMLESS_TEXT_H

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace lanyard::port {

// Characters that a terminal or a reader takes for more than a character.
constexpr bool isHarmful(uint32_t character) {
    return character < 0x20 || (character >= 0x7f && character < 0xa0) || character == 0x061c ||
           character == 0x200e || character == 0x200f ||
           (character >= 0x2028 && character <= 0x202e) ||
           (character >= 0x2066 && character <= 0x2069) || character == 0xfeff;
}

// Returns the length of the harmless character that the text starts with; 0 if there is none. The text is not empty.
inline size_t harmlessLength(std::string_view text) {
    const auto byteAt = [text](size_t i) { return static_cast<unsigned char>(text[i]); };
    struct Form {
        unsigned char mask, lead;
        uint32_t least;
    };
    constexpr Form kForms[] = {
        {0x80, 0x00, 0}, {0xe0, 0xc0, 0x80}, {0xf0, 0xe0, 0x800}, {0xf8, 0xf0, 0x10000}};
    size_t length = 0;
    for (const Form &form : kForms) {
        ++length;
        if ((byteAt(0) & form.mask) != form.lead) {
            continue;
        }
        if (text.size() < length) {
            return 0;
        }
        uint32_t character = byteAt(0) & static_cast<unsigned char>(~form.mask);
        for (size_t i = 1; i < length; ++i) {
            if ((byteAt(i) & 0xc0U) != 0x80U) {
                return 0;
            }
            character = character << 6 | (byteAt(i) & 0x3fU);
        }
        const bool isSurrogate = character >= 0xd800 && character <= 0xdfff;
        const bool isValid = character >= form.least && character <= 0x10ffff && !isSurrogate;
        return isValid && !isHarmful(character) ? length : 0;
    }
    return 0;
}

}  // namespace lanyard::port

#endif
