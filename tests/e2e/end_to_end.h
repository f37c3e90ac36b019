// What every end-to-end test starts from: one wire and one real server for all of them, and for
// each a device of its own, with the server in its database and all its programs running but the
// authenticator.
#ifndef LANYARD_TESTS_E2E_END_TO_END_H
#define LANYARD_TESTS_E2E_END_TO_END_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <string>

#include "tests/e2e/device.h"
#include "tests/e2e/supplicant.h"
#include "tests/e2e/virtual_wire.h"
#include "tests/interop/real_server.h"

namespace lanyard::test {

class EndToEnd : public testing::Test {
  public:
    // Has all tests skipped, for that reason.
    static void skip(const std::string &reason);

  protected:
    static void SetUpTestSuite();
    void SetUp() override;
    void TearDown() override;

    static VirtualWire &wire() { return *wire_; }
    static RealServer &server() { return *server_; }
    Device &device() { return *device_; }

    // Puts the real server into the database.
    void addServer();
    // Starts a supplicant, and an authenticator that asks it.
    std::unique_ptr<Supplicant> connect(const Account &account);
    // Has a new supplicant knock at the authenticator that runs.
    // Returns the event that comes of it, on which both ends agree.
    Event knock(const Account &account);

  private:
    static std::string reasonToSkip_;
    static std::unique_ptr<VirtualWire> wire_;
    static std::unique_ptr<RealServer> server_;
    std::unique_ptr<Device> device_;
    size_t knocks_ = 0;
};

}  // namespace lanyard::test

#endif
