// The library as commands start it: with a configuration, for those that ask its servers, or with a dictionary.
#ifndef LANYARDCTL_CONFIGURATION_H
#define LANYARDCTL_CONFIGURATION_H

#include <optional>
#include <string>
#include <vector>

#include <lanyard/radius/conf.h>

namespace lanyardctl {

// What the library holds is given back when this goes. Its log stays off the terminal, unless PAL_DEBUG_LEVELS
// asks for it: what it says, the commands say in their own words.
class Library {
  public:
    Library();
    ~Library();
    Library(const Library &) = delete;
    Library &operator=(const Library &) = delete;
    Library(Library &&) = delete;
    Library &operator=(Library &&) = delete;
};

// The library, started with a configuration file. Throws a Failure when the library refuses the file.
class Configuration : private Library {
  public:
    explicit Configuration(const std::string &file);

    // The servers of a kind, RAD_SERVER_AUTH or RAD_SERVER_ACCT, in the order in which they are asked.
    // Time-out and retries are never -1.
    [[nodiscard]] static std::vector<RadServer> servers(int kind);
};

// The library, started with a dictionary file, or with the built-in table. Throws a Failure when it cannot be
// loaded.
class Dictionary : private Library {
  public:
    explicit Dictionary(const std::optional<std::string> &file);
};

}  // namespace lanyardctl

#endif
