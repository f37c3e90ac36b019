// How far a long command is, for a person at a terminal.
#ifndef LANYARDCTL_PROGRESS_H
#define LANYARDCTL_PROGRESS_H

#include <chrono>
#include <cstdint>
#include <string>

namespace lanyardctl {

// "[#####.....]  50 %", with so many places between the brackets.
std::string asProgress(uint64_t done, uint64_t all, size_t places);

// A line of standard error that is written anew and gone in the end; nothing where that is no terminal.
class ProgressLine {
  public:
    ProgressLine();
    ~ProgressLine();
    ProgressLine(const ProgressLine &) = delete;
    ProgressLine &operator=(const ProgressLine &) = delete;
    ProgressLine(ProgressLine &&) = delete;
    ProgressLine &operator=(ProgressLine &&) = delete;

    // Whether it is time to write the line again.
    [[nodiscard]] bool isDue() const;
    void write(const std::string &line);

  private:
    using Clock = std::chrono::steady_clock;

    const bool isShown_;
    size_t width_ = 0;
    Clock::time_point next_ = Clock::now();
};

}  // namespace lanyardctl

#endif
