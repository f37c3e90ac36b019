#include "secret.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/signalfd.h>
#include <termios.h>
#include <unistd.h>

#include "failure.h"
#include "tools/file_descriptor.h"

namespace lanyardctl {

namespace {

constexpr size_t kFirstLineMax = 1024;

[[noreturn]] void fail(const std::string &where) {
    throw Failure("cannot read " + where + ": " + std::strerror(errno));
}

// No byte after the line is taken, so that what follows is still there for others.
Secret firstLineOf(int fd, const std::string &where) {
    std::array<char, kFirstLineMax> line{};
    size_t size = 0;
    for (;;) {
        const ssize_t got = read(fd, line.data() + size, 1);
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got < 0) {
            fail(where);
        }
        if (got == 0 || line[size] == '\n') {
            break;
        }
        if (++size == line.size()) {
            explicit_bzero(line.data(), line.size());
            throw Failure("the first line of " + where + " is too long");
        }
    }
    std::string text(line.data(), size);
    explicit_bzero(line.data(), line.size());
    return Secret(std::move(text));
}

// The signals that a key sends.
sigset_t keySignals() {
    sigset_t keys;
    sigemptyset(&keys);
    for (const int number : {SIGINT, SIGQUIT, SIGTSTP}) {
        sigaddset(&keys, number);
    }
    return keys;
}

// No echo while this lives. Signals that a key sends wait until it does not, so that the terminal is
// never left without echo.
class NoEcho {
  public:
    NoEcho() {
        const sigset_t keys = keySignals();
        sigprocmask(SIG_BLOCK, &keys, &signals_);
        tcgetattr(STDIN_FILENO, &settings_);
        termios quiet = settings_;
        quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        quiet.c_lflag |= ECHONL;
        tcsetattr(STDIN_FILENO, TCSAFLUSH, &quiet);
    }
    ~NoEcho() {
        tcsetattr(STDIN_FILENO, TCSAFLUSH, &settings_);
        sigprocmask(SIG_SETMASK, &signals_, nullptr);
    }
    NoEcho(const NoEcho &) = delete;
    NoEcho &operator=(const NoEcho &) = delete;
    NoEcho(NoEcho &&) = delete;
    NoEcho &operator=(NoEcho &&) = delete;

    // Returns whether there is a line to read; if not, a key has sent a signal.
    [[nodiscard]] static bool waitForLine() {
        const sigset_t keys = keySignals();
        const lanyard::FileDescriptor signals(signalfd(-1, &keys, SFD_CLOEXEC), "signalfd");
        std::array<pollfd, 2> entries = {{{STDIN_FILENO, POLLIN, 0}, {signals.get(), POLLIN, 0}}};
        while (poll(entries.data(), entries.size(), -1) < 0 && errno == EINTR) {
        }
        return entries[1].revents == 0;
    }

  private:
    sigset_t signals_{};
    termios settings_{};
};

}  // namespace

Secret readSecretFile(const std::string &file) {
    if (file == "-") {
        return firstLineOf(STDIN_FILENO, "standard input");
    }
    const int fd = open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY);
    if (fd < 0) {
        fail(file);
    }
    const lanyard::FileDescriptor owner(fd, file);
    return firstLineOf(fd, file);
}

Secret askForPassword(const std::optional<std::string> &file, const std::string &prompt) {
    if (file) {
        return readSecretFile(*file);
    }
    if (isatty(STDIN_FILENO) == 0) {
        return firstLineOf(STDIN_FILENO, "standard input");
    }
    for (;;) {
        const NoEcho quiet;
        (void)std::fputs(prompt.c_str(), stderr);
        if (NoEcho::waitForLine()) {
            return firstLineOf(STDIN_FILENO, "the terminal");
        }
        // The signal comes with the echo; who goes on after it is asked again.
        (void)std::fputs("\n", stderr);
    }
}

}  // namespace lanyardctl
