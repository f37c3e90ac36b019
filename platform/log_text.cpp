// Builds the text of a log entry and keeps bytes from outside from doing harm in it.
#include "platform/log_text.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <new>

#include "platform/harmless_text.h"

namespace lanyard::port {

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
