// The status of a relay with many requests in flight.
#include <array>

#include <lanyard/radius/frame.h>

#include "tests/support/test.h"
#include "tests/unit/relay/in_flight_fixture.h"

namespace lanyard::test::status_test {
namespace {

using nlohmann::json;

class Status : public InFlightTest {
  protected:
    // Asks with room for that many bytes. Returns the text; nothing when the relay has none.
    static std::optional<std::string> askWith(size_t room) {
        GuardedBuffer buffer(Bytes(room, 0xee));
        auto size = static_cast<uint32_t>(room);
        if (radEapIoctlHandler(nullptr, nullptr, RAD_EAP_CMD_STATUS, nullptr, 0, buffer.data(),
                               &size) != 0) {
            return std::nullopt;
        }
        EXPECT_LE(size, room);
        return std::string(reinterpret_cast<const char *>(buffer.data()), size);
    }
};

TEST_F(Status, BeforeTheFirstRequest_IsEmptyButForTheLimit) {
    setLimit(17);
    serve({perform([] {
        const json told = status();
        EXPECT_EQ(0, told.at("conversations"));
        EXPECT_EQ(0, told.at("in_flight"));
        EXPECT_EQ(17, told.at("limit"));
        EXPECT_TRUE(told.at("servers").is_array());
        EXPECT_EQ(4U, told.size());
    })});
}

TEST_F(Status, CountsConversationsRequestsAndReplies) {
    server.then(challenge(eapMessage(eapRequest(8, 22), Attributes().addText(24, "state"))));
    server.then(accept(signedAttributes()));
    server.then(reject(signedAttributes()));
    server.then(accept(signedAttributes()).withWrongAuthenticator());
    serve({hand(1, identityResponse(7, "alice")), awaitSent(1), perform([] {
               EXPECT_EQ(1, status().at("conversations"));
               EXPECT_EQ(0, status().at("in_flight"));
           }),
           hand(2, identityResponse(7, "bob")), awaitSent(2), hand(3, identityResponse(7, "carol")),
           awaitSent(3), hand(4, identityResponse(7, "dave")),
           await([this] { return statusOf(server).at("bad_authenticators") == 1; }),
           perform([this] {
               const json told = status();
               EXPECT_EQ(2, told.at("conversations"));
               EXPECT_EQ(1, told.at("in_flight"));
               const json known = statusOf(server);
               EXPECT_EQ(true, known.at("alive"));
               EXPECT_EQ(0, known.at("dead_seconds"));
               EXPECT_EQ(1, known.at("pending"));
               EXPECT_EQ(4, known.at("requests"));
               EXPECT_EQ(0, known.at("retransmissions"));
               EXPECT_EQ(0, known.at("timeouts"));
               EXPECT_EQ(1, known.at("accepts"));
               EXPECT_EQ(1, known.at("rejects"));
               EXPECT_EQ(1, known.at("challenges"));
               EXPECT_EQ(0, known.at("responses"));
               EXPECT_EQ(0, known.at("malformed"));
               EXPECT_EQ(0, known.at("strays"));
               EXPECT_GT(known.at("median_us"), 0);
               EXPECT_GE(known.at("p95_us"), known.at("median_us"));
               EXPECT_EQ(17U, known.size());
           })});
}

TEST_F(Status, DeadServer_IsTold) {
    const ScriptedServer silent(kSecret);
    configure(serverEntry(silent, 1, 0));
    serve({hand(1, identityResponse(7, "alice")), awaitSent(1), perform([&] {
               const json known = statusOf(silent);
               EXPECT_EQ(false, known.at("alive"));
               EXPECT_EQ(1, known.at("timeouts"));
               EXPECT_EQ(0, known.at("pending"));
           })});
}

// Never in the middle of an object, and never behind the end.
TEST_F(Status, AnyRoom_TellsAsManyServersAsFit) {
    std::vector<std::unique_ptr<ScriptedServer>> servers;
    std::vector<Step> steps;
    for (size_t index = 0; index < 12; ++index) {
        servers.push_back(std::make_unique<ScriptedServer>(kSecret));
        servers.back()->otherwise(reject(signedAttributes()));
        steps.push_back(
            perform([entry = serverEntry(*servers.back(), kPatience)] { configure(entry); }));
        steps.push_back(hand(1, identityResponse(7, "alice")));
        steps.push_back(awaitSent(index + 1));
    }
    steps.push_back(perform([&] {
        const json whole = status();
        EXPECT_GE(whole.at("servers").size(), servers.size());
        for (const auto &one : servers) {
            EXPECT_EQ(1, statusOf(*one).at("rejects"));
        }
        size_t most = 0;
        for (size_t room = 1; room <= whole.dump().size() + 100; room += 31) {
            const auto text = askWith(room);
            if (!text) {
                EXPECT_EQ(0U, most) << "with " << room;
                continue;
            }
            const json told = json::parse(*text, nullptr, false);
            ASSERT_FALSE(told.is_discarded()) << *text;
            EXPECT_EQ(whole.at("limit"), told.at("limit"));
            EXPECT_LE(most, told.at("servers").size());
            most = told.at("servers").size();
        }
        EXPECT_EQ(whole.at("servers").size(), most);
    }));
    serve(steps);
}

TEST_F(Status, NoRoomAtAll_IsRefused) {
    serve({perform([] {
        std::array<char, 1000> text{};
        auto size = static_cast<uint32_t>(text.size());
        EXPECT_EQ(-1, radEapIoctlHandler(nullptr, nullptr, RAD_EAP_CMD_STATUS, nullptr, 0, nullptr,
                                         &size));
        EXPECT_EQ(-1, radEapIoctlHandler(nullptr, nullptr, RAD_EAP_CMD_STATUS, nullptr, 0,
                                         text.data(), nullptr));
        size = 0;
        EXPECT_EQ(-1, radEapIoctlHandler(nullptr, nullptr, RAD_EAP_CMD_STATUS, nullptr, 0,
                                         text.data(), &size));
        EXPECT_EQ('\0', text[0]);
    })});
}

// The command is one of a record then, as every other.
TEST_F(Status, OneAtATime_IsNotTold) {
    setLimit(1);
    server.otherwise(reject());
    serve({perform([] {
        std::array<char, 1000> text{};
        auto size = static_cast<uint32_t>(text.size());
        EXPECT_EQ(-1, radEapIoctlHandler(nullptr, nullptr, RAD_EAP_CMD_STATUS, nullptr, 0,
                                         text.data(), &size));
        Bytes record = busRecord(1, identityResponse(7, "alice"));
        EXPECT_EQ(0, radEapIoctlHandler(nullptr, nullptr, RAD_EAP_CMD_STATUS, record.data(),
                                        static_cast<uint32_t>(record.size()), text.data(), &size));
        EXPECT_EQ('\0', text[0]);
        EXPECT_EQ(1U, conversations().size());
    })});
}

}  // namespace
}  // namespace lanyard::test::status_test
