#include "tools/pnac_wired/options.h"

#include <CLI/CLI.hpp>

namespace lanyard::pnac {

std::optional<int> readOptions(int argc, char **argv, Options &options) {
    CLI::App app(
        "Port-access authenticator (IEEE 802.1X) of an Ethernet interface. Hands EAP packets to "
        "the "
        "EAP relay over the management bus.");
    app.set_version_flag("--version", "pnac-wired " LANYARD_VERSION);
    app.add_option("interface", options.interface, "interface that supplicants are on");
    app.add_flag("--json", options.json, "print a JSON object for each event");
    app.add_flag("--show-keys", options.showKeys, "print MS-MPPE keys, not only their lengths");
    app.add_option("--on-authorized", options.onAuthorized,
                   "program to run, without a shell, when a supplicant has logged in")
        ->type_name("PROGRAM")
        ->check(CLI::ExistingFile);
    app.add_option("--on-unauthorized", options.onUnauthorized,
                   "program to run when a session has ended")
        ->type_name("PROGRAM")
        ->check(CLI::ExistingFile);
    app.add_option("--interval", options.interval,
                   "seconds before a request to a supplicant is sent again")
        ->capture_default_str()
        ->check(CLI::Range(0.01, 3600.0));
    app.add_option("--repeats", options.repeats, "how often it is sent again")
        ->capture_default_str()
        ->check(CLI::Range(0U, 100U));
    app.add_option("--relay-timeout", options.relayTimeout,
                   "seconds to wait for the relay's answer")
        ->capture_default_str()
        ->check(CLI::Range(0.01, 3600.0));
    app.add_option("--ask-again", options.askAgain,
                   "seconds before the supplicant of a session is asked again after no server or "
                   "relay has answered")
        ->capture_default_str()
        ->check(CLI::Range(0.01, 86400.0));
    app.add_option("--max-supplicants", options.supplicantsMax, "conversations at once")
        ->capture_default_str()
        ->check(CLI::Range(size_t{1}, size_t{65536}));
    app.add_option("--quiet-period", options.quietPeriod,
                   "seconds in which nothing is heard of an address that was rejected; 0 for none")
        ->capture_default_str()
        ->check(CLI::Range(0.0, 65535.0));
    app.add_flag("--no-port-information", options.noPortInformation,
                 "do not tell the relay the supplicant's address and the port");
    app.add_flag("--syslog", options.usesSyslog, "log to syslog, not to the standard streams");
    CLI::App *status = app.add_subcommand(
        "status", "print the sessions, logins and counters of the one that runs, and exit");
    status->add_flag("--json", options.json, "as a JSON object");
    status->add_option("interface", options.interface, "its interface; all by default");
    try {
        app.parse(argc, argv);
        options.showsStatus = status->parsed();
        if (options.interface.empty() && !options.showsStatus) {
            throw CLI::RequiredError("interface");
        }
    } catch (const CLI::ParseError &error) {
        return app.exit(error);
    }
    return std::nullopt;
}

}  // namespace lanyard::pnac
