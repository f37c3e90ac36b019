// Runs other programs.
#include <cerrno>
#include <csignal>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <palcore.h>

#include "platform/export.h"
#include "platform/root.h"

#ifdef __GLIBC__
#if __GLIBC_PREREQ(2, 34)
#define LANYARD_HAVE_CLOSEFROM
#endif
#endif

namespace lanyard::port {
namespace {

// What the child gets: standard input, output and error, and signals as after a login.
class SpawnPlan {
  public:
    SpawnPlan() {
        haveAttributes_ = posix_spawnattr_init(&attributes_) == 0;
        haveActions_ = posix_spawn_file_actions_init(&actions_) == 0;
    }
    ~SpawnPlan() {
        if (haveAttributes_) {
            posix_spawnattr_destroy(&attributes_);
        }
        if (haveActions_) {
            posix_spawn_file_actions_destroy(&actions_);
        }
    }
    SpawnPlan(const SpawnPlan &) = delete;
    SpawnPlan &operator=(const SpawnPlan &) = delete;
    SpawnPlan(SpawnPlan &&) = delete;
    SpawnPlan &operator=(SpawnPlan &&) = delete;

    // Returns 0 or an error number.
    int prepare() {
        if (!haveAttributes_ || !haveActions_) {
            return ENOMEM;
        }
        sigset_t none;
        sigset_t all;
        sigemptyset(&none);
        sigfillset(&all);
        int error = posix_spawnattr_setsigmask(&attributes_, &none);
        if (error == 0) {
            error = posix_spawnattr_setsigdefault(&attributes_, &all);
        }
        if (error == 0) {
            error = posix_spawnattr_setflags(&attributes_,
                                             POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
        }
#ifdef LANYARD_HAVE_CLOSEFROM
        // Descriptors that other parts of the process have opened may lack close-on-exec.
        if (error == 0) {
            error = posix_spawn_file_actions_addclosefrom_np(&actions_, STDERR_FILENO + 1);
        }
#endif
        return error;
    }

    // Returns 0 or an error number.
    int spawn(pid_t &child, const char *program, char *const argv[]) const {
        return posix_spawn(&child, program, &actions_, &attributes_, argv, environ);
    }

  private:
    posix_spawnattr_t attributes_{};
    posix_spawn_file_actions_t actions_{};
    bool haveAttributes_ = false;
    bool haveActions_ = false;
};

int waitForExit(pid_t child) {
    int status = 0;
    pid_t ended = -1;
    do {
        ended = waitpid(child, &status, 0);
    } while (ended == -1 && errno == EINTR);
    return ended == child && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace
}  // namespace lanyard::port

using namespace lanyard::port;

PAL_EXPORT int palCmdExecArgv(char *const argv[], int /*reserved1*/, int /*reserved2*/) {
    if (argv == nullptr || argv[0] == nullptr) {
        errno = EINVAL;
        return -1;
    }
    const RootedPath program(argv[0]);
    if (program.get() == nullptr) {
        return -1;
    }
    SpawnPlan plan;
    pid_t child = -1;
    int error = plan.prepare();
    if (error == 0) {
        error = plan.spawn(child, program.get(), argv);
    }
    if (error != 0) {
        errno = error;
        return -1;
    }
    return waitForExit(child);
}
