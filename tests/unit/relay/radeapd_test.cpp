// radeapd as a process of its own: a daemon on a real bus that ends when it is told to.
#include <algorithm>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <nlohmann/json.hpp>
#include <optional>
#include <poll.h>
#include <sstream>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include <lanyard/radius/eap.h>
#include <lanyard/radius/mgmt.h>
#include <xbus.h>

#include "tests/interop/child_process.h"
#include "tests/support/gate.h"
#include "tests/support/test.h"
#include "tests/unit/device/database_file.h"
#include "tools/file_descriptor.h"

namespace lanyard::test::radeapd_test {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using testing::Contains;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using Clock = std::chrono::steady_clock;

constexpr uint32_t kPnac = 6;
constexpr const char *kDictionary = "/nexa2.0/etc/radius.dict";
constexpr seconds kPatience{20};
// What it promises, and what a busy machine may add to that.
constexpr milliseconds kPromise{1000};
constexpr milliseconds kSlack{1000};

std::string contentOf(const std::filesystem::path &path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

// Awaits a condition; false when it does not come true.
bool comes(const std::function<bool()> &condition) {
    const auto end = Clock::now() + kPatience;
    while (!condition()) {
        if (Clock::now() > end) {
            return false;
        }
        std::this_thread::sleep_for(milliseconds(5));
    }
    return true;
}

class Radeapd : public testing::Test {
  protected:
    void SetUp() override {
        root.write(kDictionary, contentOf(LANYARD_DICTIONARY));
        root.write("/var/hosts", "127.0.0.1 " + hostName() + "\n");
        prepareDatabase();
        ASSERT_EQ(0, xbusInit());
        bus = xbusRegister(kPnac, XBUS_MODE_HANDLER, keep, this);
        ASSERT_NE(nullptr, bus);
        const ProgramResult started = runProgram(command, {"PAL_ROOT=" + root.folder().string()});
        ASSERT_EQ(0, started.status) << started.err;
        ASSERT_TRUE(comes([this] { return findDaemon(); }));
    }

    void TearDown() override {
        if (daemon > 0 && isAlive()) {
            EXPECT_EQ(0, kill(daemon, SIGKILL));
        }
        EXPECT_EQ(0, xbusUnRegister(bus));
    }

    virtual void prepareDatabase() { database.nameDictionary(kDictionary); }

    static std::string hostName() {
        char name[256] = {};
        EXPECT_EQ(0, gethostname(name, sizeof(name) - 1));
        return static_cast<const char *>(name);
    }

    // The relay's last record.
    static int keep(void * /*busArg1*/, void *test, uint32_t /*cmd*/, void *buf, uint32_t len,
                    void * /*out*/, uint32_t * /*outLen*/) {
        const auto *bytes = static_cast<const uint8_t *>(buf);
        static_cast<Radeapd *>(test)->answer.assign(bytes, bytes + len);
        return 0;
    }

    // The one process with this test's command line.
    bool findDaemon() {
        std::string wanted;
        for (const std::string &word : command) {
            wanted += word + '\0';
        }
        for (const auto &entry : std::filesystem::directory_iterator("/proc")) {
            const std::string name = entry.path().filename().string();
            pid_t pid = 0;
            const auto [rest, error] = std::from_chars(name.data(), name.data() + name.size(), pid);
            if (error == std::errc() && *rest == '\0' &&
                contentOf(entry.path() / "cmdline") == wanted) {
                daemon = pid;
                process.emplace(static_cast<int>(syscall(SYS_pidfd_open, pid, 0)), "pidfd");
                return true;
            }
        }
        return false;
    }

    [[nodiscard]] bool endsWithin(milliseconds time) const {
        pollfd ended{.fd = process->get(), .events = POLLIN, .revents = 0};
        return poll(&ended, 1, static_cast<int>(time.count())) == 1;
    }
    [[nodiscard]] bool isAlive() const { return !endsWithin(milliseconds(0)); }

    int send(uint32_t busCommand, ByteView message, uint32_t flags = XBUS_NO_WAIT) const {
        uint32_t outLen = 0;
        return xbusIoctl(bus, RAD_EAP_MODULE, busCommand, message.data(),
                         static_cast<uint32_t>(message.size()), nullptr, &outLen, flags, 0, 0);
    }

    // Tells the relay of a new row.
    int notify(int rowId) const {
        const RadDbUpdateInfo notice{.tableName = "radiusClient",
                                     .rowKey = 4,
                                     .rowId = rowId,
                                     .opCode = RAD_DB_INSERT,
                                     .reserved = 0};
        return send(RAD_EAP_CMD_DB_UPDATE,
                    {reinterpret_cast<const uint8_t *>(&notice), sizeof(notice)}, 0);
    }

    // The values of a row for a server.
    template <typename Server>
    static std::string row(const Server &server, const std::string &timeout) {
        return "'" + server.host() + "', '" + std::to_string(server.port()) + "', 's', '" +
               timeout + "', '3'";
    }

    // Stores a server and tells the relay.
    template <typename Server>
    int addServer(const Server &server, const std::string &timeout) const {
        return notify(database.addServer(row(server, timeout)));
    }

    // Sends an EAP-Response of that type in a conversation.
    int respond(uint32_t cookie, uint8_t type, ByteView data) const {
        const auto size = static_cast<uint16_t>(5 + data.size());
        const RadEapXbusMsg head{.cookie = cookie, .command = 17, .length = size};
        const auto *bytes = reinterpret_cast<const uint8_t *>(&head);
        return send(17, concatenate({Bytes(bytes, bytes + sizeof(head)),
                                     Bytes{2, 1, static_cast<uint8_t>(size >> 8),
                                           static_cast<uint8_t>(size), type},
                                     data}));
    }
    // What a person is shown.
    ProgramResult askWithProgram() const {
        return runProgram({LANYARD_LANYARDCTL, "relay", "status"},
                          {"PAL_ROOT=" + root.folder().string()});
    }

    int identify(std::string_view name) const { return respond(7, 1, fromText(name)); }

    // The same, and awaits the code of the EAP packet that comes back; 0 when none does.
    int codeOfAnswer(uint32_t cookie, uint8_t type, ByteView data) {
        constexpr size_t kCode = sizeof(RadEapXbusMsg);
        answer.clear();
        if (respond(cookie, type, data) != 0 ||
            !comes([this] { return xbusListen(bus, 100000) == 1 && answer.size() > kCode; })) {
            return 0;
        }
        uint32_t answered = 0;
        std::memcpy(&answered, answer.data(), sizeof(answered));
        EXPECT_EQ(cookie, answered);
        return answer[kCode];
    }

    TemporaryRoot root;
    DatabaseFile database{root.path("/device.db")};
    std::vector<std::string> command{LANYARD_RADEAPD, "-d", database.path()};
    XbusCtx *bus = nullptr;
    Bytes answer;
    pid_t daemon = 0;
    std::optional<FileDescriptor> process;
};

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
    EXPECT_EQ(1, answer[0]) << "the first cookie";
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

// What it says, and that it does not become a daemon.
class RadeapdStart : public testing::Test {
  protected:
    void SetUp() override {
        root.write(kDictionary, contentOf(LANYARD_DICTIONARY));
        database.nameDictionary(kDictionary);
    }

    ProgramResult run(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), LANYARD_RADEAPD);
        return runProgram(arguments, {"PAL_ROOT=" + root.folder().string()});
    }

    // Ends with this as the last line, and with each line of the log before it only once.
    void expectRefused(const std::vector<std::string> &arguments, const std::string &reason) {
        const ProgramResult result = run(arguments);
        EXPECT_EQ(1, result.status);
        EXPECT_EQ("", result.out);
        EXPECT_THAT(result.err, EndsWith("radeapd: " + reason + "\n"));
        std::vector<std::string> lines;
        std::istringstream text(result.err);
        for (std::string line; std::getline(text, line);) {
            EXPECT_THAT(lines, Not(Contains(line)));
            lines.push_back(line);
        }
        EXPECT_FALSE(root.exists("/run/xbus/8")) << "it was on the bus";
    }

    TemporaryRoot root;
    const DatabaseFile database{root.path("/device.db")};
    const std::string file = database.path();
};

TEST_F(RadeapdStart, NeedsADatabase) {
    const std::string reason =
        "name the device's database with -d; without it there are no servers to ask";
    expectRefused({}, reason);
    expectRefused({"-v", "word"}, reason);
}

TEST_F(RadeapdStart, MissingDatabaseIsToldAndNotMade) {
    const std::string missing = root.path("/missing.db").string();
    const std::string reason =
        "cannot read the database " + missing + ": No such file or directory";
    expectRefused({"-d", missing}, reason);
    expectRefused({"-v", "-d", file, "-f", "-d", missing}, reason);
    EXPECT_FALSE(root.exists("/missing.db"));
}

TEST_F(RadeapdStart, FileWithoutTheTableIsTold) {
    const auto reason = [](const std::string &path) {
        return path +
               " is no database with a table 'environment', or it is locked; 'lanyardctl db init' "
               "makes what is missing";
    };
    root.write("/garbage", "This is the text of no database at all.\n");
    const std::string garbage = root.path("/garbage").string();
    expectRefused({"-d", garbage}, reason(garbage));
    expectRefused({"-d", root.folder().string()}, reason(root.folder().string()));
    database.run("DROP TABLE environment");
    expectRefused({"-d", file}, reason(file));
}

TEST_F(RadeapdStart, DatabaseWithoutADictionaryIsTold) {
    const std::string reason =
        "the database " + file +
        " names no dictionary; 'lanyardctl db init --dictionary FILE' names one";
    database.run("UPDATE environment SET value=NULL");
    expectRefused({"-d", file}, reason);
    database.run("DELETE FROM environment");
    expectRefused({"-d", file}, reason);
}

TEST_F(RadeapdStart, DictionaryThatDoesNotLoadIsTold) {
    const std::string reason = std::string("the dictionary '") + kDictionary +
                               "' cannot be loaded; 'lanyardctl db init --dictionary FILE' names "
                               "another one";
    root.write(kDictionary, "ATTRIBUTE Nothing\n");
    expectRefused({"-d", file}, reason);
    root.remove(kDictionary);
    expectRefused({"-d", file}, reason);
}

TEST_F(RadeapdStart, WrongNumbers_AreTold) {
    const auto expectNumber = [this](const std::string &option, const std::string &most) {
        const auto refused = [&](const std::string &text) {
            return option + " takes a number from 1 to " + most + ", not '" + text + "'";
        };
        const std::string tooLarge = std::to_string(std::stol(most) + 1);
        for (const std::string &text :
             {std::string("0"), std::string("-1"), std::string(""), std::string("many"),
              std::string("8x"), tooLarge, std::string("99999999999999999999")}) {
            expectRefused({"-d", file, option, text}, refused(text));
        }
        expectRefused({"-d", file, option}, refused(""));
        expectRefused({option, "-d", file}, refused("-d"));
    };
    expectNumber("--in-flight", "256");
    expectNumber("--dead-time", "86400");
}

TEST_F(RadeapdStart, WrongCommandLinesAreTheRelaysToTell) {
    ProgramResult result = run({"-x"});
    EXPECT_EQ(1, result.status);
    EXPECT_EQ(std::string("Usage: ") + LANYARD_RADEAPD + " [-v] [ -f confFile]\n", result.out);
    EXPECT_THAT(result.err, HasSubstr("invalid option -- 'x'"));
    for (const std::vector<std::string> &words :
         {std::vector<std::string>{"-f", "-d", file}, {"-v", "-f"}, {"-d"}}) {
        result = run(words);
        EXPECT_EQ(1, result.status);
        EXPECT_THAT(result.err, HasSubstr("ERROR: option value not specified"));
        EXPECT_THAT(result.err, Not(HasSubstr("radeapd: name")));
    }
}

}  // namespace
}  // namespace lanyard::test::radeapd_test
