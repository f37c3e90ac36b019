// Tasks. On this port a task is a process, and its name is the one that the kernel keeps for it
// (`ps -o comm`).
//
// A process gets its name when it forks after the task name of palDaemonOpt was set, as daemon()
// does; the new process then has the name before daemon() returns. A process that stays in the
// foreground gets it with its first call of a task function.
//
// palTaskDelay() and palTaskNameToId() run inside of signal handlers: they use system calls and
// memory on the stack, nothing else.
#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstddef>
#include <cstring>
#include <ctime>
#include <dirent.h>
#include <fcntl.h>
#include <pthread.h>
#include <string_view>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <system_error>
#include <unistd.h>

#include <palcore.h>

#include "platform/descriptor.h"
#include "platform/export.h"

PAL_EXPORT PalDaemonOpt palDaemonOpt = {};

namespace lanyard::port {
namespace {

constexpr size_t kNameMax = sizeof palDaemonOpt.taskName - 1;

class ErrnoKeeper {
  public:
    ErrnoKeeper() : saved_(errno) {}
    ~ErrnoKeeper() { errno = saved_; }
    ErrnoKeeper(const ErrnoKeeper &) = delete;
    ErrnoKeeper &operator=(const ErrnoKeeper &) = delete;
    ErrnoKeeper(ErrnoKeeper &&) = delete;
    ErrnoKeeper &operator=(ErrnoKeeper &&) = delete;

  private:
    int saved_;
};

// Names the process, whichever of its threads calls.
void bindTaskName() {
    const size_t length = strnlen(palDaemonOpt.taskName, kNameMax);
    if (length == 0) {
        return;
    }
    const Descriptor name(open("/proc/self/comm", O_WRONLY | O_CLOEXEC));
    if (name.get() == -1 || write(name.get(), palDaemonOpt.taskName, length) == -1) {
        // Without /proc no task can be found either; the name still shows in a core file.
        (void)prctl(PR_SET_NAME, palDaemonOpt.taskName);
    }
}

[[gnu::constructor]] void bindTaskNameOnFork() {
    (void)pthread_atfork(nullptr, nullptr, bindTaskName);
}

// Tells from /proc/<pid>/stat, "<pid> (<name>) <state> ...", whether a living process has a name.
// The name may itself hold parentheses and spaces, the rest of the line cannot.
bool statSaysAliveAs(std::string_view stat, std::string_view name) {
    const size_t open = stat.find('(');
    const size_t close = stat.rfind(')');
    if (open == std::string_view::npos || close == std::string_view::npos || close < open ||
        close + 2 >= stat.size()) {
        return false;
    }
    const char state = stat[close + 2];
    return state != 'Z' && state != 'X' && stat.substr(open + 1, close - open - 1) == name;
}

// Anyone may give a process any name; only the own user's and root's are tasks to wait for.
bool isTask(int procFolder, const char *pid, std::string_view name) {
    const Descriptor process(openat(procFolder, pid, O_PATH | O_DIRECTORY | O_CLOEXEC));
    struct stat owner {};
    if (process.get() == -1 || fstat(process.get(), &owner) != 0 ||
        (owner.st_uid != 0 && owner.st_uid != geteuid())) {
        return false;
    }
    const Descriptor stat(openat(process.get(), "stat", O_RDONLY | O_CLOEXEC));
    char text[512];
    const ssize_t length = stat.get() == -1 ? -1 : read(stat.get(), text, sizeof text);
    return length > 0 && statSaysAliveAs({text, static_cast<size_t>(length)}, name);
}

int findTask(std::string_view name) {
    const pid_t self = getpid();
    const Descriptor proc(open("/proc", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (proc.get() == -1) {
        return -1;
    }
    // readdir() allocates, which a signal handler must not.
    alignas(dirent64) char entries[4096];
    for (;;) {
        const auto filled = syscall(SYS_getdents64, proc.get(), entries, sizeof entries);
        if (filled <= 0) {
            return -1;
        }
        for (size_t at = 0; at < static_cast<size_t>(filled);) {
            const auto *entry = reinterpret_cast<const dirent64 *>(entries + at);
            at += entry->d_reclen;
            const char *end = entry->d_name + std::strlen(entry->d_name);
            pid_t pid = 0;
            const auto [rest, error] = std::from_chars(entry->d_name, end, pid);
            if (error == std::errc() && rest == end && pid != self &&
                isTask(proc.get(), entry->d_name, name)) {
                return pid;
            }
        }
    }
}

}  // namespace
}  // namespace lanyard::port

using namespace lanyard::port;

PAL_EXPORT int palTaskDelay(int milliseconds) {
    const ErrnoKeeper keeper;
    bindTaskName();
    if (milliseconds < 1) {
        return 0;
    }
    timespec left{milliseconds / 1000, milliseconds % 1000 * 1'000'000L};
    while (nanosleep(&left, &left) == -1 && errno == EINTR) {
    }
    return 0;
}

PAL_EXPORT int palTaskNameToId(const char *name) {
    if (name == nullptr || name[0] == '\0') {
        return -1;
    }
    const ErrnoKeeper keeper;
    bindTaskName();
    return findTask({name, std::min(std::strlen(name), kNameMax)});
}
