// The service as a process, between programs that change the database and a relay on a real bus.
#include <csignal>
#include <gmock/gmock.h>
#include <memory>
#include <nlohmann/json.hpp>
#include <random>
#include <thread>

#include <lanyard/radius/conf.h>
#include <lanyard/radius/frame.h>

#include "tests/interop/child_process.h"
#include "tests/interop/wait_until.h"
#include "tests/unit/tools/lanyardctl/device.h"
#include "tests/unit/tools/lanyardctl/library_relay.h"
#include "tests/unit/tools/lanyardctl/relay_viewer.h"
#include "tools/lanyardctl/cli.h"
#include "tools/lanyardctl/journal.h"

namespace lanyard::test {
namespace {

using namespace std::chrono_literals;
using lanyardctl::kDone;
using lanyardctl::kFailed;
using testing::HasSubstr;
using testing::Not;

// A second, and one more for a machine that is busy. The bus alone would wait for five.
constexpr auto kEndsWithin = 2s;

class Serve : public testing::Test {
  protected:
    ~Serve() override {
        for (const auto *process : {&service_, &relay_}) {
            if (*process) {
                EXPECT_THAT((*process)->output(), Not(HasSubstr("Sanitizer")));
            }
        }
    }

    std::vector<std::string> settings() const {
        return {"PAL_ROOT=" + device_.root().folder().string(), "PAL_DEBUG_LEVELS=0"};
    }

    void startRelay() {
        relay_.emplace(std::vector<std::string>{LANYARDCTL_TEST_RELAY, device_.file()}, settings(),
                       device_.root().path("/relay-output"));
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
    bool nothingPending() const {
        return device_.db().number("SELECT count(*) FROM lanyardChange") == 0;
    }
    void expectAllDone() {
        EXPECT_TRUE(waitUntil([this] { return nothingPending(); }));
        EXPECT_TRUE(waitUntil([this] { return relayHasTable(); }))
            << testing::PrintToString(viewer_.look()->servers.size());
        EXPECT_TRUE(fileHasTable()) << device_.confFile();
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

TEST_F(Serve, TakesEditsToTheRelayAndToTheFile) {
    startRelay();
    startService();
    EXPECT_EQ(kDone, command({"add", "127.0.0.1", "--secret", "s1"}).status);
    expectServers({{1, "127.0.0.1", "1812", "s1", "10", "3"}});
    EXPECT_EQ(kDone, command({"add", "b.example", "--secret", "s2", "--port", "1645"}).status);
    expectServers(
        {{1, "127.0.0.1", "1812", "s1", "10", "3"}, {2, "b.example", "1645", "s2", "10", "3"}});
    EXPECT_EQ(kDone, command({"set", "127.0.0.1", "--secret", "new", "--timeout", "5", "--retries",
                              "0", "--port", "11812"})
                         .status);
    expectServers(
        {{1, "127.0.0.1", "11812", "new", "5", "0"}, {2, "b.example", "1645", "s2", "10", "3"}});
    EXPECT_EQ(kDone, command({"set", "127.0.0.1", "--host", "127.0.0.2"}).status);
    expectServers(
        {{1, "127.0.0.2", "11812", "new", "5", "0"}, {2, "b.example", "1645", "s2", "10", "3"}});
    EXPECT_EQ(kDone, command({"del", "1"}).status);
    expectServers({{2, "b.example", "1645", "s2", "10", "3"}});
    EXPECT_EQ(kDone, command({"del", "b.example"}).status);
    expectServers({});
    EXPECT_FALSE(device_.root().exists("/var/radius.conf"));
}

TEST_F(Serve, SeesChangesOfTheDatabaseShell) {
    startRelay();
    startService();
    const ProgramResult shell = runProgram(
        {"/usr/bin/sqlite3", device_.file(), ".timeout 5000", insertion("a"), insertion("b"),
         "UPDATE radiusClient SET authsecret='it''s' WHERE authserver='a'"},
        {});
    EXPECT_EQ(0, shell.status) << shell.err;
    expectAllDone();
    EXPECT_EQ("it's", viewer_.look()->servers.at(0).secret);
}

TEST_F(Serve, CatchesUpWithWhatHappenedWhileItWasDown) {
    startRelay();
    startService();
    device_.change(insertion("a"));
    device_.change(insertion("b"));
    expectAllDone();
    killService();
    device_.change("DELETE FROM radiusClient WHERE authserver='a'");
    device_.change(insertion("c"));
    device_.change("UPDATE radiusClient SET authport='7' WHERE authserver='b'");
    startService();
    expectAllDone();
}

TEST_F(Serve, GivesARelayThatStartsLaterEverything) {
    startService();
    device_.change(insertion("a"));
    device_.change(insertion("b"));
    EXPECT_TRUE(waitUntil([this] { return nothingPending(); }));
    EXPECT_TRUE(fileHasTable());
    startRelay();
    expectAllDone();
    stopRelay();
    startRelay();
    expectAllDone();
}

TEST_F(Serve, ReplayWorksWithAndWithoutTheService) {
    device_.change(insertion("a"));
    device_.change(insertion("b"));
    ProgramResult result = command({"replay"});
    EXPECT_EQ(kFailed, result.status);
    EXPECT_EQ("lanyardctl: no relay answers on the bus\n", result.err);
    startRelay();
    for (int i = 0; i < 2; ++i) {
        result = command({"replay"});
        EXPECT_EQ(kDone, result.status) << result.err;
        EXPECT_EQ("the relay has all servers\n", result.out);
        EXPECT_TRUE(relayHasTable());
    }
    startService();
    expectAllDone();
    EXPECT_EQ(kDone, command({"replay"}).status);
    expectAllDone();
    stopRelay();
    result = command({"replay"});
    EXPECT_EQ(kFailed, result.status);
    EXPECT_EQ("lanyardctl: no relay answers on the bus\n", result.err);
}

TEST_F(Serve, RunsOnce) {
    startService();
    const ProgramResult second = command({"serve"});
    EXPECT_EQ(kFailed, second.status);
    EXPECT_EQ(
        "lanyardctl: cannot register as module 20 of the bus; another service runs already?\n",
        second.err);
}

TEST_F(Serve, EndsWithinASecondOfASignal) {
    startRelay();
    for (const int number : {SIGTERM, SIGINT}) {
        startService();
        const auto start = std::chrono::steady_clock::now();
        service_->signal(number);
        EXPECT_EQ(0, service_->wait());
        EXPECT_LT(std::chrono::steady_clock::now() - start, kEndsWithin);
        EXPECT_THAT(service_->output(), HasSubstr("service: ends\n"));
    }
    // Also while it waits for a relay that does not answer. It asks one that it knows nothing of at
    // once, and the next change waits until it has given up; so it gets to know this one first.
    startService();
    device_.change(insertion("a"));
    expectAllDone();
    relay_->signal(SIGSTOP);
    device_.change(insertion("b"));
    EXPECT_TRUE(waitUntil([this] { return fileHasTable(); }));
    std::this_thread::sleep_for(50ms);
    const auto start = std::chrono::steady_clock::now();
    service_->signal(SIGTERM);
    EXPECT_EQ(0, service_->wait());
    EXPECT_LT(std::chrono::steady_clock::now() - start, kEndsWithin);
    relay_->signal(SIGCONT);
    startService();
    expectAllDone();
}

TEST_F(Serve, HangupHasItReadAndWriteAgain) {
    startRelay();
    startService();
    device_.change(insertion("a"));
    expectAllDone();
    device_.root().write("/var/radius.conf", "spoilt\n");
    service_->signal(SIGHUP);
    EXPECT_TRUE(waitUntil([this] { return fileHasTable(); })) << device_.confFile();
    EXPECT_EQ(0600U, device_.root().mode("/var/radius.conf"));
    EXPECT_THAT(service_->output(), HasSubstr("service: reads the table again\n"));
    device_.change(insertion("b"));
    expectAllDone();
}

// With the first change it is the service's.
TEST_F(Serve, HangupLeavesAFileOfSomebodyElse) {
    device_.root().write("/var/radius.conf", "authserver 192.0.2.1:secret\n");
    startService();
    service_->signal(SIGHUP);
    EXPECT_TRUE(service_->waitForOutput("service: reads the table again\n"));
    service_->signal(SIGTERM);
    EXPECT_EQ(0, service_->wait());
    EXPECT_EQ("authserver 192.0.2.1:secret\n", device_.confFile());
}

TEST_F(Serve, WaitsForALockedDatabase) {
    startRelay();
    startService();
    device_.change("BEGIN EXCLUSIVE");
    device_.change(insertion("a"));
    std::this_thread::sleep_for(300ms);
    device_.change("COMMIT");
    expectAllDone();
}

TEST_F(Serve, NamesTheDictionary) {
    service_.emplace(std::vector<std::string>{LANYARDCTL, "db", "serve", "-d", device_.file(),
                                              "--dictionary", "/none.dict"},
                     settings(), device_.root().path("/service-output"));
    EXPECT_TRUE(service_->waitForOutput("dictionary: PROBLEM: the dictionary '/none.dict' cannot"))
        << service_->output();
    EXPECT_EQ("/none.dict", lanyardctl::readDictionary(device_.db()));
}

TEST_F(Serve, SpeaksJson) {
    service_.emplace(
        std::vector<std::string>{LANYARDCTL, "--json", "db", "serve", "-d", device_.file()},
        settings(), device_.root().path("/service-output"));
    device_.change("INSERT INTO radiusClient(authserver) VALUES('a\"')");
    ASSERT_TRUE(service_->waitForOutput("stays as it was"));
    service_->signal(SIGTERM);
    EXPECT_EQ(0, service_->wait());
    std::istringstream lines(service_->output());
    int problems = 0;
    for (std::string line; std::getline(lines, line);) {
        const auto document = nlohmann::json::parse(line);
        EXPECT_TRUE(document.contains("topic"));
        problems += document.contains("problem") ? 1 : 0;
    }
    EXPECT_GE(problems, 1);
}

// A change of the server with this host, or a new one where there is none.
std::string anyChange(const std::string &host, int kind) {
    const std::string where = " WHERE authserver='" + host + "'";
    switch (kind) {
        case 0:
        case 1:
            return "INSERT INTO radiusClient SELECT '" + host +
                   "','1812','s','5','3' WHERE NOT EXISTS(SELECT 1 FROM radiusClient" + where + ")";
        case 2:
            return "UPDATE radiusClient SET authsecret=authsecret || 'x'" + where;
        default:
            return "DELETE FROM radiusClient" + where;
    }
}

TEST_F(Serve, LosesNothingWhenItIsKilledAtAnyMoment) {
    device_.db().run("PRAGMA synchronous=OFF");
    startRelay();
    startService();
    // The same changes each time, at other moments.
    std::mt19937 random(7);  // NOLINT(cert-msc32-c,cert-msc51-cpp): that is what it is for
    const auto pick = [&random](int count) {
        return std::uniform_int_distribution<int>(0, count - 1)(random);
    };
    for (int kills = 0; kills < 12; ++kills) {
        for (int i = 0; i < 8; ++i) {
            device_.change(anyChange("h" + std::to_string(pick(7)), pick(4)));
            std::this_thread::sleep_for(std::chrono::microseconds(pick(20000)));
        }
        killService();
        if (pick(4) == 0) {
            stopRelay();
            startRelay();
        }
        startService();
        std::this_thread::sleep_for(std::chrono::microseconds(pick(30000)));
    }
    expectAllDone();
}

}  // namespace
}  // namespace lanyard::test
