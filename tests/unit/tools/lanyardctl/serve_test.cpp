// The service as a process, between programs that change the database and a relay on a real bus.
#include <chrono>
#include <fcntl.h>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <sstream>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

#include <palcore.h>

#include "tests/unit/tools/lanyardctl/serve_fixture.h"
#include "tools/file_descriptor.h"
#include "tools/lanyardctl/failure.h"

namespace lanyard::test::serve_test {
namespace {

using namespace std::chrono_literals;
using lanyardctl::kDone;
using lanyardctl::kFailed;
using testing::HasSubstr;
using testing::Not;

// A second, and three more for a machine that is busy. The bus and the database alone would wait for
// five.
constexpr auto kEndsWithin = 4s;

using Serve = ServedProcesses;

TEST_F(Serve, TakesEditsToTheRelayAndToTheFile) {
    startRelay();
    startService();
    EXPECT_EQ(kDone, command({"add", "127.0.0.1", "--secret", "s1"}).status);
    expectServers({{1, "127.0.0.1", "1812", "s1", "3", "1"}});
    EXPECT_EQ(kDone, command({"add", "b.example", "--secret", "s2", "--port", "1645"}).status);
    expectServers(
        {{1, "127.0.0.1", "1812", "s1", "3", "1"}, {2, "b.example", "1645", "s2", "3", "1"}});
    EXPECT_EQ(kDone, command({"set", "127.0.0.1", "--secret", "new", "--timeout", "5", "--retries",
                              "0", "--port", "11812"})
                         .status);
    expectServers(
        {{1, "127.0.0.1", "11812", "new", "5", "0"}, {2, "b.example", "1645", "s2", "3", "1"}});
    EXPECT_EQ(kDone, command({"set", "127.0.0.1", "--host", "127.0.0.2"}).status);
    expectServers(
        {{1, "127.0.0.2", "11812", "new", "5", "0"}, {2, "b.example", "1645", "s2", "3", "1"}});
    EXPECT_EQ(kDone, command({"del", "1"}).status);
    expectServers({{2, "b.example", "1645", "s2", "3", "1"}});
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
    EXPECT_TRUE(waitUntil([this] { return fileHasTable(); }));
    startRelay();
    expectAllDone();
    EXPECT_THAT(service_->output(), Not(HasSubstr("told to end")));
    stopRelay();
    startRelay();
    expectAllDone();
}

TEST_F(Serve, GoesOnWhenNobodyReadsWhatItSays) {
    const auto pipe = device_.root().path("/pipe");
    ASSERT_EQ(0, mkfifo(pipe.c_str(), 0600));
    std::optional<FileDescriptor> reader(std::in_place,
                                         open(pipe.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC), "");
    service_.emplace(
        std::vector<std::string>{"/bin/sh", "-c", "exec \"$0\" db serve -d \"$1\" >\"$2\" 2>&1",
                                 LANYARDCTL, device_.file(), pipe},
        settings(), device_.root().path("/service-output"));
    char first = 0;
    ASSERT_TRUE(waitUntil([&] { return read(reader->get(), &first, 1) == 1; }));
    reader.reset();
    for (const char *host : {"a", "b"}) {
        device_.change(insertion(host));
        EXPECT_TRUE(waitUntil([this] { return fileHasTable(); })) << device_.confFile();
    }
}

TEST_F(Serve, LeavesTheRelayOfAnotherRootFolderAlone) {
    const auto program = device_.root().path("/tRadEap");
    std::filesystem::create_symlink("/bin/sleep", program);
    const RunningProgram other({program, "600"}, {}, device_.root().path("/other-output"));
    ASSERT_TRUE(waitUntil([] { return palTaskNameToId("tRadEap") != -1; }));
    startService();
    EXPECT_TRUE(service_->waitForOutput("relay: none answers on the bus")) << service_->output();
    EXPECT_THAT(service_->output(), Not(HasSubstr("told to end")));
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
    const pid_t before = viewer_.look()->process;
    result = command({"replay"});
    EXPECT_EQ(kDone, result.status) << result.err;
    EXPECT_TRUE(relayHasTable());
    EXPECT_NE(before, viewer_.look()->process);
    stopRelay();
    result = command({"replay"});
    EXPECT_EQ(kFailed, result.status);
    EXPECT_EQ("lanyardctl: no relay answers on the bus\n", result.err);
}

TEST_F(Serve, ReplayIsRefusedForAnotherDatabase) {
    startService();
    const std::string other = device_.root().path("/other.db").string();
    EXPECT_EQ(kDone, runProgram({LANYARDCTL, "db", "-d", other, "init"}, settings()).status);
    const ProgramResult result = runProgram({LANYARDCTL, "db", "-d", other, "replay"}, settings());
    EXPECT_EQ(kFailed, result.status);
    EXPECT_EQ("lanyardctl: the service that runs does not serve " + other + "\n", result.err);
}

TEST_F(Serve, HasARelayThatRunsRestarted) {
    device_.change(insertion("a"));
    startRelay();
    const pid_t before = viewer_.look()->process;
    startService();
    expectAllDone();
    EXPECT_NE(before, viewer_.look()->process);
    EXPECT_THAT(service_->output(), HasSubstr("relay: told to end"));
}

TEST_F(Serve, TellsARelayToEndThatNobodyStartsAgain) {
    startRelay({"--once"});
    startService();
    EXPECT_EQ(0, relay_->wait());
    device_.change(insertion("a"));
    startRelay({"--once"});
    expectAllDone();
}

TEST_F(Serve, GivesARelayThatDidNotListenWhatHasChanged) {
    startService();
    startRelay();
    device_.change(insertion("a"));
    expectAllDone();
    const auto before = *viewer_.look();
    kill(before.process, SIGSTOP);
    for (const char *port : {"1", "2", "3"}) {
        device_.change(std::string("UPDATE radiusClient SET authport='") + port + "'");
        EXPECT_TRUE(waitUntil([this] { return fileHasTable(); })) << device_.confFile();
    }
    kill(before.process, SIGCONT);
    expectAllDone();
    EXPECT_EQ(before.process, viewer_.look()->process) << service_->output();
    EXPECT_TRUE(waitUntil([&] { return viewer_.look()->messages == before.messages + 2; }))
        << "one that waited, and one for what changed meanwhile";
}

TEST_F(Serve, GivesARelayWithWorkInItsQueueANoticeInItsTurn) {
    startService();
    startRelay();
    device_.change(insertion("a"));
    expectAllDone();
    const auto before = *viewer_.look();
    kill(before.process, SIGSTOP);
    for (int i = 0; i < 10; ++i) {
        viewer_.haveWait();
    }
    device_.change("UPDATE radiusClient SET authport='7'");
    ASSERT_TRUE(
        service_->waitForOutput("relay: does not listen; it gets what it lacks once it does"));
    // Waits out a moment's lock, and not the 5 s that the bus waits for an answer.
    const ProgramResult shell = runProgram(
        {"/usr/bin/sqlite3", "-cmd", ".timeout 4000", device_.file(), "BEGIN IMMEDIATE; COMMIT;"},
        {});
    EXPECT_EQ(0, shell.status) << "the database is free meanwhile: " << shell.err;
    kill(before.process, SIGCONT);
    expectAllDone();
    const auto after = *viewer_.look();
    EXPECT_EQ(before.process, after.process);
    EXPECT_EQ(before.messages + 1, after.messages);
    EXPECT_GE(2, after.waitsBeforeNotice) << "others take turns with it";
}

TEST_F(Serve, NoticeForARelayThatIsKilledDoesNotReachTheNext) {
    startService();
    startRelay();
    device_.change(insertion("a"));
    device_.change(insertion("b"));
    expectAllDone();
    const pid_t before = viewer_.look()->process;
    kill(before, SIGSTOP);
    device_.change("DELETE FROM radiusClient WHERE authserver='a'");
    ASSERT_TRUE(service_->waitForOutput("relay: does not listen"));
    kill(before, SIGKILL);
    ASSERT_TRUE(service_->waitForOutput("relay: has 1 server: 1 notice\n"));
    const auto after = *viewer_.look();
    EXPECT_NE(before, after.process);
    EXPECT_EQ(1, after.messages);
    EXPECT_TRUE(relayHasTable());
    EXPECT_THAT(service_->output(), Not(HasSubstr("told to end")));
}

TEST_F(Serve, ReplayTellsThatTheServiceHasEnded) {
    startRelay({"--once"});
    startService();
    relay_->wait();
    startRelay({"--once"});
    device_.change(insertion("a"));
    expectAllDone();
    RunningProgram replay({LANYARDCTL, "db", "-d", device_.file(), "replay"}, settings(),
                          device_.root().path("/replay-output"));
    relay_->wait();
    killService();
    EXPECT_EQ(kFailed, replay.wait());
    EXPECT_EQ("lanyardctl: the service has ended before the relay had all servers\n",
              replay.output());
}

TEST_F(Serve, ReadsAgainWhenItIsHungUp) {
    device_.change(insertion("a"));
    startService();
    ASSERT_TRUE(waitUntil([this] { return fileHasTable(); }));
    for (int i = 0; i < 3; ++i) {
        device_.root().remove("/var/radius.conf");
        service_->signal(SIGHUP);
        EXPECT_TRUE(waitUntil([this] { return fileHasTable(); })) << service_->output();
        EXPECT_THAT(service_->output(), HasSubstr("service: reads the table again\n"));
    }
    service_->signal(SIGTERM);
    EXPECT_EQ(0, service_->wait());
    EXPECT_THAT(service_->output(), HasSubstr("service: ends\n"));
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
    // Also while a relay does not answer.
    startService();
    device_.change(insertion("a"));
    expectAllDone();
    const pid_t process = viewer_.look()->process;
    kill(process, SIGSTOP);
    device_.change(insertion("b"));
    EXPECT_TRUE(waitUntil([this] { return fileHasTable(); }));
    const auto start = std::chrono::steady_clock::now();
    service_->signal(SIGTERM);
    EXPECT_EQ(0, service_->wait());
    EXPECT_LT(std::chrono::steady_clock::now() - start, kEndsWithin);
    kill(process, SIGCONT);
    startService();
    ASSERT_TRUE(service_->waitForOutput("relay: has 2 servers")) << service_->output();
    expectAllDone();

    // And while somebody else has the database.
    device_.change("BEGIN EXCLUSIVE");
    service_->signal(SIGHUP);
    ASSERT_TRUE(service_->waitForOutput("reads the table again"));
    const auto locked = std::chrono::steady_clock::now();
    service_->signal(SIGTERM);
    EXPECT_EQ(0, service_->wait());
    EXPECT_LT(std::chrono::steady_clock::now() - locked, kEndsWithin);
    device_.change("COMMIT");
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

}  // namespace
}  // namespace lanyard::test::serve_test
