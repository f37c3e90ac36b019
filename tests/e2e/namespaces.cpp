#include "tests/e2e/namespaces.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <sched.h>
#include <string>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

#include "tools/file_descriptor.h"

namespace lanyard::test {
namespace {

constexpr const char *kTemporary = "/run";

void require(bool done, const std::string &what) {
    if (!done) {
        throw std::system_error(errno, std::generic_category(), what);
    }
}

void writeTo(const char *path, const std::string &text) {
    const FileDescriptor file(open(path, O_WRONLY | O_CLOEXEC), path);
    require(write(file.get(), text.data(), text.size()) == static_cast<ssize_t>(text.size()), path);
}

// In a new user namespace the user is root, over what is in there.
void becomeRoot(uid_t user, gid_t group) {
    writeTo("/proc/self/setgroups", "deny");
    writeTo("/proc/self/uid_map", "0 " + std::to_string(user) + " 1");
    writeTo("/proc/self/gid_map", "0 " + std::to_string(group) + " 1");
}

[[noreturn]] void endLike(pid_t child) {
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    _exit(WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status));
}

}  // namespace

void enterOwnNamespaces() {
    const uid_t user = geteuid();
    const gid_t group = getegid();
    constexpr int kOwn = CLONE_NEWNET | CLONE_NEWNS | CLONE_NEWPID;
    if (unshare(kOwn) != 0) {
        require(unshare(CLONE_NEWUSER | kOwn) == 0, "making namespaces");
        becomeRoot(user, group);
    }
    const pid_t first = fork();
    require(first >= 0, "fork");
    if (first > 0) {
        endLike(first);
    }
    require(prctl(PR_SET_PDEATHSIG, SIGKILL) == 0, "prctl");
    // What programs look for in /proc and /run is that of their own namespace.
    require(mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                mount("proc", "/proc", "proc", MS_NOSUID | MS_NODEV | MS_NOEXEC, nullptr) == 0 &&
                mount("tmpfs", kTemporary, "tmpfs", MS_NOSUID | MS_NODEV, nullptr) == 0,
            "mounting");
    require(setenv("TMPDIR", kTemporary, 1) == 0, "environment");
}

}  // namespace lanyard::test
