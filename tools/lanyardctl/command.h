// How commands come onto the command line: each family of them adds its own.
#ifndef LANYARDCTL_COMMAND_H
#define LANYARDCTL_COMMAND_H

#include <CLI/CLI.hpp>
#include <functional>
#include <string>
#include <utility>

#include "failure.h"
#include "report.h"

namespace lanyardctl {

// What the command line asks for. It is run once all of that was understood.
using Task = std::function<ExitCode(Report &report)>;

// A command that has commands of its own.
inline CLI::App &addGroup(CLI::App &app, const std::string &name, const std::string &help) {
    CLI::App &group = *app.add_subcommand(name, help);
    group.require_subcommand(1);
    group.fallthrough();
    return group;
}

// A command. Its options are the caller's, who lets the task own what they are stored in.
inline CLI::App &addCommand(CLI::App &parent, const std::string &name, const std::string &help,
                            Task &task, Task run) {
    CLI::App &command = *parent.add_subcommand(name, help);
    command.fallthrough();
    command.callback([&task, run = std::move(run)] { task = run; });
    return command;
}

// An option that takes a text.
template <typename Text>
CLI::Option &addText(CLI::App &command, const std::string &name, Text &text,
                     const std::string &type, const std::string &help) {
    return *command.add_option(name, text, help)->type_name(type);
}

// -f FILE, the configuration.
inline void addFile(CLI::App &command, std::string &file) {
    addText(command, "-f,--file", file, "FILE", "configuration file; " + file + " without it");
}

// The families.
void addAcctCommands(CLI::App &app, Task &task);
void addCheckCommand(CLI::App &app, Task &task);
void addDecodeCommand(CLI::App &app, Task &task);
void addDictCommands(CLI::App &app, Task &task);
void addLoadCommand(CLI::App &app, Task &task);
void addLoginCommand(CLI::App &app, Task &task);
void addProbeCommand(CLI::App &app, Task &task);
void addDatabaseCommands(CLI::App &app, Task &task);

}  // namespace lanyardctl

#endif
