// The status of supplicants: what it says, and who gets it.
#include "tools/pnac_wired/status.h"

#include <nlohmann/json.hpp>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <thread>

#include "tests/support/temporary_folder.h"
#include "tests/unit/tools/pnac_wired/world.h"
#include "tools/pnac_wired/status_socket.h"

namespace lanyard::test::status_test {
namespace {

using namespace std::chrono_literals;
using nlohmann::json;
using pnac::askStatus;
using pnac::Status;
using pnac::StatusSocket;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

// 2026-01-31T12:00:00Z
constexpr int64_t kNoon = 1769860800;

std::string lineOf(World &world) {
    return statusLine(
        {.interface = "eth0", .address = kOwnAddress, .now = world.now(), .wallNow = kNoon},
        world.authenticator().status(), world.counters(), {.supplicants = 9});
}

TEST(Status, TellsOfSessions) {
    World world;
    Supplicant alice(world, 1);
    alice.logIn("alice", keyBlock({sessionElement(2, 3600), "0705313230"_hex}));
    Supplicant(world, 2).logIn("b\xff");
    world.pass(90s);
    const json status = json::parse(lineOf(world));
    EXPECT_EQ("eth0", status["interface"]);
    EXPECT_EQ("02:00:00:00:00:fe", status["address"]);
    EXPECT_EQ(json({{{"address", "02:10:00:00:00:01"},
                     {"identity", "alice"},
                     {"identity_hex", "616c696365"},
                     {"since", "2026-01-31T11:58:30Z"},
                     {"seconds", 90.0},
                     {"until", "2026-01-31T12:58:30Z"},
                     {"then", "reauthenticate"},
                     {"vlan", "120"}},
                    {{"address", "02:10:00:00:00:02"},
                     {"identity", "b\xef\xbf\xbd"},
                     {"identity_hex", "62ff"},
                     {"since", "2026-01-31T11:58:30Z"},
                     {"seconds", 90.0}}}),
              status["sessions"]);
    EXPECT_THAT(status["attempts"], IsEmpty());
    EXPECT_THAT(status["quiet"], IsEmpty());
    EXPECT_EQ(0, status["left_out"]);
    EXPECT_EQ(2, status["counters"]["authorized"]);
    EXPECT_EQ(9, status["counters"]["supplicants"]);
}

TEST(Status, TellsWhatLoginsAwait) {
    World world;
    Supplicant(world, 1).start();
    Supplicant bob(world, 2);
    bob.knock("bob");
    Supplicant carol(world, 3);
    carol.knock("carol");
    world.relaySends(carol.cookie(), eapRequest(50, 4));
    world.setRelayRoom(0);
    Supplicant(world, 4).knock("dave");
    world.pass(1s);
    const json attempts = json::parse(lineOf(world))["attempts"];
    ASSERT_THAT(attempts, SizeIs(4));
    EXPECT_EQ("identity", attempts[0]["awaits"]);
    EXPECT_EQ("", attempts[0]["identity"]);
    EXPECT_EQ("relay", attempts[1]["awaits"]);
    EXPECT_EQ("bob", attempts[1]["identity"]);
    EXPECT_EQ("2026-01-31T11:59:59Z", attempts[1]["since"]);
    EXPECT_EQ("supplicant", attempts[2]["awaits"]);
    EXPECT_EQ("room at the relay", attempts[3]["awaits"]);
}

TEST(Status, TellsWhoIsQuiet) {
    World world;
    Supplicant mallory(world, 1);
    mallory.knock("mallory");
    world.relaySends(mallory.cookie(), eapFailure(1));
    EXPECT_EQ(json({{{"address", "02:10:00:00:00:01"}, {"until", "2026-01-31T12:01:00Z"}}}),
              json::parse(lineOf(world))["quiet"]);
}

TEST(Status, OfASupplicantThatLogsInAgainIsASessionAndALogin) {
    World world;
    Supplicant alice(world, 1);
    alice.logIn("alice");
    alice.knock("bob");
    const json status = json::parse(lineOf(world));
    ASSERT_THAT(status["sessions"], SizeIs(1));
    ASSERT_THAT(status["attempts"], SizeIs(1));
    EXPECT_EQ("alice", status["sessions"][0]["identity"]);
    EXPECT_EQ("bob", status["attempts"][0]["identity"]);
}

TEST(Status, IsOneLineOfBoundedSize) {
    const Bytes identity(253, 0x0a);
    Status status;
    status.sessions.assign(5000, {.address = macOf(1), .identity = identity});
    const std::string line = pnac::statusLine({}, status, {}, {});
    EXPECT_EQ(line.size() - 1, line.find('\n'));
    EXPECT_LT(line.size(), pnac::kStatusMax + 8192);
    const json read = json::parse(line);
    EXPECT_GT(read["sessions"].size(), 500U);
    EXPECT_EQ(5000U, read["sessions"].size() + read["left_out"].get<size_t>());
    EXPECT_THAT(*pnac::statusTable(line), HasSubstr(" left out\n"));
}

TEST(StatusTable, ShowsEveryoneOnALineEach) {
    World world;
    Supplicant alice(world, 1);
    alice.logIn("al\n\"ice", keyBlock({sessionElement(5, 3600), "070412 0a"_hex}));
    Supplicant(world, 2).knock("bob");
    Supplicant mallory(world, 3);
    mallory.knock("mallory");
    world.relaySends(mallory.cookie(), eapFailure(1));
    const auto table = pnac::statusTable(lineOf(world));
    ASSERT_TRUE(table);
    EXPECT_EQ(
        "eth0, 02:00:00:00:00:fe: 1 authorized, 1 logging in, 1 quiet\n"
        "ADDRESS            STATE                         SINCE                 UNTIL            "
        "     VLAN      IDENTITY\n"
        "02:10:00:00:00:01  authorized, terminate         2026-01-31T12:00:00Z  "
        "2026-01-31T13:00:00Z  \\x12\\x0a  \"al\\x0a\\x22ice\"\n"
        "02:10:00:00:00:02  awaits relay                  2026-01-31T12:00:00Z                   "
        "               \"bob\"\n"
        "02:10:00:00:00:03  quiet                                               "
        "2026-01-31T12:01:00Z\n",
        table->substr(0, table->find("counters ")));
    EXPECT_THAT(*table, HasSubstr(" authorized=1 failed=1\n"));
}

TEST(StatusTable, OfWhatIsNoStatusIsNone) {
    const char *const kBadIdentity =
        R"({"sessions":[{"identity_hex":"zz"}],"attempts":[],"quiet":[],"left_out":0,"counters":{}})";
    for (const char *line :
         {"", "x", "{}", "[]", R"({"sessions":[],"attempts":3})", kBadIdentity}) {
        EXPECT_FALSE(pnac::statusTable(line)) << line;
    }
}

class StatusSocketTest : public testing::Test {
  protected:
    // Connects and reads nothing.
    FileDescriptor connectTo(const std::string &interface) const {
        FileDescriptor client(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0), "socket");
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        (folder_ + '/' + interface).copy(address.sun_path, sizeof(address.sun_path) - 1);
        checked(
            connect(client.get(), reinterpret_cast<const sockaddr *>(&address), sizeof(address)),
            interface);
        return client;
    }

    // What a thread of its own is told while the socket is served.
    std::optional<std::string> ask(StatusSocket &served) const {
        std::optional<std::string> line;
        std::atomic<bool> over = false;
        std::thread client([&] {
            line = askStatus(folder_, "eth0");
            over = true;
        });
        while (!over) {
            std::vector<pollfd> polled;
            served.addTo(polled);
            (void)poll(polled.data(), polled.size(), 10);
            served.serve();
        }
        client.join();
        return line;
    }

    static size_t polledBy(const StatusSocket &served) {
        std::vector<pollfd> polled;
        served.addTo(polled);
        return polled.size();
    }

    static mode_t modeOf(const std::string &path) {
        struct stat status = {};
        return lstat(path.c_str(), &status) == 0 ? status.st_mode & 07777U : 0;
    }

    TemporaryFolder root_;
    const std::string folder_ = (root_.path() / "run/pnac-wired").string();
};

TEST_F(StatusSocketTest, TellsWhoeverConnects) {
    int lines = 0;
    StatusSocket served(folder_, "eth0", [&] { return "line " + std::to_string(++lines) + "\n"; });
    EXPECT_EQ("line 1\n", ask(served));
    EXPECT_EQ("line 2\n", ask(served));
    EXPECT_EQ(1U, polledBy(served)) << "the listener alone";
}

TEST_F(StatusSocketTest, TellsLinesOfAnySize) {
    const std::string line = std::string(pnac::kStatusMax, 'x') + '\n';
    StatusSocket served(folder_, "eth0", [&] { return std::string(line); });
    EXPECT_EQ(line, ask(served));
}

TEST_F(StatusSocketTest, IsOfItsUserAlone) {
    const StatusSocket served(folder_, "eth0", [] { return ""; });
    EXPECT_EQ(0700U, modeOf(folder_));
    EXPECT_EQ(0600U, modeOf(folder_ + "/eth0"));
}

TEST_F(StatusSocketTest, IsNotHeldUpByWhoReadsNothing) {
    const std::string line = std::string(pnac::kStatusMax, 'x') + '\n';
    StatusSocket served(folder_, "eth0", [&] { return std::string(line); });
    std::vector<FileDescriptor> idle;
    for (size_t i = 0; i < 3 * StatusSocket::kClientsMax; ++i) {
        idle.push_back(connectTo("eth0"));
        served.serve();
        EXPECT_LE(polledBy(served), 1 + StatusSocket::kClientsMax);
    }
    EXPECT_EQ(line, ask(served));
    idle.clear();
    served.serve();
    EXPECT_EQ(1U, polledBy(served)) << "those that have left are forgotten";
}

TEST_F(StatusSocketTest, TakesThePlaceOfOneThatWasLeft) {
    {
        // Bound and closed, as by a process that was killed.
        StatusSocket gone(folder_, "eth1", [] { return ""; });
        std::filesystem::rename(folder_ + "/eth1", folder_ + "/eth0");
    }
    EXPECT_EQ(std::nullopt, askStatus(folder_, "eth0")) << "nobody listens";
    StatusSocket served(folder_, "eth0", [] { return "here\n"; });
    EXPECT_EQ("here\n", ask(served));
}

TEST_F(StatusSocketTest, LeavesNothingBehind) {
    std::optional<StatusSocket> served(std::in_place, folder_, "eth0", [] { return ""; });
    EXPECT_THAT(pnac::statusInterfaces(folder_), testing::ElementsAre("eth0"));
    served.reset();
    EXPECT_THAT(pnac::statusInterfaces(folder_), IsEmpty());
    EXPECT_EQ(std::nullopt, askStatus(folder_, "eth0"));
}

TEST_F(StatusSocketTest, MayLieBelowALongPath) {
    const std::string deep = folder_ + '/' + std::string(120, 'd');
    std::filesystem::create_directories(deep);
    StatusSocket served(deep, "eth0", [] { return ""; });
    EXPECT_THAT(pnac::statusInterfaces(deep), testing::ElementsAre("eth0"));
}

TEST_F(StatusSocketTest, IsAskedForInterfacesAlone) {
    const StatusSocket served(folder_, "eth0", [] { return ""; });
    EXPECT_EQ(std::nullopt, askStatus(folder_, "../pnac-wired/eth0"));
}

}  // namespace
}  // namespace lanyard::test::status_test
