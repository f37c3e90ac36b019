// The command "check": what the library makes of a configuration file.
#include <CLI/CLI.hpp>
#include <memory>
#include <string>

#include "check.h"
#include "command.h"

namespace lanyardctl {
namespace {

constexpr const char *kCheckFooter =
    "Every line goes through the library's own functions. 'wrong' is what it refuses, and where it "
    "stops\n"
    "reading; 'doubtful' is what it may read otherwise than it was meant. No secret is shown.";

}  // namespace

void addCheckCommand(CLI::App &app, Task &task) {
    const auto file = std::make_shared<std::string>();
    CLI::App &command = addCommand(
        app, "check", "Tells what the lines of a configuration file mean, and what is wrong", task,
        [file](Report &report) { return tell(checkConfiguration(*file), report); });
    addText(command, "FILE", *file, "", "configuration file").required();
    command.footer(kCheckFooter);
}

}  // namespace lanyardctl
