// What the tests against the real server start from: one server for all tests of a suite, and for
// each test a device of its own, whose fixed paths lie in a temporary folder.
#ifndef LANYARD_TESTS_INTEROP_FIXTURE_H
#define LANYARD_TESTS_INTEROP_FIXTURE_H

#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <string>

#include "tests/interop/real_server.h"
#include "tests/interop/silent_server.h"
#include "tests/support/temporary_folder.h"

namespace lanyard::test {

class Interop : public testing::Test {
  protected:
    static void SetUpTestSuite();
    static void TearDownTestSuite();
    void SetUp() override;
    void TearDown() override;

    // Writes the configuration file of the device.
    void writeConfiguration(const std::string &text) const;
    // Writes it and starts the library with it.
    void configure(const std::string &text) const;
    // Installs the NT-Response program where the device has it, with the folder for its files;
    // programs that this process starts share the device from then on.
    void installNtResponse() const;

    static RealServer &server() { return *server_; }
    // Returns entry of a server list: one second, no retries.
    static std::string entry(uint16_t port, const std::string &secret);
    static std::string entry(uint16_t port) { return entry(port, server().secret()); }

    // Returns the newest Access-Request that the server took, as text.
    static std::string lastRequest();

    const TemporaryFolder &root() const { return root_; }

    // Returns what a piece of code wrote to standard output and standard error.
    struct Written {
        std::string out;
        std::string err;
    };
    static Written capture(const std::function<void()> &code);

  private:
    static std::unique_ptr<RealServer> server_;
    TemporaryFolder root_;
};

// Returns how often a text stands in another.
int occurrences(const std::string &text, const std::string &part);

}  // namespace lanyard::test

#endif
