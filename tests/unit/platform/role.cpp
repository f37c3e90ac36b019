#include "tests/unit/platform/role.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <map>
#include <poll.h>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace lanyard::test {
namespace {

std::map<std::string, RoleFunction> &roles() {
    static std::map<std::string, RoleFunction> known;
    return known;
}

// The two ends of a stream: what the child writes to and where the test reads it.
struct Channel {
    int write = -1;
    int read = -1;
};

Channel openChannel(ErrorStream stream) {
    int ends[2] = {-1, -1};
    switch (stream) {
        case ErrorStream::kPipe:
            if (pipe2(ends, O_CLOEXEC) != 0) {
                throw std::runtime_error("pipe");
            }
            return {ends[1], ends[0]};
        case ErrorStream::kPackets:
            if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) {
                throw std::runtime_error("socketpair");
            }
            return {ends[1], ends[0]};
        case ErrorStream::kFile: {
            char name[] = "/tmp/platform-test-XXXXXX";
            const int fd = mkostemp(name, O_CLOEXEC);
            const int reader = open(name, O_RDONLY | O_CLOEXEC);
            unlink(name);
            return {fd, reader};
        }
        case ErrorStream::kTerminal: {
            const int master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
            if (master == -1 || grantpt(master) != 0 || unlockpt(master) != 0) {
                throw std::runtime_error("posix_openpt");
            }
            return {open(ptsname(master), O_RDWR | O_NOCTTY | O_CLOEXEC), master};
        }
        case ErrorStream::kNull:
            return {open("/dev/null", O_WRONLY | O_CLOEXEC),
                    open("/dev/null", O_RDONLY | O_CLOEXEC)};
    }
    return {};
}

// Reads both streams until the child has closed them, so that it never waits for the test.
void drain(int out, int err, RoleResult &result) {
    std::vector<char> buffer(1 << 18);
    pollfd polled[2] = {{out, POLLIN, 0}, {err, POLLIN, 0}};
    while (polled[0].fd != -1 || polled[1].fd != -1) {
        if (poll(polled, 2, 30000) <= 0) {
            throw std::runtime_error("a role does not end");
        }
        for (pollfd &entry : polled) {
            if (entry.fd == -1 || entry.revents == 0) {
                continue;
            }
            const ssize_t got = read(entry.fd, buffer.data(), buffer.size());
            if (got <= 0) {  // A terminal reports EIO when the other end is closed.
                entry.fd = -1;
            } else if (entry.fd == out) {
                result.out.append(buffer.data(), static_cast<size_t>(got));
            } else {
                result.err.emplace_back(buffer.data(), static_cast<size_t>(got));
            }
        }
    }
}

[[noreturn]] void becomeRole(const std::string &role, const std::vector<std::string> &environment,
                             int out, int err) {
    for (const char *name : {"PAL_DEBUG_LEVELS", "PAL_DEBUG_FILE", "PAL_ROOT"}) {
        unsetenv(name);
    }
    for (const std::string &variable : environment) {
        const size_t equals = variable.find('=');
        setenv(variable.substr(0, equals).c_str(), variable.substr(equals + 1).c_str(), 1);
    }
    const std::string self = selfPath();
    if (dup2(out, STDOUT_FILENO) != -1 && dup2(err, STDERR_FILENO) != -1) {
        execl(self.c_str(), self.c_str(), kRoleOption, role.c_str(), nullptr);
    }
    _exit(126);
}

}  // namespace

Role::Role(const char *name, RoleFunction function) {
    roles()[name] = function;
}

std::string RoleResult::allErr() const {
    std::string all;
    for (const std::string &part : err) {
        all += part;
    }
    return all;
}

RoleResult runRole(const std::string &role, const std::vector<std::string> &environment,
                   ErrorStream stream) {
    const Channel out = openChannel(ErrorStream::kPipe);
    const Channel err = openChannel(stream);
    const pid_t child = fork();
    if (child == 0) {
        becomeRole(role, environment, out.write, err.write);
    }
    close(out.write);
    close(err.write);
    RoleResult result;
    // A regular file has no end until the child has ended: it is read after standard output.
    drain(out.read, stream == ErrorStream::kFile ? -1 : err.read, result);
    int status = 0;
    while (waitpid(child, &status, 0) == -1 && errno == EINTR) {
    }
    if (stream == ErrorStream::kFile) {
        drain(-1, err.read, result);
    }
    close(out.read);
    close(err.read);
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return result;
}

bool playRole(int argc, char **argv, int &status) {
    if (argc < 3 || std::string(argv[1]) != kRoleOption) {
        return false;
    }
    const auto role = roles().find(argv[2]);
    status = role == roles().end() ? 125 : role->second({argv + 3, argv + argc});
    return true;
}

std::string selfPath() {
    char path[4096];
    const ssize_t length = readlink("/proc/self/exe", path, sizeof path);
    return {path, length > 0 ? static_cast<size_t>(length) : 0};
}

}  // namespace lanyard::test
