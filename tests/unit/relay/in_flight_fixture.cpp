#include "tests/unit/relay/in_flight_fixture.h"

#include <array>
#include <chrono>
#include <thread>

#include <lanyard/radius/conf.h>
#include <lanyard/radius/frame.h>

namespace lanyard::test {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kLongest{20};
constexpr int kLimit = 64;

// Whether the bus had something, as xbusListen() says it.
constexpr int kHandled = 1;
constexpr int kNothing = 0;

}  // namespace

InFlightTest::InFlightTest(uint32_t partition) : EapTest(partition) {
    setLimit(kLimit);
    bus.calls.clear();
    pRadEapXbusCtx = nullptr;
}

InFlightTest::~InFlightTest() {
    setLimit(0);
    for (const int option : {RAD_OPTION_REQUIRE_MESSAGE_AUTHENTICATOR, RAD_OPTION_DEAD_TIME,
                             RAD_OPTION_STATUS_SERVER}) {
        radOptionSet(option, 0);
    }
}

void InFlightTest::setLimit(int requests) {
    radOptionSet(RAD_OPTION_EAP_IN_FLIGHT, requests);
}

void InFlightTest::serve(const std::vector<Step> &steps) {
    bus.listens.assign(steps.begin(), steps.end());
    EXPECT_EQ(0, radEapInit());
}

InFlightTest::Step InFlightTest::hand(uint32_t cookie, const Bytes &packet) {
    return handWith(cookie, packet, {});
}

InFlightTest::Step InFlightTest::handWith(uint32_t cookie, const Bytes &packet,
                                          const Bytes &portInfo) {
    return [=] {
        const auto length = static_cast<uint32_t>(packet.size());
        EXPECT_EQ(0, deliver(kPacketCommand, busRecord(cookie, concatenate({packet, portInfo}),
                                                       kReplyCommand, length)));
        return kHandled;
    };
}

InFlightTest::Step InFlightTest::perform(const std::function<void()> &action) {
    return [action] {
        action();
        return kHandled;
    };
}

InFlightTest::Step InFlightTest::await(const std::function<bool()> &condition) {
    // The time counts from the first look.
    return [this, condition, end = std::optional<Clock::time_point>()]() mutable {
        const auto now = Clock::now();
        end = end.value_or(now + kLongest);
        if (condition()) {
            return kNothing;
        }
        if (now > *end) {
            ADD_FAILURE() << "it does not come true; " << bus.listens.size() << " steps are left";
            bus.listens.clear();
            return kNothing;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        bus.again = true;
        return kNothing;
    };
}

InFlightTest::Step InFlightTest::awaitSent(size_t records) {
    return await([this, records] { return bus.sent.size() >= records; });
}

InFlightTest::Step InFlightTest::awaitAsked(size_t requests) {
    return await([this, requests] { return server.requestCount() >= requests; });
}

std::vector<InFlightTest::Step> InFlightTest::turns(size_t count) {
    return std::vector<Step>(count, [] { return kNothing; });
}

nlohmann::json InFlightTest::status() {
    std::array<char, 16384> text{};
    auto size = static_cast<uint32_t>(text.size());
    if (radEapIoctlHandler(nullptr, nullptr, RAD_EAP_CMD_STATUS, nullptr, 0, text.data(), &size) !=
        0) {
        ADD_FAILURE() << "the relay tells no status";
        return {};
    }
    return nlohmann::json::parse(text.data(), text.data() + size);
}

nlohmann::json InFlightTest::statusOf(const ScriptedServer &server) {
    const nlohmann::json servers = status().at("servers");
    for (const nlohmann::json &entry : servers) {
        if (entry.at("host") == server.host() && entry.at("port") == server.port()) {
            return entry;
        }
    }
    // Nothing has been sent to it yet.
    return {{"bad_authenticators", 0}};
}

void InFlightTest::expectVerdict(size_t index, uint32_t cookie, ByteView payload) {
    ASSERT_LT(index, bus.sent.size());
    const Sent &sent = bus.sent[index];
    EXPECT_EQ(kPnac, sent.module);
    EXPECT_EQ(kReplyCommand, sent.command);
    EXPECT_BYTES_EQ(busRecord(cookie, payload, 0xffffffff), sent.record);
}

void InFlightTest::expectFailure(size_t index, uint32_t cookie, uint8_t identifier,
                                 uint8_t reason) {
    expectVerdict(index, cookie, Bytes{4, identifier, 0, 4, 0, 5, 6, 3, reason});
}

void InFlightTest::configure(const ServerEntry &entry) {
    EXPECT_EQ(0, radConfDelAuthServ());
    EXPECT_EQ(0, radConfAddAuthServ(entry.host.c_str(), entry.port, entry.timeout, entry.retries,
                                    entry.secret.c_str(), nullptr));
}

}  // namespace lanyard::test
