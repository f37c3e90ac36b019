// The command "load": how many logins a second does a server take, how fast are its answers, and what fails?
#include <CLI/CLI.hpp>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <lanyard/radius/frame.h>
#include <lanyard/radius/status.h>

#include "command.h"
#include "configuration.h"
#include "load.h"
#include "load_report.h"
#include "load_targets.h"
#include "method_option.h"
#include "progress.h"
#include "secret.h"
#include "table.h"

namespace lanyardctl {
namespace {

constexpr const char *kLoadFooter =
    "Only servers on this machine (127.0.0.0/8) are asked, and those whose addresses are "
    "confirmed.\n"
    "A user file has a name, blanks and a password on each line; its users log in in turn. The\n"
    "password of USER is asked for as by 'login'. Ctrl-C ends a load early, with the figures so "
    "far.";

constexpr uint64_t kLoginsMax = 1'000'000'000;
constexpr unsigned kAtOnceMax = 10'000;

struct LoadOptions {
    std::string file = radLibDefConf();
    std::string method = "pap";
    uint64_t logins = 1000;
    unsigned atOnce = 50;
    std::string user = {};
    std::string userFile = {};
    std::optional<std::string> passwordFile = {};
    std::vector<std::string> confirmed = {};
};

// Makes the library's partition: for what requests share, and for each in flight with its packet and its answer.
void reserveMemory(unsigned atOnce) {
    constexpr uint32_t kShared = 256 << 10;
    constexpr uint32_t kEach = 4 << 10;
    radMemInit(kShared + atOnce * kEach);
}

std::vector<RadServerStatus> serverCounts() {
    std::vector<RadServerStatus> servers;
    RadServerStatus status;
    for (int i = 0; radServerStatusAt(i, &status) == 0; ++i) {
        servers.push_back(status);
    }
    return servers;
}

ExitCode load(const LoadOptions &options, const Report &report) {
    if (options.user.empty() == options.userFile.empty()) {
        throw Failure("a load needs either USER or --user-file", kRefused);
    }
    reserveMemory(options.atOnce);
    const Configuration configuration(options.file);
    keepToTargets(options.confirmed);
    LoadPlan plan{methodOf(options.method), options.logins, options.atOnce, {}};
    if (options.user.empty()) {
        plan.users = readLoadUsers(options.userFile);
    } else {
        const Secret password =
            askForPassword(options.passwordFile, "Password of " + shown(options.user) + ": ");
        plan.users.emplace_back(options.user, password.text());
    }
    LoadFigures figures;
    {
        ProgressLine line;
        figures = runLoad(plan, [&](const LoadFigures &soFar) {
            if (line.isDue()) {
                line.write(progressOf(plan, soFar));
            }
        });
    }
    const std::vector<RadServerStatus> servers = serverCounts();
    report.answer(asDocument(plan, figures, servers), asText(plan, figures, servers));
    return exitCodeOf(figures);
}

}  // namespace

void addLoadCommand(CLI::App &app, Task &task) {
    const auto options = std::make_shared<LoadOptions>();
    CLI::App &command = addCommand(
        app, "load", "Logs users in over and over: how many a second, how fast, what fails", task,
        [options](Report &report) { return load(*options, report); });
    CLI::Option &user = addText(command, "USER", options->user, "", "name of the user");
    addText(command, "--user-file", options->userFile, "FILE",
            "file with users and their passwords")
        .excludes(&user);
    addText(command, "--password-file", options->passwordFile, "FILE",
            "file whose first line is the password, - for standard input")
        .needs(&user);
    addMethod(command, options->method);
    command.add_option("-n,--logins", options->logins, "how many logins; 1000 without it")
        ->type_name("COUNT")
        ->check(CLI::Range(uint64_t{1}, kLoginsMax).description(""));
    command
        .add_option("-c,--at-once", options->atOnce,
                    "how many at once, at most 10000; 50 without it")
        ->type_name("COUNT")
        ->check(CLI::Range(1U, kAtOnceMax).description(""));
    // Each takes one, so that USER may follow.
    addText(command, "--confirm-address", options->confirmed, "ADDRESS",
            "address of a server elsewhere that may be asked; once for each")
        .allow_extra_args(false)
        ->check(CLI::ValidIPV4.description(""));
    addFile(command, options->file);
    command.footer(kLoadFooter);
}

}  // namespace lanyardctl
