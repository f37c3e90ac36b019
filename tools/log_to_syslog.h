// Has syslog take what a service says, for machines whose init system keeps no output.
#ifndef LANYARD_TOOLS_LOG_TO_SYSLOG_H
#define LANYARD_TOOLS_LOG_TO_SYSLOG_H

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <sys/types.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>
#include <utility>

#include "tools/file_descriptor.h"

namespace lanyard {

// Hands on the lines of a pipe until all who write to it have ended.
[[noreturn]] inline void handLinesOn(int pipe, const std::string &name, int priority) {
    for (const int signal : {SIGHUP, SIGINT, SIGTERM}) {
        (void)std::signal(signal, SIG_IGN);
    }
    openlog(name.c_str(), 0, LOG_DAEMON);
    char *line = nullptr;
    size_t room = 0;
    if (FILE *lines = fdopen(pipe, "r")) {
        for (ssize_t size = 0; (size = getline(&line, &room, lines)) > 0;) {
            syslog(priority, "%.*s", static_cast<int>(line[size - 1] == '\n' ? size - 1 : size),
                   line);
        }
    }
    _exit(EXIT_SUCCESS);
}

// From now on what this process and its children write to standard output and standard error goes to
// syslog, under this process's id. Processes of their own hand it on, so that a syslog that waits holds
// up nobody. Call it while there is one thread; throws std::system_error.
inline void logToSyslog(const std::string &program) {
    const std::string name = program + '[' + std::to_string(getpid()) + ']';
    for (const auto &[stream, priority] :
         {std::pair(STDOUT_FILENO, LOG_INFO), std::pair(STDERR_FILENO, LOG_WARNING)}) {
        Pipe pipe;
        const pid_t child = checked(fork(), "fork");
        if (child == 0) {
            // A grandchild is nobody's to wait for.
            if (fork() != 0) {
                _exit(EXIT_SUCCESS);
            }
            pipe.writeEnd.reset();
            handLinesOn(pipe.readEnd.get(), name, priority);
        }
        checked(dup2(pipe.writeEnd.get(), stream), "pipe");
        waitpid(child, nullptr, 0);
    }
}

}  // namespace lanyard

#endif
