// Sleep and programs. No task of another name is known: a relay on this layer is the only one.
#include <errno.h>
#include <signal.h>
#include <stddef.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <palcore.h>

PalDaemonOpt palDaemonOpt;

int palTaskDelay(int milliseconds) {
    const int error = errno;
    struct timespec left = {milliseconds / 1000, milliseconds % 1000 * 1000000L};
    while (milliseconds > 0 && nanosleep(&left, &left) != 0 && errno == EINTR) {
    }
    errno = error;
    return 0;
}

int palTaskNameToId(const char *name) {
    (void)name;
    return -1;
}

int palCmdExecArgv(char *const argv[], int reserved1, int reserved2) {
    (void)reserved1, (void)reserved2;
    if (argv == NULL || argv[0] == NULL) {
        return -1;
    }
    const pid_t child = fork();
    if (child == 0) {
        sigset_t none;
        sigemptyset(&none);
        for (int number = 1; number < NSIG; ++number) {
            (void)signal(number, SIG_DFL);
        }
        sigprocmask(SIG_SETMASK, &none, NULL);
        for (int fd = 3; fd < (int)sysconf(_SC_OPEN_MAX) && fd < 4096; ++fd) {
            close(fd);
        }
        execv(argv[0], argv);
        _exit(127);
    }
    int status = 0;
    while (child > 0 && waitpid(child, &status, 0) != child) {
        if (errno != EINTR) {
            return -1;
        }
    }
    return child > 0 && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}
