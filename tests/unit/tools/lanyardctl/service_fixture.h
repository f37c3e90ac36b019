// A change service of this process between a device's database and the library in the relay's place.
#ifndef LANYARD_TESTS_LANYARDCTL_SERVICE_FIXTURE_H
#define LANYARD_TESTS_LANYARDCTL_SERVICE_FIXTURE_H

#include <chrono>
#include <gmock/gmock.h>
#include <memory>
#include <sstream>

#include "tests/unit/tools/lanyardctl/device.h"
#include "tests/unit/tools/lanyardctl/library_relay.h"
#include "tools/lanyardctl/journal.h"
#include "tools/lanyardctl/report.h"
#include "tools/lanyardctl/service.h"

namespace lanyard::test {

class ServedDevice : public testing::Test {
  protected:
    ServedDevice() { startService(); }

    // What a new process of the service would be.
    void startService() {
        service_.reset();
        report_ = std::make_unique<lanyardctl::Report>(false, said_, said_);
        service_ = std::make_unique<lanyardctl::Service>(device_.file(), relay_, *report_);
    }

    // One look, long after the one before. False when the service was killed meanwhile.
    bool look() {
        now_ += std::chrono::seconds(10);
        try {
            service_->look(now_);
            return true;
        } catch (const Killed &) {
            service_.reset();
            return false;
        }
    }

    // What the service says during its next look.
    std::string saidByLook() {
        said_.str("");
        EXPECT_TRUE(look());
        return said_.str();
    }

    static LibraryRelay::Notice notice(int operation, int row,
                                       const std::vector<std::string> &old = {}) {
        return {operation, row,
                old.empty() ? ""
                            : lanyardctl::layOut({"authserver", "authport", "authsecret",
                                                  "authtimeout", "authretries"},
                                                 old)};
    }

    // The relay asks the table's servers, in its order, and its count is right.
    void expectRelayHasTable() {
        EXPECT_EQ(device_.usable(), LibraryRelay::held());
        EXPECT_EQ(static_cast<int>(device_.usable().size()), radConfGetNumServers(RAD_SERVER_AUTH));
    }

    void expectAllDone() {
        expectRelayHasTable();
        EXPECT_EQ(device_.expectedFile(), device_.confFile());
        EXPECT_EQ(0, device_.db().number("SELECT count(*) FROM lanyardChange"));
        EXPECT_FALSE(lanyardctl::standInRow(device_.db()));
    }

    Device device_;
    LibraryRelay relay_{device_.file()};
    std::ostringstream said_;
    std::unique_ptr<lanyardctl::Report> report_;
    std::unique_ptr<lanyardctl::Service> service_;
    lanyardctl::Service::Clock::time_point now_;
};

}  // namespace lanyard::test

#endif
