// What the programs put on the bus for the relay, octet by octet: the change service and `db replay`,
// while relays and services begin and end.
#include <csignal>
#include <cstring>
#include <gmock/gmock.h>
#include <optional>

#include <lanyard/radius/mgmt.h>

#include "tests/interop/child_process.h"
#include "tests/interop/wait_until.h"
#include "tests/unit/tools/lanyardctl/device.h"
#include "tests/unit/tools/lanyardctl/recording_relay.h"
#include "tools/lanyardctl/cli.h"

namespace lanyard::test {
namespace {

using lanyardctl::kDone;
using testing::ElementsAre;
using testing::Ge;
using testing::HasSubstr;
using testing::SizeIs;
using Message = RecordingRelay::Message;

constexpr uint32_t kChangeNotice = 4;
constexpr int32_t kDelete = 9;
constexpr int32_t kInsert = 18;
constexpr int32_t kUpdate = 23;

// 64 octets of table name, then row key, row id, operation and a word that nobody reads.
Message notice(int32_t operation, int32_t row, const std::string &oldValues = "") {
    std::string record = "radiusClient";
    record.resize(64);
    for (const int32_t word : {1, row, operation, 0}) {
        record.append(reinterpret_cast<const char *>(&word), sizeof(word));
    }
    return {kChangeNotice, record, oldValues};
}

// Column names, then values, each with its NUL.
std::string oldValues(const std::string &host, const std::string &port) {
    std::string texts;
    for (const std::string &text :
         {std::string("authserver"), std::string("authport"), std::string("authsecret"),
          std::string("authtimeout"), std::string("authretries"), host, port, std::string("secret"),
          std::string("10"), std::string("3")}) {
        texts.append(text.c_str(), text.size() + 1);
    }
    return texts;
}

class BusNotices : public testing::Test {
  protected:
    BusNotices() {
        for (const char *host : {"a", "b", "c"}) {
            device_.change(insertion(host));
        }
    }
    ~BusNotices() override {
        if (service_) {
            EXPECT_THAT(service_->output(), testing::Not(HasSubstr("Sanitizer")));
        }
    }

    std::vector<std::string> settings() const {
        return {"PAL_ROOT=" + device_.root().folder().string(), "PAL_DEBUG_LEVELS=0"};
    }
    void startRelay() {
        relay_.reset();
        relay_.emplace(device_.file());
    }
    void startService() {
        service_.emplace(std::vector<std::string>{LANYARDCTL, "db", "serve", "-d", device_.file()},
                         settings(), device_.root().path("/service-output"));
        ASSERT_TRUE(service_->waitForOutput("service: serves ")) << service_->output();
    }
    void endService(int signal) {
        service_->signal(signal);
        EXPECT_EQ(signal == SIGKILL ? -1 : 0, service_->wait());
    }
    void replay() {
        const ProgramResult result =
            runProgram({LANYARDCTL, "db", "-d", device_.file(), "replay"}, settings());
        EXPECT_EQ(kDone, result.status) << result.err;
    }
    // A relay that holds the table, and the service that has told it.
    void startBoth() {
        startService();
        startRelay();
        ASSERT_TRUE(service_->waitForOutput("relay: has 3 servers: 3 notices\n"))
            << service_->output();
    }

    // The service has done all that there is to do.
    bool waitUntilDone() const {
        return waitUntil([this] {
            return device_.db().number("SELECT count(*) FROM lanyardChange") == 0 &&
                   device_.db().number("SELECT count(*) FROM lanyardRelay WHERE known=1") == 1;
        });
    }
    void expectTable() {
        EXPECT_EQ(device_.usable(), relay_->servers());
        EXPECT_EQ(static_cast<int>(device_.usable().size()), relay_->count());
    }

    const std::vector<Message> inserts_ = {notice(kInsert, 1), notice(kInsert, 2),
                                           notice(kInsert, 3)};
    Device device_;
    std::optional<RecordingRelay> relay_;
    std::optional<RunningProgram> service_;
};

TEST_F(BusNotices, EachNewRelayGetsAnInsertForEachRow) {
    startBoth();
    EXPECT_EQ(inserts_, relay_->notices());
    expectTable();
    startRelay();
    ASSERT_TRUE(waitUntil([this] { return relay_->notices().size() >= 3 && waitUntilDone(); }));
    EXPECT_EQ(inserts_, relay_->notices());
    expectTable();
}

TEST_F(BusNotices, RestartedServiceSendsNothingUntilSomethingChanges) {
    startBoth();
    // It says so of this row at its first look, by which everything else would have been sent too.
    device_.change("INSERT INTO radiusClient(authserver) VALUES('d')");
    ASSERT_TRUE(service_->waitForOutput("row 4 is left out"));
    std::string port = "1812";
    for (const int signal : {SIGTERM, SIGKILL}) {
        endService(signal);
        const size_t before = relay_->messages();
        startService();
        ASSERT_TRUE(service_->waitForOutput("row 4 is left out"));
        EXPECT_EQ(before, relay_->messages());

        const size_t told = relay_->notices().size();
        const std::string newPort = std::to_string(signal);
        device_.change("UPDATE radiusClient SET authport='" + newPort + "' WHERE authserver='b'");
        ASSERT_TRUE(service_->waitForOutput("relay: has 3 servers: 1 notice\n"));
        ASSERT_THAT(relay_->notices(), SizeIs(told + 1));
        EXPECT_EQ(notice(kUpdate, 2, oldValues("b", port)), relay_->notices().back());
        port = newPort;
        expectTable();
    }
}

TEST_F(BusNotices, ChangesComeInOrderWithTheRowAsItWas) {
    startBoth();
    for (const char *change : {"UPDATE radiusClient SET authport='7' WHERE authserver='a'",
                               "UPDATE radiusClient SET authport='8' WHERE authserver='a'",
                               "DELETE FROM radiusClient WHERE authserver='c'"}) {
        device_.change(change);
        ASSERT_TRUE(waitUntilDone());
    }
    device_.change(insertion("d"));
    ASSERT_TRUE(waitUntilDone());
    const auto notices = relay_->notices();
    EXPECT_THAT(std::vector<Message>(notices.begin() + 3, notices.end()),
                ElementsAre(notice(kUpdate, 1, oldValues("a", "1812")),
                            notice(kUpdate, 1, oldValues("a", "7")),
                            notice(kDelete, 3, oldValues("c", "1812")), notice(kInsert, 3)));
    expectTable();
}

TEST_F(BusNotices, ServiceKilledInTheMiddleIsFollowedByOneThatStartsAfresh) {
    for (int n = 1; n <= 3; ++n) {
        startRelay();
        startService();
        ASSERT_TRUE(waitUntil([this] { return relay_->notices().size() >= 3 && waitUntilDone(); }));
        relay_->afterNotice(n, [this] { service_->signal(SIGKILL); });
        device_.change("UPDATE radiusClient SET authport='" + std::to_string(n) + "'");
        EXPECT_EQ(-1, service_->wait());
        EXPECT_THAT(relay_->notices(), SizeIs(static_cast<size_t>(3 + n)));
        startService();
        EXPECT_TRUE(service_->waitForOutput("relay: has 3 servers, all of them afresh: "));
        EXPECT_TRUE(waitUntilDone());
        EXPECT_THAT(relay_->notices(), SizeIs(Ge(25U)));
        expectTable();
        endService(SIGTERM);
    }
}

TEST_F(BusNotices, ReplayGivesANewRelayAnInsertForEachRow) {
    startRelay();
    replay();
    EXPECT_EQ(inserts_, relay_->notices());
    expectTable();
    replay();
    EXPECT_THAT(relay_->notices(), SizeIs(Ge(25U)));
    expectTable();

    // A service that starts now has nothing to tell.
    const size_t before = relay_->notices().size();
    startService();
    ASSERT_TRUE(waitUntilDone());
    EXPECT_THAT(relay_->notices(), SizeIs(before));
    startRelay();
    replay();
    EXPECT_THAT(relay_->notices(), SizeIs(Ge(3U)));
    expectTable();
}

}  // namespace
}  // namespace lanyard::test
