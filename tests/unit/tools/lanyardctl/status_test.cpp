// `relay status` as a process that asks a relay on a real bus, whatever that answers.
#include <algorithm>
#include <atomic>
#include <cstring>
#include <gmock/gmock.h>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <thread>

#include <xbus.h>

#include "tests/interop/child_process.h"
#include "tests/support/temporary_root.h"
#include "tools/lanyardctl/failure.h"

namespace lanyard::test::status_test {
namespace {

using lanyardctl::kDone;
using lanyardctl::kFailed;
using nlohmann::json;
using testing::HasSubstr;

constexpr uint32_t kRelayModule = 8;
constexpr uint32_t kStatusCommand = 5;

constexpr const char *kTwoServers = R"({"conversations":3,"in_flight":1,"limit":64,"servers":[
    {"host":"127.0.0.1","port":1812,"alive":true,"dead_seconds":0,"pending":1,
     "requests":1200,"retransmissions":2,"timeouts":3,"accepts":400,
     "rejects":5,"challenges":600,"responses":1005,"malformed":9,
     "bad_authenticators":7,"strays":8,"median_us":1234,"p95_us":100000},
    {"host":"b.example","port":1645,"alive":false,"dead_seconds":42,"pending":0,
     "requests":0,"retransmissions":0,"timeouts":0,"accepts":0,
     "rejects":0,"challenges":0,"responses":0,"malformed":0,
     "bad_authenticators":0,"strays":0,"median_us":0,"p95_us":0}]})";

// Module 8 of the bus. It answers on a thread of its own, or not at all.
class FakeRelay {
  public:
    FakeRelay() {
        if (xbusInit() != 0 ||
            !(context_ = xbusRegister(kRelayModule, XBUS_MODE_HANDLER, take, this))) {
            throw std::runtime_error("the relay does not start");
        }
    }
    explicit FakeRelay(std::string answer) : FakeRelay() {
        constexpr uint32_t kListenMicroseconds = 10000;
        answer_ = std::move(answer);
        thread_ = std::thread([this] {
            while (!ends_) {
                xbusListen(context_, kListenMicroseconds);
            }
        });
    }
    FakeRelay(const FakeRelay &) = delete;
    FakeRelay &operator=(const FakeRelay &) = delete;
    ~FakeRelay() {
        ends_ = true;
        if (thread_.joinable()) {
            thread_.join();
        }
        xbusUnRegister(context_);
        xbusDeInit();
    }

  private:
    // A relay that does not know the command leaves `out` as it was.
    static int take(void * /*busArg1*/, void *relay, uint32_t command, void * /*buf*/,
                    uint32_t /*len*/, void *out, uint32_t *outLength) {
        const std::string &answer = static_cast<FakeRelay *>(relay)->answer_;
        if (command != kStatusCommand || !out || answer.size() > *outLength) {
            return -1;
        }
        if (!answer.empty()) {
            std::memcpy(out, answer.data(), answer.size());
            *outLength = static_cast<uint32_t>(answer.size());
        }
        return 0;
    }

    XbusCtx *context_ = nullptr;
    std::string answer_;
    std::atomic<bool> ends_{false};
    std::thread thread_;
};

class Status : public testing::Test {
  protected:
    ProgramResult run(std::vector<std::string> options = {}) const {
        options.insert(options.begin(), {LANYARDCTL, "relay", "status"});
        ProgramResult result = runProgram(options, {"PAL_ROOT=" + root_.folder().string()});
        EXPECT_THAT(result.err, testing::Not(HasSubstr("Sanitizer")));
        return result;
    }

    void expectFails(const std::string &text) const {
        const ProgramResult result = run();
        EXPECT_EQ(kFailed, result.status);
        EXPECT_EQ("", result.out);
        EXPECT_EQ("lanyardctl: " + text + "\n", result.err);
    }

    TemporaryRoot root_;
};

TEST_F(Status, TwoServers_TableForAPerson) {
    const FakeRelay relay(kTwoServers);
    const ProgramResult result = run();
    EXPECT_EQ(kDone, result.status) << result.err;
    EXPECT_EQ(
        "conversations 3, in flight 1, limit 64\n"
        "SERVER          STATE          PENDING  REQUESTS  RESENT  TIMEOUTS  ACCEPTS  REJECTS  "
        "CHALLENGES  BAD-AUTH  STRAYS  MALFORMED  MEDIAN-MS  P95-MS\n"
        "127.0.0.1:1812  alive          1        1200      2       3         400      5        "
        "600         7         8       9          1.2        100.0\n"
        "b.example:1645  dead for 42 s  0        0         0       0         0        0        "
        "0           0         0       0          -          -\n",
        result.out);
    EXPECT_EQ("", result.err);
}

TEST_F(Status, Json_IsTheRelaysObject) {
    const FakeRelay relay(kTwoServers);
    json expected = json::parse(kTwoServers);
    expected["ok"] = true;
    const ProgramResult result = run({"--json"});
    EXPECT_EQ(kDone, result.status) << result.err;
    EXPECT_EQ(expected, json::parse(result.out));
}

TEST_F(Status, NoServers_SaysSo) {
    const FakeRelay relay(R"({"conversations":0,"in_flight":0,"limit":64,"servers":[]})");
    EXPECT_EQ("conversations 0, in flight 0, limit 64\nno servers\n", run().out);
}

TEST_F(Status, NoRelay_Fails) {
    expectFails("no relay answers on the bus");
    const ProgramResult result = run({"--json"});
    EXPECT_EQ(kFailed, result.status);
    EXPECT_EQ(json({{"ok", false}, {"error", "no relay answers on the bus"}}),
              json::parse(result.out));
}

TEST_F(Status, RelayThatDoesNotListen_Fails) {
    const FakeRelay relay;
    expectFails("the relay does not answer; one with --in-flight 1 may wait for a RADIUS server");
}

TEST_F(Status, RelayThatDoesNotKnowTheCommand_Fails) {
    const FakeRelay relay("");
    expectFails("the relay tells no status; one with --in-flight 1 has none");
}

TEST_F(Status, AnswerThatCannotBeRead_Fails) {
    std::string otherPort = kTwoServers;
    otherPort.replace(otherPort.find("1645"), 4, "-1.5");
    for (const std::string &answer :
         {std::string("{\"conversations\":1"), std::string("[]"), std::string("\xff"),
          std::string(R"({"conversations":0,"in_flight":0,"limit":64})"),
          std::string(R"({"conversations":0,"in_flight":0,"limit":64,"servers":{}})"),
          std::string(R"({"conversations":0,"in_flight":0,"limit":64,"servers":[7]})"),
          std::string(R"({"conversations":"0","in_flight":0,"limit":64,"servers":[]})"),
          otherPort}) {
        const FakeRelay relay(answer);
        for (const std::vector<std::string> &options :
             {std::vector<std::string>{}, std::vector<std::string>{"--json"}}) {
            const ProgramResult result = run(options);
            EXPECT_EQ(kFailed, result.status) << answer;
            const std::string text = options.empty() ? result.err : result.out;
            EXPECT_THAT(text, HasSubstr("the relay's answer cannot be read: ")) << answer;
            EXPECT_EQ(1, std::count(text.begin(), text.end(), '\n')) << text;
        }
    }
}

TEST_F(Status, TextOfARelayMovesNoCursor) {
    std::string answer = kTwoServers;
    answer.replace(answer.find("b.example"), 9, "b\\u001b[2J");
    const FakeRelay relay(answer);
    EXPECT_THAT(run().out, HasSubstr("\nb?[2J:1645 "));
}

}  // namespace
}  // namespace lanyard::test::status_test
