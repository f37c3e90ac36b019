// Builds the text of a log entry and keeps bytes from outside from doing harm in it.
#include "platform/log_text.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <new>

namespace lanyard::port {
namespace {

// Characters that a terminal or a reader takes for more than a character.
bool isHarmful(uint32_t character) {
    return character < 0x20 || (character >= 0x7f && character < 0xa0) || character == 0x061c ||
           character == 0x200e || character == 0x200f ||
           (character >= 0x2028 && character <= 0x202e) ||
           (character >= 0x2066 && character <= 0x2069) || character == 0xfeff;
}

// Returns the length of the harmless character that the text starts with; 0 if there is none.
size_t harmlessLength(std::string_view text) {
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

}  // namespace

LogText::~LogText() {
    explicit_bzero(data_, length_);
    if (data_ != inPlace_) {
        delete[] data_;
    }
}

bool LogText::reserve(size_t more) {
    if (more <= capacity_ - length_) {
        return true;
    }
    const size_t wanted = std::max(capacity_ * 2, length_ + more);
    char *larger = new (std::nothrow) char[wanted];
    if (larger == nullptr) {
        return false;
    }
    std::memcpy(larger, data_, length_);
    explicit_bzero(data_, length_);
    if (data_ != inPlace_) {
        delete[] data_;
    }
    data_ = larger;
    capacity_ = wanted;
    return true;
}

void LogText::append(std::string_view text) {
    if (!reserve(text.size())) {
        text = text.substr(0, capacity_ - length_);
    }
    std::copy(text.begin(), text.end(), data_ + length_);
    length_ += text.size();
}

void LogText::appendFormat(const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    appendFormatList(format, arguments);
    va_end(arguments);
}

void LogText::appendFormatList(const char *format, va_list arguments) {
    va_list again;
    va_copy(again, arguments);
    int wanted = std::vsnprintf(data_ + length_, capacity_ - length_, format, arguments);
    if (wanted >= 0 && static_cast<size_t>(wanted) >= capacity_ - length_ &&
        reserve(static_cast<size_t>(wanted) + 1)) {
        wanted = std::vsnprintf(data_ + length_, capacity_ - length_, format, again);
    }
    va_end(again);
    if (wanted > 0 && length_ < capacity_) {
        length_ += std::min(static_cast<size_t>(wanted), capacity_ - length_ - 1);
    }
}

void LogText::appendPrintable(std::string_view text) {
    while (!text.empty()) {
        const size_t length = harmlessLength(text);
        if (length == 0) {
            appendFormat("\\x%02X", static_cast<unsigned>(static_cast<unsigned char>(text[0])));
            text.remove_prefix(1);
        } else {
            append(text.substr(0, length));
            text.remove_prefix(length);
        }
    }
}

}  // namespace lanyard::port
