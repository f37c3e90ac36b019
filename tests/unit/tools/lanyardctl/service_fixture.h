// A change service of this process between a device's database and the library in the relay's place.
#ifndef LANYARD_TESTS_LANYARDCTL_SERVICE_FIXTURE_H
#define LANYARD_TESTS_LANYARDCTL_SERVICE_FIXTURE_H

#include <gmock/gmock.h>
#include <memory>
#include <sstream>

#include "tests/unit/tools/lanyardctl/device.h"
#include "tests/unit/tools/lanyardctl/library_relay.h"
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

    void look() { service_->look(); }

    // As many looks as it takes, but for what needs somebody's help.
    void settle() {
        constexpr int kLooks = 8;
        for (int i = 0; i < kLooks; ++i) {
            look();
        }
    }

    // What the service says during its next look.
    std::string saidByLook() {
        said_.str("");
        look();
        return said_.str();
    }

    static LibraryRelay::Notice notice(int operation, int row,
                                       const std::vector<std::string> &old = {}) {
        std::string texts;
        if (!old.empty()) {
            for (const char *name :
                 {"authserver", "authport", "authsecret", "authtimeout", "authretries"}) {
                texts += name + std::string(1, '\0');
            }
        }
        for (const std::string &value : old) {
            texts += value + '\0';
        }
        return {operation, row, texts};
    }

    // The relay asks the table's servers, in its order, and its count is right.
    void expectRelayHasTable() {
        EXPECT_EQ(device_.usable(), LibraryRelay::held());
        EXPECT_EQ(static_cast<int>(device_.usable().size()), radConfGetNumServers(RAD_SERVER_AUTH));
    }

    void expectAllDone() {
        expectRelayHasTable();
        EXPECT_EQ(device_.expectedFile(), device_.confFile());
    }

    Device device_;
    LibraryRelay relay_{device_.file()};
    std::ostringstream said_;
    std::unique_ptr<lanyardctl::Report> report_;
    std::unique_ptr<lanyardctl::Service> service_;
};

}  // namespace lanyard::test

#endif
