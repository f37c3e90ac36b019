#include "progress.h"

#include <algorithm>
#include <cstdio>
#include <unistd.h>

namespace lanyardctl {

std::string asProgress(uint64_t done, uint64_t all, size_t places) {
    const uint64_t most = std::max<uint64_t>(all, 1);
    const auto full = static_cast<size_t>(done * places / most);
    const std::string percent = std::to_string(done * 100 / most);
    return "[" + std::string(full, '#') + std::string(places - full, '.') + "] " +
           std::string(3 - percent.size(), ' ') + percent + " %";
}

ProgressLine::ProgressLine() : isShown_(isatty(STDERR_FILENO) != 0) {}

ProgressLine::~ProgressLine() {
    if (width_ > 0) {
        (void)std::fprintf(stderr, "\r%*s\r", static_cast<int>(width_), "");
    }
}

bool ProgressLine::isDue() const {
    return isShown_ && Clock::now() >= next_;
}

void ProgressLine::write(const std::string &line) {
    constexpr std::chrono::milliseconds kPause{100};
    // Blanks cover what a longer line has left.
    (void)std::fprintf(stderr, "\r%-*s", static_cast<int>(width_), line.c_str());
    width_ = std::max(width_, line.size());
    next_ = Clock::now() + kPause;
}

}  // namespace lanyardctl
