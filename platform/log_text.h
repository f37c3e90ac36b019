/**
 * @file
 * The text of a log entry.
 */
#ifndef LANYARD_PLATFORM_LOG_TEXT_H
#define LANYARD_PLATFORM_LOG_TEXT_H

#include <cstdarg>
#include <cstddef>
#include <string_view>

namespace port {

/**
 * Text that grows, in place while it is short. Without memory to grow it loses its end rather than
 * the entry. It may show secrets and is wiped when it goes.
 */
class LogText {
  public:
    LogText() noexcept = default;
    ~LogText();
    LogText(const LogText &) = delete;
    LogText &operator=(const LogText &) = delete;
    LogText(LogText &&) = delete;
    LogText &operator=(LogText &&) = delete;

    void append(std::string_view text) noexcept;
    [[gnu::format(printf, 2, 3)]] void appendFormat(const char *format, ...) noexcept;
    [[gnu::format(printf, 2, 0)]] void appendFormatList(const char *format,
                                                        std::va_list arguments) noexcept;

    /**
     * Appends text from outside: printable ASCII and valid UTF-8 as they are, every other byte as
     * `\xNN`. That takes in line ends, all other control characters and the invisible characters
     * that change the direction of text.
     */
    void appendPrintable(std::string_view text) noexcept;

    [[nodiscard]] std::string_view view() const noexcept { return {data_, length_}; }

  private:
    bool reserve(std::size_t more) noexcept;

    char inPlace_[1024];
    char *data_ = inPlace_;
    std::size_t capacity_ = sizeof inPlace_;
    std::size_t length_ = 0;
};

}  // namespace port

#endif
