// Calls about files, processes, the bus and random numbers that fail on order (FailingCall). Those of
// sockets, epoll and the resolver are in ../client/system_calls.cpp.
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <memory>
#include <openssl/rand.h>
#include <poll.h>
#include <spawn.h>
#include <sys/file.h>
#include <sys/random.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <lanyard/radius/relay.h>
#include <palcore.h>

#include "tests/support/failing_call.h"

using lanyard::test::following;
using lanyard::test::hasStruck;
using lanyard::test::strikes;

namespace {

// The function's own result, or `failure` where the call has to fail.
template <typename Result, typename... Parameters, typename... Arguments>
Result unlessStruck(const char *name, Result (* /*function*/)(Parameters...), Result failure,
                    Arguments... arguments) {
    return strikes(name)
               ? failure
               : following<Result(Parameters...)>(name)(static_cast<Parameters>(arguments)...);
}

mode_t modeOf(int flags, va_list arguments) {
    return (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;
}

// Nobody waits for long after a failure: whoever is still to answer does so at once, or never.
constexpr int kSoon = 30;  // milliseconds

int soon(int milliseconds) {
    return hasStruck() && (milliseconds < 0 || milliseconds > kSoon) ? kSoon : milliseconds;
}

// A stream whose reading, writing and closing are the functions below, which the C library's own would not
// call.
int *fdOf(void *cookie) {
    return static_cast<int *>(cookie);
}

ssize_t readStream(void *cookie, char *buffer, size_t size) {
    return read(*fdOf(cookie), buffer, size);
}

ssize_t writeStream(void *cookie, const char *buffer, size_t size) {
    const ssize_t written = write(*fdOf(cookie), buffer, size);
    return written < 0 ? 0 : written;
}

int closeStream(void *cookie) {
    const int status = close(*fdOf(cookie));
    delete fdOf(cookie);
    return status;
}

int flagsOf(const char *mode) {
    switch (*mode) {
        case 'r':
            return O_RDONLY;
        case 'w':
            return O_WRONLY | O_CREAT | O_TRUNC;
        default:
            return O_WRONLY | O_CREAT | O_APPEND;
    }
}

}  // namespace

// NOLINTBEGIN(cert-dcl50-cpp): as the C library declares them
int open(const char *path, int flags, ...) {
    static auto *const real = following<int(const char *, int, mode_t)>("open");
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = modeOf(flags, arguments);
    va_end(arguments);
    return strikes("open") ? -1 : real(path, flags, mode);
}

int openat(int folder, const char *path, int flags, ...) {
    static auto *const real = following<int(int, const char *, int, mode_t)>("openat");
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = modeOf(flags, arguments);
    va_end(arguments);
    return strikes("openat") ? -1 : real(folder, path, flags, mode);
}
// NOLINTEND(cert-dcl50-cpp)

FILE *fopen(const char *path, const char *mode) {
    const int fd = open(path, flagsOf(mode) | O_CLOEXEC, 0666);
    if (fd == -1) {
        return nullptr;
    }
    auto cookie = std::make_unique<int>(fd);
    FILE *stream = fopencookie(
        cookie.get(), mode,
        {.read = readStream, .write = writeStream, .seek = nullptr, .close = closeStream});
    if (stream == nullptr) {
        following<decltype(close)>("close")(fd);
    } else {
        cookie.release();
    }
    return stream;
}

ssize_t read(int fd, void *buffer, size_t size) {
    return unlessStruck<ssize_t>("read", read, -1, fd, buffer, size);
}

ssize_t write(int fd, const void *buffer, size_t size) {
    return unlessStruck<ssize_t>("write", write, -1, fd, buffer, size);
}

// The descriptor is closed in any case, as Linux has it.
int close(int fd) {
    const int status = following<decltype(close)>("close")(fd);
    return strikes("close") ? -1 : status;
}

int fsync(int fd) {
    return unlessStruck("fsync", fsync, -1, fd);
}

int fstat(int fd, struct stat *status) noexcept {
    return unlessStruck("fstat", fstat, -1, fd, status);
}

int fchmod(int fd, mode_t mode) noexcept {
    return unlessStruck("fchmod", fchmod, -1, fd, mode);
}

int flock(int fd, int operation) noexcept {
    return unlessStruck("flock", flock, -1, fd, operation);
}

int rename(const char *from, const char *to) noexcept {
    return unlessStruck("rename", rename, -1, from, to);
}

int unlink(const char *path) noexcept {
    return unlessStruck("unlink", unlink, -1, path);
}

int unlinkat(int folder, const char *path, int flags) noexcept {
    return unlessStruck("unlinkat", unlinkat, -1, folder, path, flags);
}

int mkdir(const char *path, mode_t mode) noexcept {
    return unlessStruck("mkdir", mkdir, -1, path, mode);
}

int mkdirat(int folder, const char *path, mode_t mode) noexcept {
    return unlessStruck("mkdirat", mkdirat, -1, folder, path, mode);
}

int poll(pollfd *fds, nfds_t count, int timeout) {
    return unlessStruck("poll", poll, -1, fds, count, soon(timeout));
}

int ppoll(pollfd *fds, nfds_t count, const timespec *timeout, const sigset_t *mask) {
    static auto *const real = following<decltype(ppoll)>("ppoll");
    if (strikes("ppoll")) {
        return -1;
    }
    constexpr timespec kShort = {.tv_sec = 0, .tv_nsec = kSoon * 1000000L};
    return real(fds, count, hasStruck() ? &kShort : timeout, mask);
}

int listen(int fd, int backlog) noexcept {
    return unlessStruck("listen", listen, -1, fd, backlog);
}

int accept4(int fd, sockaddr *address, socklen_t *size, int flags) {
    return unlessStruck("accept4", accept4, -1, fd, address, size, flags);
}

int setsockopt(int fd, int level, int name, const void *value, socklen_t size) noexcept {
    return unlessStruck("setsockopt", setsockopt, -1, fd, level, name, value, size);
}

int getsockopt(int fd, int level, int name, void *value, socklen_t *size) noexcept {
    return unlessStruck("getsockopt", getsockopt, -1, fd, level, name, value, size);
}

ssize_t sendmsg(int fd, const msghdr *message, int flags) {
    return unlessStruck<ssize_t>("sendmsg", sendmsg, -1, fd, message, flags);
}

ssize_t recvmsg(int fd, msghdr *message, int flags) {
    return unlessStruck<ssize_t>("recvmsg", recvmsg, -1, fd, message, flags);
}

int posix_spawn(pid_t *child, const char *path, const posix_spawn_file_actions_t *actions,
                const posix_spawnattr_t *attributes, char *const arguments[],
                char *const environment[]) {
    static auto *const real = following<decltype(posix_spawn)>("posix_spawn");
    return strikes("posix_spawn") ? errno
                                  : real(child, path, actions, attributes, arguments, environment);
}

pid_t waitpid(pid_t child, int *status, int options) {
    return unlessStruck("waitpid", waitpid, -1, child, status, options);
}

ssize_t getrandom(void *buffer, size_t size, unsigned flags) {
    return unlessStruck<ssize_t>("getrandom", getrandom, -1, buffer, size, flags);
}

int RAND_bytes(unsigned char *buffer, int size) {
    return unlessStruck("RAND_bytes", RAND_bytes, 0, buffer, size);
}

// The process stays in the foreground, and the relay ends after its first wait.
int daemon(int /*noChangeOfFolder*/, int /*noClose*/) noexcept {
    const bool struck = strikes("daemon");
    radEapExit(SIGTERM);
    return struck ? -1 : 0;
}

// No relay waits for that of another test.
int palTaskNameToId(const char * /*name*/) {
    return -1;
}
