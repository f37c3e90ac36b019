#include "tests/unit/platform/role.h"

#include <array>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <map>
#include <poll.h>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

#include "tests/support/temporary_folder.h"
#include "tools/file_descriptor.h"

namespace lanyard::test {
namespace {

std::map<std::string, RoleFunction> &roles() {
    static std::map<std::string, RoleFunction> known;
    return known;
}

// The two ends of a stream: what the child writes to and where the test reads it.
struct Channel {
    FileDescriptor write;
    FileDescriptor read;
};

Channel openChannel(ErrorStream stream) {
    switch (stream) {
        case ErrorStream::kPackets: {
            std::array<int, 2> ends{};
            checked(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()),
                    "socketpair");
            return {{ends[1], "socketpair"}, {ends[0], "socketpair"}};
        }
        case ErrorStream::kFile: {
            const TemporaryFolder folder;
            const std::string path = folder.path() / "stream";
            FileDescriptor writer(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600), path);
            return {std::move(writer), {open(path.c_str(), O_RDONLY | O_CLOEXEC), path}};
        }
        case ErrorStream::kTerminal: {
            FileDescriptor master(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC), "posix_openpt");
            checked(grantpt(master.get()), "grantpt");
            checked(unlockpt(master.get()), "unlockpt");
            const char *name = ptsname(master.get());
            return {{open(name, O_RDWR | O_NOCTTY | O_CLOEXEC), name}, std::move(master)};
        }
        case ErrorStream::kNull:
            return {{open("/dev/null", O_WRONLY | O_CLOEXEC), "/dev/null"},
                    {open("/dev/null", O_RDONLY | O_CLOEXEC), "/dev/null"}};
        case ErrorStream::kPipe:
            break;
    }
    Pipe pipe;
    return {std::move(pipe.writeEnd), std::move(pipe.readEnd)};
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
    Channel out = openChannel(ErrorStream::kPipe);
    Channel err = openChannel(stream);
    const pid_t child = fork();
    if (child == 0) {
        becomeRole(role, environment, out.write.get(), err.write.get());
    }
    out.write.reset();
    err.write.reset();
    RoleResult result;
    // A regular file has no end until the child has ended: it is read after standard output.
    drain(out.read.get(), stream == ErrorStream::kFile ? -1 : err.read.get(), result);
    int status = 0;
    while (waitpid(child, &status, 0) == -1 && errno == EINTR) {
    }
    if (stream == ErrorStream::kFile) {
        drain(-1, err.read.get(), result);
    }
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
