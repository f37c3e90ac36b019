#include "tests/unit/tools/lanyardctl/steps.h"

#include <csignal>
#include <cstdarg>
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include "tests/support/failing_call.h"

namespace lanyard::test {
namespace {

constinit thread_local Steps *active = nullptr;

void step(const char *name) {
    if (active) {
        active->take(name);
    }
}

}  // namespace

Steps::Steps(int killAt) : killAt_(killAt) {
    active = this;
}

Steps::~Steps() {
    active = nullptr;
}

void Steps::take(const char *name) {
    names_.emplace_back(name);
    if (static_cast<int>(names_.size()) == killAt_) {
        (void)raise(SIGKILL);
    }
}

}  // namespace lanyard::test

using lanyard::test::following;
using lanyard::test::step;

int open64(const char *file, int oflag, ...) {
    static auto *const real = following<decltype(open64)>("open64");
    va_list arguments;
    va_start(arguments, oflag);
    const mode_t mode = (oflag & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    step("open64");
    return real(file, oflag, mode);
}

ssize_t pwrite64(int fd, const void *buf, size_t n, off64_t offset) {
    static auto *const real = following<decltype(pwrite64)>("pwrite64");
    step("pwrite64");
    return real(fd, buf, n, offset);
}

int fdatasync(int fildes) {
    static auto *const real = following<decltype(fdatasync)>("fdatasync");
    step("fdatasync");
    return real(fildes);
}

int ftruncate64(int fd, off64_t length) noexcept {
    static auto *const real = following<decltype(ftruncate64)>("ftruncate64");
    step("ftruncate64");
    return real(fd, length);
}

int unlink(const char *name) noexcept {
    static auto *const real = following<decltype(unlink)>("unlink");
    step("unlink");
    return real(name);
}

ssize_t send(int fd, const void *buf, size_t n, int flags) {
    static auto *const real = following<decltype(send)>("send");
    step("send");
    return real(fd, buf, n, flags);
}

ssize_t recv(int fd, void *buf, size_t n, int flags) {
    static auto *const real = following<decltype(recv)>("recv");
    step("recv");
    return real(fd, buf, n, flags);
}
