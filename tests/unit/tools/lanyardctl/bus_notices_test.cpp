// What the change service puts on the bus for the relay, octet by octet, while relays and services
// begin and end.
#include <atomic>
#include <csignal>
#include <gmock/gmock.h>
#include <optional>

#include <lanyard/radius/mgmt.h>

#include "tests/interop/child_process.h"
#include "tests/interop/wait_until.h"
#include "tests/unit/tools/lanyardctl/device.h"
#include "tests/unit/tools/lanyardctl/recording_relay.h"

namespace lanyard::test::bus_notices_test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
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

// How often this process, which is the relay, was told to end.
std::atomic<int> ends{0};

class BusNotices : public testing::Test {
  protected:
    BusNotices() {
        ends = 0;
        struct sigaction action {};
        action.sa_handler = [](int) { ++ends; };
        sigaction(SIGTERM, &action, nullptr);
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
    // A relay that holds the table, and the service that has told it.
    void startBoth() {
        startService();
        startRelay();
        ASSERT_TRUE(service_->waitForOutput("relay: has 3 servers: 3 notices\n"))
            << service_->output();
    }

    bool relayHasTable() {
        return device_.usable() == relay_->servers() &&
               static_cast<int>(device_.usable().size()) == relay_->count();
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
    ASSERT_TRUE(waitUntil([this] { return relayHasTable(); }));
    EXPECT_EQ(inserts_, relay_->notices());
    EXPECT_EQ(0, ends);
}

TEST_F(BusNotices, NewServiceTellsARelayThatRunsToEndAndNothingElse) {
    startBoth();
    for (const int signal : {SIGTERM, SIGKILL}) {
        endService(signal);
        const size_t before = relay_->messages();
        const int endsBefore = ends;
        startService();
        ASSERT_TRUE(service_->waitForOutput("relay: told to end"));
        EXPECT_EQ(endsBefore + 1, ends);
        device_.change("UPDATE radiusClient SET authport='" + std::to_string(signal) + "'");
        ASSERT_TRUE(waitUntil([this] { return device_.confFile() == device_.expectedFile(); }));
        EXPECT_EQ(before, relay_->messages());
        startRelay();
        ASSERT_TRUE(waitUntil([this] { return relayHasTable(); }));
        EXPECT_EQ(inserts_, relay_->notices());
        EXPECT_EQ(endsBefore + 1, ends);
    }
}

TEST_F(BusNotices, ChangesComeInOrderWithTheRowAsItWas) {
    startBoth();
    for (const char *change : {"UPDATE radiusClient SET authport='7' WHERE authserver='a'",
                               "UPDATE radiusClient SET authport='8' WHERE authserver='a'",
                               "DELETE FROM radiusClient WHERE authserver='b'"}) {
        device_.change(change);
        ASSERT_TRUE(waitUntil([this] { return relayHasTable(); }));
    }
    device_.change(insertion("d"));
    ASSERT_TRUE(waitUntil([this] { return relayHasTable(); }));
    const auto notices = relay_->notices();
    EXPECT_THAT(std::vector<Message>(notices.begin() + 3, notices.end()),
                ElementsAre(notice(kUpdate, 1, oldValues("a", "1812")),
                            notice(kUpdate, 1, oldValues("a", "7")),
                            notice(kDelete, 3, oldValues("c", "1812")),
                            notice(kDelete, 2, oldValues("b", "1812")), notice(kInsert, 3),
                            notice(kInsert, 4)));
    expectTable();
}

}  // namespace
}  // namespace lanyard::test::bus_notices_test
