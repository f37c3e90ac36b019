// lanyardctl: the administrator's tool.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cstdio>
#include <exception>
#include <string>
#include <string_view>
#include <vector>

#include "command.h"
#include "failure.h"
#include "report.h"

namespace lanyardctl {
namespace {

constexpr const char *kFooter =
    "Exit status:\n"
    "  0  done; the answer is yes\n"
    "  1  failed: a file, the database, the bus or the machine did not allow it\n"
    "  2  refused: the command line, or values that cannot be stored\n"
    "  3  there is no such server, attribute or vendor\n"
    "  4  the answer is no: the login is rejected, the file or packet is wrong or doubtful\n"
    "  5  no valid answer from a server; accounting records are kept";

constexpr std::array kFamilies = {addLoginCommand,  addProbeCommand,    addLoadCommand,
                                  addAcctCommands,  addCheckCommand,    addDictCommands,
                                  addDecodeCommand, addDatabaseCommands};

int run(int argc, char **argv) {
    bool json = false;
    CLI::App app(
        "Tells what is wrong with RADIUS logins, accounts sessions, and keeps the servers of a "
        "device.",
        "lanyardctl");
    app.require_subcommand(1);
    app.add_flag("--json", json, "answer with JSON, one document a line");
    app.set_version_flag("--version", "lanyardctl " LANYARD_VERSION);
    Task task;
    for (const auto &add : kFamilies) {
        add(app, task);
    }
    app.footer(kFooter);  // of its own help, not of those of its commands
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success &wanted) {
        return app.exit(wanted);
    } catch (const CLI::ParseError &error) {
        // A flag is set only once the whole command line was understood, and a word that nobody
        // knows is the reason why the command is missing.
        json = std::find(argv + 1, argv + argc, std::string_view("--json")) != argv + argc;
        const std::vector<std::string> unknown = app.remaining(true);
        Report(json).failure(unknown.empty() ? error.what() : CLI::ExtrasError(unknown).what());
        return kRefused;
    }
    Report report(json);
    try {
        return task(report);
    } catch (const Failure &failure) {
        report.failure(failure.what());
        return failure.status();
    } catch (const std::exception &failure) {
        report.failure(failure.what());
        return kFailed;
    }
}

}  // namespace
}  // namespace lanyardctl

int main(int argc, char **argv) try {
    return lanyardctl::run(argc, argv);
} catch (const std::exception &failure) {
    (void)std::fprintf(stderr, "lanyardctl: %s\n", failure.what());
    return lanyardctl::kFailed;
}
