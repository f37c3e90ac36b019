#include "tests/support/stdout_capture.h"

#include <array>
#include <cstdio>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <iostream>
#include <sys/mman.h>
#include <unistd.h>

namespace lanyard::test {
namespace {

void flush() {
    std::cout.flush();
    EXPECT_EQ(0, std::fflush(stdout));
}

}  // namespace

StdoutCapture::StdoutCapture()
    : file_(memfd_create("stdout", MFD_CLOEXEC), "memfd_create"),
      original_(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0), "fcntl") {
    flush();
    if (dup2(file_.get(), STDOUT_FILENO) < 0) {
        throw std::system_error(errno, std::generic_category(), "dup2");
    }
}

StdoutCapture::~StdoutCapture() {
    const std::string captured = finish();
    if (testing::Test::HasFailure()) {
        std::cout << captured << std::flush;
    }
}

std::string StdoutCapture::text() const {
    if (active_) {
        flush();
    }
    std::string text;
    std::array<char, 4096> chunk{};
    ssize_t count = 0;
    while ((count = pread(file_.get(), chunk.data(), chunk.size(),
                          static_cast<off_t>(text.size()))) > 0) {
        text.append(chunk.data(), static_cast<size_t>(count));
    }
    EXPECT_EQ(0, count) << "cannot read what was captured";
    return text;
}

std::string StdoutCapture::finish() {
    if (active_) {
        flush();
        EXPECT_EQ(STDOUT_FILENO, dup2(original_.get(), STDOUT_FILENO));
        active_ = false;
    }
    return text();
}

}  // namespace lanyard::test
