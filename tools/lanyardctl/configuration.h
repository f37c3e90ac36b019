// The library's configuration, for commands that ask its servers.
#ifndef LANYARDCTL_CONFIGURATION_H
#define LANYARDCTL_CONFIGURATION_H

#include <string>
#include <vector>

#include <lanyard/radius/conf.h>

namespace lanyardctl {

// The library, started with a configuration file for as long as this lives. Throws a Failure with the
// reason when the library refuses the file.
class Configuration {
  public:
    explicit Configuration(const std::string &file);
    ~Configuration();
    Configuration(const Configuration &) = delete;
    Configuration &operator=(const Configuration &) = delete;
    Configuration(Configuration &&) = delete;
    Configuration &operator=(Configuration &&) = delete;

    // The servers of a kind, RAD_SERVER_AUTH or RAD_SERVER_ACCT, in the order in which they are asked.
    // Time-out and retries are never -1.
    [[nodiscard]] static std::vector<RadServer> servers(int kind);
};

// Keeps the library's log off the terminal, unless PAL_DEBUG_LEVELS asks for it: what it says, the
// commands say in their own words. Call it before anything of the library.
void quietenLibrary();

}  // namespace lanyardctl

#endif
