// Many requests in flight: no conversation waits for another one's server.
#include <chrono>
#include <csignal>
#include <set>

#include "tests/support/test.h"
#include "tests/unit/relay/in_flight_fixture.h"

namespace lanyard::test::in_flight_test {
namespace {

using testing::IsEmpty;
using testing::UnorderedElementsAre;

constexpr uint8_t kRejectCode = 3;
constexpr uint8_t kChallengeCode = 11;

using InFlight = InFlightTest;

Bytes userOf(ByteView request) {
    return attributeValue(request, 1);
}

TEST_F(InFlight, ManyIdentities_AllAskedBeforeAnyIsAnswered) {
    constexpr uint32_t kMany = 40;
    std::vector<Step> steps;
    for (uint32_t cookie = 1; cookie <= kMany; ++cookie) {
        steps.push_back(hand(cookie, identityResponse(7, "user" + std::to_string(cookie))));
    }
    steps.push_back(awaitAsked(kMany));
    steps.push_back(perform([&] {
        EXPECT_THAT(bus.sent, IsEmpty());
        EXPECT_EQ(kMany, status().at("in_flight"));
    }));
    serve(steps);
    std::set<Bytes> users;
    for (const ReceivedRequest &request : server.requests()) {
        EXPECT_TRUE(messageAuthenticatorIsValid(request, kSecret));
        users.insert(userOf(request));
    }
    EXPECT_EQ(kMany, users.size());
}

TEST_F(InFlight, MoreThanTheLimit_NextGoesWhenOneEnds) {
    constexpr uint32_t kLimit = 3;
    constexpr uint32_t kAll = 8;
    setLimit(kLimit);
    Gate gate;
    server.then(gate.behind(kRejectCode, signedAttributes()));
    server.otherwise(reject(signedAttributes()));
    unsigned most = 0;
    const auto look = [&most] { most = std::max(most, status().at("in_flight").get<unsigned>()); };
    std::vector<Step> steps;
    for (uint32_t cookie = 1; cookie <= kAll; ++cookie) {
        steps.push_back(hand(cookie, identityResponse(7, "alice")));
    }
    for (const Step &turn : turns(5)) {
        steps.push_back(turn);
        steps.push_back(perform(look));
    }
    steps.push_back(perform([&] {
        EXPECT_EQ(kAll, conversations().size());
        EXPECT_EQ(kLimit, status().at("in_flight"));
        gate.open();
    }));
    steps.push_back(await([&] {
        look();
        return bus.sent.size() == kAll;
    }));
    serve(steps);
    EXPECT_EQ(kLimit, most);
    EXPECT_EQ(kAll, server.requestCount());
    std::set<uint32_t> answered;
    for (const Sent &sent : bus.sent) {
        answered.insert(sent.word(0));
    }
    EXPECT_EQ(kAll, answered.size());
}

TEST_F(InFlight, IdentityThatIsNeverAnswered_DelaysNobody) {
    server.otherwise(respond([](const ReceivedRequest &request) -> std::optional<Bytes> {
        if (userOf(request) == fromText("mute")) {
            return std::nullopt;
        }
        return makeReply(kRejectCode, request, kSecret, signedAttributes());
    }));
    serve({hand(1, identityResponse(7, "mute")), awaitAsked(1),
           hand(2, identityResponse(7, "alice")), hand(3, identityResponse(7, "bob")), awaitSent(2),
           hand(4, identityResponse(7, "carol")), awaitSent(3), perform([&] {
               EXPECT_EQ(1, status().at("in_flight"));
               EXPECT_EQ(1U, conversations().size());
               EXPECT_THAT(
                   (std::vector{bus.sent[0].word(0), bus.sent[1].word(0), bus.sent[2].word(0)}),
                   UnorderedElementsAre(2, 3, 4));
           })});
}

TEST_F(InFlight, RoundsOfManyConversations_KeepTheirStates) {
    constexpr uint32_t kMany = 10;
    server.otherwise(respond([](const ReceivedRequest &request) -> std::optional<Bytes> {
        // The State names the user; the second round proves it.
        const auto states = attributeValues(request, 24);
        const bool isSecond = !states.empty() && states[0] == userOf(request);
        return isSecond ? makeReply(2, request, kSecret, signedAttributes())
                        : makeReply(
                              kChallengeCode, request, kSecret,
                              eapMessage(eapRequest(8, 22), Attributes().add(24, userOf(request))));
    }));
    std::vector<Step> steps;
    for (uint32_t cookie = 1; cookie <= kMany; ++cookie) {
        steps.push_back(hand(cookie, identityResponse(7, "user" + std::to_string(cookie))));
    }
    steps.push_back(awaitSent(kMany));
    for (uint32_t cookie = 1; cookie <= kMany; ++cookie) {
        steps.push_back(hand(cookie, eapResponse(8, 22)));
    }
    steps.push_back(awaitSent(2 * kMany));
    serve(steps);
    ASSERT_EQ(2 * kMany, bus.sent.size());
    for (size_t index = 0; index < bus.sent.size(); ++index) {
        EXPECT_BYTES_EQ(index < kMany ? eapRequest(8, 22) : "03080004"_hex,
                        bus.sent[index].payload());
    }
}

TEST_F(InFlight, NewerPacketOfAConversation_TakesThePlaceOfTheOneThatWaits) {
    Gate gate;
    server.then(gate.behind(kChallengeCode,
                            eapMessage(eapRequest(8, 22), Attributes().addText(24, "state"))));
    server.otherwise(reject(signedAttributes()));
    serve({hand(1, identityResponse(7, "alice")), awaitAsked(1), hand(1, eapResponse(8, 22)),
           hand(1, eapResponse(9, 30)), perform([&] {
               EXPECT_EQ(eapResponse(9, 30), pendingPacket(conversation(1)));
               gate.open();
           }),
           awaitSent(2)});
    expectVerdict(0, 1, eapRequest(8, 22));
    expectFailure(1, 1, 9, RAD_EAP_FAILED_REJECTED);
    ASSERT_EQ(2U, server.requestCount());
    EXPECT_BYTES_EQ(eapResponse(9, 30), attributeValue(server.request(1), 79));
    EXPECT_BYTES_EQ(fromText("state"), attributeValue(server.request(1), 24));
    EXPECT_BYTES_EQ(fromText("alice"), userOf(server.request(1)));
}

TEST_F(InFlight, RepeatedResponse_IsDroppedWhileTheFirstIsInFlight) {
    Gate gate;
    server.then(gate.behind(kRejectCode, signedAttributes()));
    serve({hand(1, eapResponse(7, 22)), awaitAsked(1), hand(1, eapResponse(7, 22)), perform([&] {
               EXPECT_EQ(std::nullopt, pendingPacket(conversation(1)));
               gate.open();
           }),
           awaitSent(1), perform([] { EXPECT_THAT(conversations(), IsEmpty()); })});
    EXPECT_EQ(1U, server.requestCount());
    EXPECT_EQ(1U, bus.sent.size());
}

TEST_F(InFlight, NewIdentity_EndsTheRequestAndBeginsAnew) {
    Gate gate;
    server.then(gate.behind(2, signedAttributes()));
    server.otherwise(reject(signedAttributes()));
    serve({hand(1, identityResponse(7, "alice")), awaitAsked(1),
           hand(1, identityResponse(8, "bob")), turns(1)[0], perform([&] {
               EXPECT_EQ(1, status().at("in_flight"));
               gate.open();
           }),
           awaitSent(1), await([] { return conversations().empty(); })});
    ASSERT_EQ(1U, bus.sent.size()) << "the accept of the first is nobody's";
    expectFailure(0, 1, 8, RAD_EAP_FAILED_REJECTED);
    ASSERT_EQ(2U, server.requestCount());
    EXPECT_BYTES_EQ(fromText("bob"), userOf(server.request(1)));
}

TEST_F(InFlight, VerdictWithAPacketWaiting_DropsThat) {
    Gate gate;
    server.then(gate.behind(kRejectCode, signedAttributes()));
    serve({hand(1, identityResponse(7, "alice")), awaitAsked(1), hand(1, eapResponse(8, 22)),
           perform([&] { gate.open(); }), awaitSent(1),
           perform([] { EXPECT_THAT(conversations(), IsEmpty()); })});
    expectFailure(0, 1, 7, RAD_EAP_FAILED_REJECTED);
    EXPECT_EQ(1U, server.requestCount());
}

TEST_F(InFlight, PacketThatCannotBeRelayed_IsDropped) {
    serve({hand(1, eapPacket(1, 7, "01"_hex)), turns(1)[0],
           perform([] { EXPECT_THAT(conversations(), IsEmpty()); }), hand(2, "02070005"_hex),
           turns(1)[0], perform([] { EXPECT_THAT(conversations(), IsEmpty()); })});
    EXPECT_EQ(0U, server.requestCount());
    EXPECT_THAT(bus.sent, IsEmpty());
}

TEST_F(InFlight, Conversations_AgeByTimeAndNotByPackets) {
    server.otherwise(answer(5));
    const auto started = std::chrono::steady_clock::now();
    std::vector<Step> steps{hand(1, identityResponse(7, "alice"))};
    constexpr int kPackets = 300;
    for (int packet = 0; packet < kPackets; ++packet) {
        steps.push_back(hand(2, eapPacket(1, 7, "01"_hex)));
        steps.push_back(turns(1)[0]);
    }
    steps.push_back(perform([&] {
        const auto tenths =
            (std::chrono::steady_clock::now() - started) / std::chrono::milliseconds(100);
        EXPECT_LE(conversation(1).age, tenths);
    }));
    steps.push_back(await([] { return conversation(1).age >= 2; }));
    serve(steps);
}

TEST_F(InFlight, TooOldConversation_EndsWithItsRequest) {
    serve({hand(1, identityResponse(7, "alice")), awaitAsked(1),
           perform([] { conversation(1).age = RAD_EAP_LIFE; }), awaitSent(1), perform([] {
               EXPECT_THAT(conversations(), IsEmpty());
               EXPECT_EQ(0, status().at("in_flight"));
           })});
    expectFailure(0, 1, 7, RAD_EAP_FAILED_EXPIRED);
}

TEST_F(InFlight, TooOldConversationWithAPacketWaiting_AnswersThat) {
    serve({hand(1, identityResponse(7, "alice")), awaitAsked(1), hand(1, eapResponse(8, 22)),
           perform([] { conversation(1).age = RAD_EAP_LIFE; }), awaitSent(1),
           perform([] { EXPECT_THAT(conversations(), IsEmpty()); })});
    ASSERT_EQ(1U, bus.sent.size());
    expectFailure(0, 1, 8, RAD_EAP_FAILED_EXPIRED);
}

TEST_F(InFlight, ConversationThatWaitsForItsSupplicant_EndsInSilence) {
    server.otherwise(challenge(eapMessage(eapRequest(8, 22), Attributes().addText(24, "state"))));
    serve({hand(1, identityResponse(7, "alice")), awaitSent(1),
           perform([] { conversation(1).age = RAD_EAP_LIFE; }),
           await([] { return conversations().empty(); })});
    EXPECT_EQ(1U, bus.sent.size());
}

class InFlightCrowd : public InFlightTest {
  protected:
    InFlightCrowd() : InFlightTest(8 << 20) {}
};

TEST_F(InFlightCrowd, ConversationBeyondTheMost_EndsTheOldest) {
    constexpr uint32_t kMost = RAD_EAP_LIFE + 1;
    server.otherwise(silence());
    std::vector<Step> steps;
    for (uint32_t cookie = 1; cookie <= kMost; ++cookie) {
        steps.push_back(hand(cookie, identityResponse(7, "alice")));
    }
    steps.push_back(perform([&] {
        EXPECT_THAT(bus.sent, IsEmpty());
        EXPECT_EQ(kMost, conversations().size());
    }));
    steps.push_back(hand(kMost + 1, identityResponse(7, "bob")));
    steps.push_back(perform([&] {
        EXPECT_EQ(kMost, conversations().size());
        EXPECT_EQ(2U, conversations().front()->cookie);
        EXPECT_EQ(kMost + 1, conversations().back()->cookie);
    }));
    serve(steps);
    ASSERT_LE(1U, bus.sent.size());
    expectFailure(0, 1, 7, RAD_EAP_FAILED_EXPIRED);
}

TEST_F(InFlight, EndWithRequestsInFlight_LeavesNothing) {
    const size_t blocks = liveBlocks();
    serve({hand(1, identityResponse(7, "alice")), hand(2, identityResponse(7, "bob")),
           awaitAsked(2), hand(1, eapResponse(8, 22)), [] { return std::raise(SIGTERM); },
           perform([] { ADD_FAILURE() << "it has ended"; })});
    EXPECT_THAT(conversations(), IsEmpty());
    EXPECT_THAT(bus.sent, IsEmpty());
    EXPECT_EQ("xbusUnRegister", bus.calls.back());
    bus.listens.clear();
    EXPECT_EQ(blocks, liveBlocks());
}

TEST_F(InFlight, OneAtATime_IsTheServiceWithoutThem) {
    for (const int limit : {0, 1, -1}) {
        setLimit(limit);
        bus.calls.clear();
        serve({[] { return 0; }});
        EXPECT_THAT(bus.calls, testing::Contains("xbusListen 100000")) << limit;
    }
}

}  // namespace
}  // namespace lanyard::test::in_flight_test
