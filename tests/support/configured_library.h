// The library, started from nothing, with the built-in dictionary and a list of servers; it is
// stopped with the object.
//
//     ScriptedServer server("secret", {accept()});
//     const ConfiguredLibrary library({.authServers = {serverEntry(server)}, .timeout = "1"});
//     EXPECT_EQ(0, radAuth("nemo", "arctangent"));
//
// Paths of the device lie in the temporary folder root(), where /var/hosts gives this machine's own
// name the address 127.0.0.1, as far as the system's resolver does not know it.
//
// At the end it removes the hooks, stops the library and, in a program that links
// lanyard-test-partition, fails the test when the library's partition was destroyed with live
// blocks in it or a block of the heap is left over: free the replies before. Start and stop are not
// for forEachFailingAllocation(): put the object around it.
#ifndef LANYARD_TESTS_SUPPORT_CONFIGURED_LIBRARY_H
#define LANYARD_TESTS_SUPPORT_CONFIGURED_LIBRARY_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tests/support/scripted_server.h"
#include "tests/support/temporary_root.h"

namespace lanyard::test {

// Parameters of radConfAddAuthServ() and radConfAddAcctServ(); -1 stands for the default.
struct ServerEntry {
    std::string host = "127.0.0.1";
    int port = 0;
    int timeout = -1;
    int retries = -1;
    std::string secret = "secret";
    std::optional<std::string> extra = {};  // NAS-Identifier, for authentication servers alone
};

ServerEntry serverEntry(const ScriptedServer &server, int timeout = -1, int retries = -1);
ServerEntry serverEntry(const SilentPort &server, int timeout = -1, int retries = -1);

struct LibraryConfiguration {
    std::vector<ServerEntry> authServers = {};
    std::vector<ServerEntry> acctServers = {};
    std::string timeout = "1";  // seconds
    std::string retries = "0";
    uint32_t partition = 0;  // bytes; 0: as the library makes it by itself
};

class ConfiguredLibrary {
  public:
    explicit ConfiguredLibrary(const LibraryConfiguration &configuration = {});
    ConfiguredLibrary(const ConfiguredLibrary &) = delete;
    ConfiguredLibrary &operator=(const ConfiguredLibrary &) = delete;
    ~ConfiguredLibrary();

    [[nodiscard]] const TemporaryRoot &root() const { return root_; }

  private:
    TemporaryRoot root_;
    size_t heapBlocksBefore_;
};

}  // namespace lanyard::test

#endif
