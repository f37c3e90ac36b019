// The command line of pnac-wired.
#ifndef LANYARD_TOOLS_PNAC_WIRED_OPTIONS_H
#define LANYARD_TOOLS_PNAC_WIRED_OPTIONS_H

#include <cstddef>
#include <optional>
#include <string>

namespace lanyard::pnac {

struct Options {
    bool showsStatus = false;  // of the one that runs
    std::string interface = {};
    bool json = false;
    bool showKeys = false;
    std::string onAuthorized = {};
    std::string onUnauthorized = {};
    double interval = 3;
    unsigned repeats = 3;
    double relayTimeout = 30;
    size_t supplicantsMax = 2048;
    double askAgain = 60;
    double quietPeriod = 60;
    bool noPortInformation = false;
    bool usesSyslog = false;
};

// Reads the command line. Returns the status to exit with at once, after an error or --help.
std::optional<int> readOptions(int argc, char **argv, Options &options);

}  // namespace lanyard::pnac

#endif
