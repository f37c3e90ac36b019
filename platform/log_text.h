// The text of a log entry.
#ifndef LANYARD_PLATFORM_LOG_TEXT_H
#define LANYARD_PLATFORM_LOG_TEXT_H

#include <cstdarg>
#include <cstddef>
#include <string_view>

namespace lanyard::port {

// Text that grows, in place while it is short. Without memory to grow it loses its end rather than
// the entry. It may show secrets and is wiped when it goes.
class LogText {
  public:
    LogText() = default;
    ~LogText();
    LogText(const LogText &) = delete;
    LogText &operator=(const LogText &) = delete;
    LogText(LogText &&) = delete;
    LogText &operator=(LogText &&) = delete;

    void append(std::string_view text);
    [[gnu::format(printf, 2, 3)]] void appendFormat(const char *format, ...);
    [[gnu::format(printf, 2, 0)]] void appendFormatList(const char *format, va_list arguments);

    // Appends text from outside: printable ASCII and valid UTF-8 as they are, every other byte as
    // `\xNN`. That takes in line ends, all other control characters and the invisible characters
    // that change the direction of text.
    void appendPrintable(std::string_view text);

    std::string_view view() const { return {data_, length_}; }

  private:
    bool reserve(size_t more);

    char inPlace_[1024];
    char *data_ = inPlace_;
    size_t capacity_ = sizeof inPlace_;
    size_t length_ = 0;
};

}  // namespace lanyard::port

#endif
