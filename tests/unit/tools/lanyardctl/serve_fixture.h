// The service as a process, between programs that change the database and a relay on a real bus.
#ifndef LANYARD_TESTS_LANYARDCTL_SERVE_FIXTURE_H
#define LANYARD_TESTS_LANYARDCTL_SERVE_FIXTURE_H

#include <csignal>
#include <gmock/gmock.h>
#include <optional>
#include <string>
#include <vector>

#include <lanyard/radius/conf.h>
#include <lanyard/radius/frame.h>

#include "tests/interop/child_process.h"
#include "tests/interop/wait_until.h"
#include "tests/unit/tools/lanyardctl/device.h"
#include "tests/unit/tools/lanyardctl/library_relay.h"
#include "tests/unit/tools/lanyardctl/relay_viewer.h"

namespace lanyard::test {

class ServedProcesses : public testing::Test {
  protected:
    ~ServedProcesses() override {
        for (const auto *process : {&service_, &relay_}) {
            if (*process) {
                EXPECT_THAT((*process)->output(), testing::Not(testing::HasSubstr("Sanitizer")));
            }
        }
    }

    std::vector<std::string> settings() const {
        return {"PAL_ROOT=" + device_.root().folder().string(), "PAL_DEBUG_LEVELS=0"};
    }

    // One that is started again when it has ended, or one that is not.
    void startRelay(const std::vector<std::string> &options = {}) {
        std::vector<std::string> command = {LANYARDCTL_TEST_RELAY};
        command.insert(command.end(), options.begin(), options.end());
        command.push_back(device_.file());
        relay_.emplace(command, settings(), device_.root().path("/relay-output"));
        ASSERT_TRUE(relay_->waitForOutput("ready\n")) << relay_->output();
    }
    void stopRelay() {
        relay_->signal(SIGTERM);
        EXPECT_EQ(0, relay_->wait()) << relay_->output();
        relay_.reset();
    }
    void startService() {
        service_.emplace(std::vector<std::string>{LANYARDCTL, "db", "serve", "-d", device_.file()},
                         settings(), device_.root().path("/service-output"));
        ASSERT_TRUE(service_->waitForOutput("service: serves " + device_.file() + "\n"))
            << service_->output();
    }
    void killService() {
        service_->signal(SIGKILL);
        EXPECT_EQ(-1, service_->wait());
    }
    ProgramResult command(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), {LANYARDCTL, "db", "-d", device_.file()});
        return runProgram(arguments, settings());
    }

    bool relayHasTable() {
        const auto held = viewer_.look();
        return held && held->servers == device_.usable() &&
               held->count == static_cast<int>(held->servers.size());
    }
    bool fileHasTable() const { return device_.confFile() == device_.expectedFile(); }
    void expectAllDone() {
        EXPECT_TRUE(waitUntil([this] { return fileHasTable(); })) << device_.confFile();
        EXPECT_TRUE(waitUntil([this] { return relayHasTable(); })) << service_->output();
    }

    // The relay has these servers, and so has a program that reads the file now.
    void expectServers(std::vector<lanyardctl::Server> servers) {
        expectAllDone();
        const auto held = viewer_.look();
        ASSERT_TRUE(held);
        EXPECT_EQ(servers, held->servers);
        EXPECT_EQ(static_cast<int>(servers.size()), held->count);
        EXPECT_EQ(servers.empty() ? -1 : 0, radConfigure("/var/radius.conf"));
        for (auto &server : servers) {
            server.id = -1;  // the file does not know of rows
        }
        EXPECT_EQ(servers, LibraryRelay::held());
        radDeconfigure();
    }

    Device device_;
    RelayViewer viewer_;
    std::optional<RunningProgram> relay_;
    std::optional<RunningProgram> service_;
};

}  // namespace lanyard::test

#endif
