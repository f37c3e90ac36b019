// Runs other programs.
#include <cerrno>
#include <sys/wait.h>
#include <unistd.h>

#include <palcore.h>

#include "platform/export.h"
#include "platform/root.h"
#include "platform/spawn.h"

namespace lanyard::port {
namespace {

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
    plan.resetSignals();
    plan.closeFrom(STDERR_FILENO + 1);
    pid_t child = -1;
    const int error = plan.spawn(child, program.get(), argv, environ);
    if (error != 0) {
        errno = error;
        return -1;
    }
    return waitForExit(child);
}
