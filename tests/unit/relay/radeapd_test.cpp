// radeapd as the device starts it: a daemon on a real bus that ends when it is told to.
#include <algorithm>
#include <cstring>
#include <nlohmann/json.hpp>
#include <sys/prctl.h>
#include <sys/wait.h>

#include "tests/support/gate.h"
#include "tests/unit/relay/radeapd_fixture.h"

namespace lanyard::test::radeapd_test {
namespace {

using std::chrono::milliseconds;
using testing::HasSubstr;

// What it promises, and what a busy machine may add to that.
constexpr milliseconds kPromise{1000};
constexpr milliseconds kSlack{1000};

TEST_F(Radeapd, IsADaemonOfItsName) {
    EXPECT_EQ("tRadEap\n", contentOf("/proc/" + std::to_string(daemon) + "/comm"));
    EXPECT_EQ(daemon, getsid(daemon));
}

TEST_F(Radeapd, EndsWithinASecond) {
    ASSERT_EQ(0, kill(daemon, SIGTERM));
    EXPECT_TRUE(endsWithin(kPromise + kSlack));
    EXPECT_FALSE(root.exists("/run/xbus/8")) << "it has left the bus";
}

TEST_F(Radeapd, AsksTheServersThatItsDatabaseNames) {
    const SilentPort server;
    ASSERT_EQ(0, addServer(server, "30"));
    ASSERT_EQ(0, identify("alice"));
    EXPECT_TRUE(comes([&server] { return !server.received().empty(); }));
}

// A process of the relay's name, such as the relay of another device on the same machine.
class Namesake {
  public:
    Namesake() : pid_(fork()) {
        if (pid_ == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            prctl(PR_SET_NAME, "tRadEap");
            for (;;) {
                pause();
            }
        }
    }
    ~Namesake() {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    Namesake(const Namesake &) = delete;
    Namesake &operator=(const Namesake &) = delete;

    [[nodiscard]] bool isNamed() const {
        return contentOf("/proc/" + std::to_string(pid_) + "/comm") == "tRadEap\n";
    }

  private:
    pid_t pid_;
};

TEST_F(Radeapd, EndsWithinASecondAlsoBesideAnotherRelay) {
    const Namesake other;
    ASSERT_TRUE(comes([&other] { return other.isNamed(); }));
    const SilentPort server;
    ASSERT_EQ(0, addServer(server, "30"));
    ASSERT_EQ(0, identify("alice"));
    ASSERT_TRUE(comes([&server] { return !server.received().empty(); }));
    ASSERT_EQ(0, kill(daemon, SIGTERM));
    EXPECT_TRUE(endsWithin(kPromise + kSlack));
}

TEST_F(Radeapd, EndsWithinASecondAlsoWhileItWaitsForAServer) {
    const SilentPort server;
    ASSERT_EQ(0, addServer(server, "30"));
    ASSERT_EQ(0, identify("alice"));
    ASSERT_TRUE(comes([&server] { return !server.received().empty(); }));
    ASSERT_EQ(0, kill(daemon, SIGTERM));
    EXPECT_TRUE(endsWithin(kPromise + kSlack));
}

// The largest there are, all at once: each with a name that fills its packet, but of which the
// User-Name ends early enough to be one, and with the largest State. As many as ageing leaves, less
// a few for passes of this test's own slowness.
TEST_F(Radeapd, HoldsAsManyConversationsOfAnySizeAsAgeingLeaves) {
    constexpr uint32_t kConversations = RAD_EAP_LIFE - 100;
    constexpr uint8_t kRequest = 1;
    constexpr uint8_t kFailure = 4;
    Bytes name(RAD_EAP_PACKET_MAX - 5, 'x');
    name[RAD_VALUE_MAX] = 0;
    const Bytes state(253, 's');
    ScriptedServer server("s");
    server.otherwise(challenge(
        Attributes().add(24, state).add(79, "01020006 0410"_hex).addMessageAuthenticator()));
    ASSERT_EQ(0, addServer(server, "30"));
    for (uint32_t cookie = 1; cookie <= kConversations; ++cookie) {
        ASSERT_EQ(kRequest, codeOfAnswer(cookie, 1, name)) << "conversation " << cookie;
    }
    // Each of them goes on.
    server.otherwise(reject(Attributes().addMessageAuthenticator()));
    for (uint32_t cookie = 1; cookie <= kConversations; ++cookie) {
        ASSERT_EQ(kFailure, codeOfAnswer(cookie, 4, "10"_hex)) << "conversation " << cookie;
    }
    const auto hasState = [&state](const ReceivedRequest &request) {
        const auto all = request.attributes();
        return std::find(all.begin(), all.end(), Attribute{24, state}) != all.end();
    };
    const auto requests = server.requests();
    EXPECT_EQ(ptrdiff_t{kConversations}, std::count_if(requests.begin(), requests.end(), hasState));
}

// The one that came first makes room, although it waits for its server.
TEST_F(Radeapd, OneConversationMore_EndsTheOldest) {
    constexpr uint32_t kMost = RAD_EAP_LIFE + 1;
    constexpr size_t kCode = sizeof(RadEapXbusMsg);
    const SilentPort server;
    ASSERT_EQ(0, addServer(server, "30"));
    for (uint32_t cookie = 1; cookie <= kMost; ++cookie) {
        ASSERT_TRUE(comes([&] { return respond(cookie, 1, fromText("alice")) == 0; }));
    }
    EXPECT_TRUE(answer.empty());
    EXPECT_EQ(0, xbusListen(bus, 0));
    ASSERT_TRUE(comes([&] { return respond(kMost + 1, 1, fromText("alice")) == 0; }));
    ASSERT_TRUE(comes([this] { return xbusListen(bus, 100000) == 1; }));
    ASSERT_GT(answer.size(), kCode);
    EXPECT_BYTES_EQ("04010004 0005 060304"_hex, ByteView(answer).subspan(kCode));
    uint32_t answered = 0;
    std::memcpy(&answered, answer.data(), sizeof(answered));
    EXPECT_EQ(1U, answered) << "the first cookie";
    EXPECT_EQ(0, xbusListen(bus, 100000)) << "nobody else";
}

TEST_F(Radeapd, ChangeWhileARequestIsInFlight_EndsItAsItBegan) {
    ScriptedServer first("s");
    Gate gate;
    first.otherwise(gate.behind(3, Attributes().addMessageAuthenticator()));
    ASSERT_EQ(0, addServer(first, "30"));
    ASSERT_EQ(0, identify("alice"));
    ASSERT_TRUE(first.waitForRequests(1));
    const SilentPort second;
    EXPECT_EQ(0, addServer(second, "30")) << "the relay is not busy";
    gate.open();
    EXPECT_TRUE(comes([this] { return xbusListen(bus, 100000) == 1; }));
    EXPECT_BYTES_EQ("04010004 0005 060301"_hex, ByteView(answer).subspan(sizeof(RadEapXbusMsg)));
    EXPECT_TRUE(second.received().empty());
}

TEST_F(Radeapd, AskedForItsStatus_AnswersOverTheBus) {
    const SilentPort server;
    ASSERT_EQ(0, addServer(server, "30"));
    ASSERT_EQ(0, identify("alice"));
    ASSERT_TRUE(comes([&server] { return !server.received().empty(); }));
    std::vector<char> text(16384);
    auto size = static_cast<uint32_t>(text.size());
    ASSERT_EQ(0, xbusIoctl(bus, RAD_EAP_MODULE, RAD_EAP_CMD_STATUS, nullptr, 0, text.data(), &size,
                           XBUS_WAIT, 0, 0));
    const auto status = nlohmann::json::parse(text.data(), text.data() + size);
    EXPECT_EQ(1, status.at("conversations"));
    EXPECT_EQ(1, status.at("in_flight"));
    EXPECT_EQ(64, status.at("limit"));
    ASSERT_EQ(1U, status.at("servers").size());
    EXPECT_EQ(server.port(), status.at("servers")[0].at("port"));
    EXPECT_EQ(1, status.at("servers")[0].at("requests"));

    const ProgramResult shown = askWithProgram();
    EXPECT_EQ(0, shown.status) << shown.err;
    EXPECT_THAT(shown.out, testing::StartsWith("conversations 1, in flight 1, limit 64\n"));
    EXPECT_THAT(shown.out, HasSubstr("\n" + server.host() + ":" + std::to_string(server.port()) +
                                     "  alive  1        1 "));
}

// The options of the program's own, whatever else stands between them.
class RadeapdOneByOne : public Radeapd {
  protected:
    void prepareDatabase() override {
        Radeapd::prepareDatabase();
        command = {LANYARD_RADEAPD,   "--in-flight",      "1",   "-v",
                   "--status-server", "--dead-time",      "120", "-d",
                   database.path(),   "--accept-unsigned"};
    }
};

TEST_F(RadeapdOneByOne, AskedForItsStatus_HasNone) {
    const ProgramResult shown = askWithProgram();
    EXPECT_EQ(1, shown.status);
    EXPECT_EQ("lanyardctl: the relay tells no status; one with --in-flight 1 has none\n",
              shown.err);
}

TEST_F(RadeapdOneByOne, ServesOneAfterTheOther) {
    Gate gate;
    ScriptedServer server("s");
    server.otherwise(gate.behind(3, {}));
    ASSERT_EQ(0, addServer(server, "30"));
    ASSERT_EQ(0, respond(1, 1, fromText("alice")));
    ASSERT_EQ(0, respond(2, 1, fromText("bob")));
    ASSERT_TRUE(server.waitForRequests(1));
    EXPECT_FALSE(server.waitForRequests(2, milliseconds(200)));
    gate.open();
    EXPECT_TRUE(server.waitForRequests(2));
    EXPECT_TRUE(comes([this] { return xbusListen(bus, 100000) == 1; }));
    EXPECT_BYTES_EQ("04010004"_hex, ByteView(answer).subspan(sizeof(RadEapXbusMsg)));
}

TEST_F(Radeapd, GoesOnAfterAHangup) {
    const SilentPort server;
    ASSERT_EQ(0, addServer(server, "1"));
    ASSERT_EQ(0, identify("alice"));
    ASSERT_TRUE(comes([&server] { return !server.received().empty(); }));
    ASSERT_EQ(0, kill(daemon, SIGHUP));
    ASSERT_EQ(0, identify("alice"));
    EXPECT_TRUE(comes([&server] { return !server.received().empty(); }));
    EXPECT_TRUE(isAlive());
}

// Every program that writes to this database closes it again, so nobody but SQLite's locks keeps
// what belongs to it.
class RadeapdJournal : public Radeapd, public testing::WithParamInterface<const char *> {
  protected:
    void prepareDatabase() override {
        DatabaseFile(file).nameDictionary(kDictionary);
        EXPECT_EQ(std::string(GetParam()) + "\n",
                  shell("PRAGMA journal_mode=" + std::string(GetParam())));
        command.back() = file;
    }

    [[nodiscard]] std::string shell(const std::string &sql) const {
        const ProgramResult result =
            runProgram({"/usr/bin/sqlite3", "-cmd", ".timeout 5000", file, sql}, {});
        EXPECT_EQ(0, result.status) << result.err;
        return result.out;
    }

    const std::string file = root.path("/shared.db").string();
};

// It reads the database before it becomes a daemon, and again after that.
TEST_P(RadeapdJournal, SeesWhatAnotherProgramStores) {
    const SilentPort server;
    const std::vector<std::string> rows = {row(server, "30"), "'b.invalid', '1812', 's', '1', '0'",
                                           "'c.invalid', '1812', 's', '1', '0'"};
    for (size_t i = 0; i < rows.size(); ++i) {
        EXPECT_EQ("", shell("INSERT INTO radiusClient VALUES (" + rows[i] + ")"));
        EXPECT_EQ(0, notify(static_cast<int>(i) + 1)) << rows[i];
    }
    EXPECT_EQ("ok\n", shell("DELETE FROM radiusClient; PRAGMA integrity_check"));
    EXPECT_EQ(-1, notify(1)) << "the row is gone";
    ASSERT_EQ(0, identify("alice"));
    EXPECT_TRUE(comes([&server] { return !server.received().empty(); }));
}

INSTANTIATE_TEST_SUITE_P(Modes, RadeapdJournal, testing::Values("wal", "delete", "persist"),
                         [](const auto &mode) { return std::string(mode.param); });

}  // namespace
}  // namespace lanyard::test::radeapd_test
