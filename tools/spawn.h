// Starting programs, for programs on ordinary machines and for tests.
#ifndef LANYARD_TOOLS_SPAWN_H
#define LANYARD_TOOLS_SPAWN_H

#include <fcntl.h>
#include <span>
#include <string>
#include <system_error>
#include <unistd.h>
#include <utility>
#include <vector>

#include "platform/spawn.h"

namespace lanyard {

// Pointers to the texts, which stay where they are, and a null pointer after them: what the exec
// family takes.
inline std::vector<char *> pointersTo(std::span<std::string> texts) {
    std::vector<char *> pointers;
    pointers.reserve(texts.size() + 1);
    for (std::string &text : texts) {
        pointers.push_back(text.data());
    }
    pointers.push_back(nullptr);
    return pointers;
}

// "NAME=value", as this process has them.
inline std::vector<std::string> ownEnvironment() {
    std::vector<std::string> variables;
    for (char **variable = environ; *variable; ++variable) {
        variables.emplace_back(*variable);
    }
    return variables;
}

struct SpawnSettings {
    int out = STDOUT_FILENO;     // becomes its standard output
    int err = STDERR_FILENO;     // and its standard error
    bool resetsSignals = false;  // none is blocked or ignored in it
    bool leadsGroup = false;     // of processes
};

// Starts a program without standard input.
//
// `command` is its path and its arguments, `environment` all of its environment. Returns its process
// id, to wait for; throws std::system_error when it cannot be started.
// cppcheck-suppress passedByValue ; exec() wants texts that could be changed
inline pid_t spawn(std::vector<std::string> command, std::vector<std::string> environment,
                   const SpawnSettings &settings = {}) {
    port::SpawnPlan plan;
    plan.openAs(STDIN_FILENO, "/dev/null", O_RDONLY);
    plan.duplicate(settings.out, STDOUT_FILENO);
    plan.duplicate(settings.err, STDERR_FILENO);
    if (settings.resetsSignals) {
        plan.resetSignals();
    }
    if (settings.leadsGroup) {
        plan.leadGroup();
    }
    pid_t child = -1;
    const int error = plan.spawn(child, command.at(0).c_str(), pointersTo(command).data(),
                                 pointersTo(environment).data());
    if (error != 0) {
        throw std::system_error(error, std::generic_category(), command[0]);
    }
    return child;
}

}  // namespace lanyard

#endif
