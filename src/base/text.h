// Small helpers over C text.
#ifndef LANYARD_BASE_TEXT_H
#define LANYARD_BASE_TEXT_H

#include <array>
#include <cctype>
#include <cstdlib>
#include <cstring>

namespace lanyard {

// The number that a text starts with, as atoi(): 0 when there is none.
inline int decimalValue(const char *text) {
    return static_cast<int>(std::strtol(text, nullptr, 10));
}

inline bool startsWithDigit(const char *text) {
    return std::isdigit(static_cast<unsigned char>(text[0])) != 0;
}

// What a message shows for a text that may be null.
inline const char *shownText(const char *text) {
    return text ? text : "(null)";
}

inline const char *shownSecret(const char *secret) {
    return secret ? secret : "NO";
}

// The system's text for an error number, in any thread. There are two kinds of strerror_r(): one
// returns the text, the other a status and the text in the buffer.
class ErrorText {
  public:
    explicit ErrorText(int error)
        : text_(choose(strerror_r(error, buffer_.data(), buffer_.size()), buffer_.data())) {}
    ErrorText(const ErrorText &) = delete;
    ErrorText &operator=(const ErrorText &) = delete;

    const char *text() const { return text_; }

  private:
    static const char *choose(const char *text, const char * /*buffer*/) { return text; }
    static const char *choose(int /*status*/, const char *buffer) { return buffer; }

    std::array<char, 128> buffer_{};
    const char *text_;
};

}  // namespace lanyard

#endif
