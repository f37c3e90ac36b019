// The relay pass, up to the server: which packet it takes, and what becomes of it on the wire.
#include "tests/support/test.h"
#include "tests/unit/relay/fixture.h"

namespace lanyard::test::request_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr uint32_t kCookie = 0x1001;

class EapRequest : public EapTest {
  protected:
    EapRequest() { server.otherwise(reject()); }

    // The EAP packet of a request, as it was cut.
    Bytes carried(size_t index, const std::vector<size_t> &chunks) {
        Bytes whole;
        std::vector<size_t> sizes;
        for (const Bytes &chunk : attributeValues(server.request(index), 79)) {
            sizes.push_back(chunk.size());
            whole = concatenate({whole, chunk});
        }
        EXPECT_EQ(chunks, sizes);
        return whole;
    }
};

TEST_F(EapRequest, IsNotMadeWithoutAPacket) {
    EXPECT_EQ(0, radEapRecvTask());
    EXPECT_LOG(log);
    EXPECT_EQ(0U, server.requestCount());
}

TEST_F(EapRequest, OfAnIdentityHasTheUserName) {
    const Bytes packet = identityResponse(7, "alice@example");
    relay(kCookie, packet);
    ASSERT_EQ(1U, server.requestCount());
    expectAccessRequest(server.request(0), kSecret,
                        Attributes()
                            .addText(1, "alice@example")
                            .add(79, packet)
                            .addInteger(6, 2)
                            .addInteger(12, 1420)
                            .addAddress(4, kDeviceAddress));
}

TEST_F(EapRequest, OfAnUnknownConversationHasTheEapPacketAlone) {
    const Bytes packet = eapResponse(7, 22);
    relay(kCookie, packet);
    expectAccessRequest(server.request(0), kSecret,
                        Attributes()
                            .add(79, packet)
                            .addInteger(6, 2)
                            .addInteger(12, 1420)
                            .addAddress(4, kDeviceAddress));
}

TEST_F(EapRequest, TellsItsSteps) {
    relay(kCookie, identityResponse(7, "alice"));
    EXPECT_THAT(
        told(),
        ElementsAre("device trace radEapMsgQueueAdd> Adding Packet and cookie:0x1001",
                    "device trace radEapMsgQueueGet> Got Packet with cookie:0x1001",
                    "device trace radEapRecvTask> Received EAP-Identity from Pnac: alice",
                    "device trace radEapRecvTask> Filling User-Name: alice",
                    "device trace radEapRecvTask> Filling EAP-Message:",
                    "device trace radEapRecvTask> Filling Service-Type: 2",
                    "device trace radEapRecvTask> Filling Framed-MTU: 1420",
                    "device trace radEapRecvTask> RADIUS Authentication Failed; Sending "
                    "EAP-Failure to Pnac",
                    "device trace radEapMsgQueueRelease> Releasing Packet and cookie:0x1001"));
}

TEST_F(EapRequest, CutsThePacketIntoPiecesOf253Bytes) {
    const std::vector<std::pair<size_t, std::vector<size_t>>> cuts = {
        {5, {5}},
        {252, {252}},
        {253, {253}},
        {254, {253, 1}},
        {505, {253, 252}},
        {506, {253, 253}},
        {507, {253, 253, 1}},
        {1500, {253, 253, 253, 253, 253, 235}}};
    for (size_t index = 0; index < cuts.size(); ++index) {
        const auto &[size, chunks] = cuts[index];
        SCOPED_TRACE(size);
        const Bytes packet = eapResponse(7, size);
        relay(kCookie, packet);
        ASSERT_EQ(index + 1, server.requestCount());
        EXPECT_BYTES_EQ(packet, carried(index, chunks));
        EXPECT_TRUE(messageAuthenticatorIsValid(server.request(index), kSecret));
    }
}

TEST_F(EapRequest, TakesAResponseWithoutATypeForNoIdentity) {
    relay(kCookie, "02070004"_hex);
    EXPECT_THAT(attributeTypes(server.request(0)), ElementsAre(79, 6, 12, 4, 80));
    EXPECT_BYTES_EQ("02070004"_hex, carried(0, {4}));
    expectSent(kCookie, {"04070004"_hex});
}

TEST_F(EapRequest, TakesAnIdentityOfNothing) {
    server.then(answer(5));
    relay(kCookie, "0207000501"_hex);
    EXPECT_THAT(attributeTypes(server.request(0)), ElementsAre(1, 79, 6, 12, 4, 80));
    EXPECT_BYTES_EQ(Bytes(), attributeValue(server.request(0), 1));
    EXPECT_STREQ("", conversation(kCookie).identity);
}

TEST_F(EapRequest, TakesTheLongestIdentityOfAnAttribute) {
    const std::string name(253, 'x');
    relay(kCookie, identityResponse(7, name));
    EXPECT_BYTES_EQ(fromText(name), attributeValue(server.request(0), 1));
    EXPECT_BYTES_EQ(identityResponse(7, name), carried(0, {253, 5}));
}

TEST_F(EapRequest, IsNotMadeOfALongerIdentity) {
    for (const size_t size : {254U, 1495U}) {
        log.clear();
        const std::string name(size, 'x');
        relay(kCookie, identityResponse(7, name));
        EXPECT_EQ(0U, server.requestCount());
        EXPECT_THAT(bus.sent, IsEmpty());
        EXPECT_EQ("device trace radEapMsgQueueRelease> Releasing Packet with cookie:0x1001",
                  told().back());
        EXPECT_EQ(name, conversation(kCookie).identity);
        EXPECT_EQ(std::nullopt, pendingPacket(conversation(kCookie)));
    }
}

TEST_F(EapRequest, HasTheIdentityUpToItsFirstNul) {
    const Bytes packet = identityResponse(7, std::string_view("ali\0ce", 6));
    relay(kCookie, packet);
    EXPECT_BYTES_EQ(fromText("ali"), attributeValue(server.request(0), 1));
    EXPECT_BYTES_EQ(packet, carried(0, {packet.size()}));
}

TEST_F(EapRequest, TellsAnIdentityThatLooksLikeAFormat) {
    relay(kCookie, identityResponse(7, "%s%n%d"));
    EXPECT_EQ("device trace radEapRecvTask> Received EAP-Identity from Pnac: %s%n%d", told().at(2));
    EXPECT_BYTES_EQ(fromText("%s%n%d"), attributeValue(server.request(0), 1));
}

TEST_F(EapRequest, IsMadeOfAResponseAlone) {
    for (const int code : {0, 1, 3, 4, 5, 255}) {
        SCOPED_TRACE(code);
        log.clear();
        relay(kCookie, eapPacket(static_cast<uint8_t>(code), 7, "0401"_hex));
        EXPECT_THAT(
            told(),
            ElementsAre("device trace radEapMsgQueueAdd> Adding Packet and cookie:0x1001",
                        "device trace radEapMsgQueueGet> Got Packet with cookie:0x1001",
                        "device error radEapRecvTask: invalid EAP code:" + std::to_string(code),
                        "device trace radEapMsgQueueRelease> Releasing Packet and cookie:0x1001"));
        EXPECT_THAT(conversations(), IsEmpty());
    }
    EXPECT_EQ(0U, server.requestCount());
    EXPECT_THAT(bus.sent, IsEmpty());
}

TEST_F(EapRequest, IsNotMadeOfAPacketOfAnotherLengthThanItSays) {
    const std::vector<std::pair<Bytes, std::string>> packets = {{"0207000504aabb"_hex, "5, 7"},
                                                                {"0207000804aabb"_hex, "8, 7"},
                                                                {"0207000004aabb"_hex, "0, 7"},
                                                                {"0207ffff04aabb"_hex, "65535, 7"},
                                                                {"02070003"_hex, "3, 4"}};
    for (const auto &[packet, lengths] : packets) {
        SCOPED_TRACE(lengths);
        log.clear();
        relay(kCookie, packet);
        EXPECT_THAT(problems(), ElementsAre("device error radEapRecvTask: Packet length mismatch " +
                                            lengths + " "));
        EXPECT_THAT(conversations(), IsEmpty());
    }
    EXPECT_EQ(0U, server.requestCount());
    EXPECT_THAT(bus.sent, IsEmpty());
}

TEST_F(EapRequest, ADroppedPacketLeavesTheConversation) {
    server.then(challenge(eapMessage(eapRequest(8, 22), Attributes().addText(24, "s"))));
    relay(kCookie, identityResponse(7, "alice"));
    relay(kCookie, eapPacket(1, 8, "0401"_hex));
    relay(kCookie, "0208000904"_hex);
    EXPECT_EQ(1U, server.requestCount());
    EXPECT_STREQ("alice", conversation(kCookie).identity);
    ASSERT_NE(nullptr, conversation(kCookie).state);
}

TEST_F(EapRequest, IsMadeOfOnePacketAPassInTheOrderOfTheConversations) {
    server.then(answer(5)).then(answer(5)).then(answer(5));
    EXPECT_EQ(0, fromPnac(3, identityResponse(1, "third")));
    EXPECT_EQ(0, fromPnac(1, identityResponse(1, "first")));
    EXPECT_EQ(0, fromPnac(2, identityResponse(1, "second")));
    EXPECT_EQ(0, fromPnac(1, identityResponse(2, "first again"))) << "takes the place of the first";
    for (const char *name : {"third", "first again", "second"}) {
        const size_t before = server.requestCount();
        EXPECT_EQ(0, radEapRecvTask());
        ASSERT_EQ(before + 1, server.requestCount());
        EXPECT_BYTES_EQ(fromText(name), attributeValue(server.request(before), 1));
    }
    EXPECT_EQ(0, radEapRecvTask());
    EXPECT_EQ(3U, server.requestCount());
}

TEST_F(EapRequest, HasTheStateOfTheChallengeBefore) {
    const Bytes state = "00ff10 00"_hex;
    server.then(challenge(eapMessage(eapRequest(8, 22), Attributes().add(24, state))));
    relay(kCookie, identityResponse(7, "alice"));
    log.clear();
    const Bytes packet = eapResponse(8, 22);
    server.then(answer(5));
    relay(kCookie, packet);
    expectAccessRequest(server.request(1), kSecret,
                        Attributes()
                            .addText(1, "alice")
                            .add(24, state)
                            .add(79, packet)
                            .addInteger(6, 2)
                            .addInteger(12, 1420)
                            .addAddress(4, kDeviceAddress));
    EXPECT_THAT(
        told(),
        ElementsAre("device trace radEapMsgQueueAdd> Adding Packet for existing cookie:0x1001",
                    "device trace radEapMsgQueueGet> Got Packet with cookie:0x1001",
                    "device trace radEapRecvTask> Filling User-Name: alice",
                    "device trace radEapRecvTask> Filling State:",
                    "device trace radEapRecvTask> Filling EAP-Message:",
                    "device trace radEapRecvTask> Filling Service-Type: 2",
                    "device trace radEapRecvTask> Filling Framed-MTU: 1420",
                    "device trace radEapMsgQueueRelease> Releasing Packet with cookie:0x1001"));
    EXPECT_EQ(nullptr, conversation(kCookie).state) << "it went with the request";
}

TEST_F(EapRequest, HasNoStateWhenTheChallengeBeforeHadNone) {
    server.then(challenge(eapMessage(eapRequest(8, 22), Attributes().addText(24, "first"))));
    server.then(challenge(eapMessage(eapRequest(9, 22))));
    relay(kCookie, identityResponse(7, "alice"));
    relay(kCookie, eapResponse(8, 22));
    relay(kCookie, eapResponse(9, 22));
    EXPECT_THAT(attributeTypes(server.request(1)), ElementsAre(1, 24, 79, 6, 12, 4, 80));
    EXPECT_THAT(attributeTypes(server.request(2)), ElementsAre(1, 79, 6, 12, 4, 80));
}

TEST_F(EapRequest, OfAConversationWithoutIdentityBeginsWithTheState) {
    server.then(challenge(eapMessage(eapRequest(8, 22), Attributes().addText(24, "state"))));
    server.then(challenge(eapMessage(eapRequest(9, 22), Attributes().addText(24, "other"))));
    relay(kCookie, eapResponse(7, 22));
    relay(kCookie, eapResponse(8, 22));
    relay(kCookie, eapResponse(9, 22));
    EXPECT_THAT(attributeTypes(server.request(1)), ElementsAre(24, 79, 6, 12, 4, 80));
    EXPECT_BYTES_EQ(fromText("state"), attributeValue(server.request(1), 24));
    EXPECT_BYTES_EQ(fromText("other"), attributeValue(server.request(2), 24));
}

TEST_F(EapRequest, OfANewIdentityHasNothingOfTheOldOne) {
    server.then(challenge(eapMessage(eapRequest(8, 22), Attributes().addText(24, "state"))));
    relay(kCookie, identityResponse(7, "alice"));
    relay(kCookie, identityResponse(9, "bob"));
    EXPECT_THAT(attributeTypes(server.request(1)), ElementsAre(1, 79, 6, 12, 4, 80));
    EXPECT_BYTES_EQ(fromText("bob"), attributeValue(server.request(1), 1));
}

TEST_F(EapRequest, OfAConversationHasNothingOfAnother) {
    server.then(challenge(eapMessage(eapRequest(8, 22), Attributes().addText(24, "alices"))));
    server.then(challenge(eapMessage(eapRequest(8, 22), Attributes().addText(24, "bobs"))));
    relay(1, identityResponse(7, "alice"));
    relay(2, identityResponse(7, "bob"));
    relay(1, eapResponse(8, 22));
    relay(2, eapResponse(8, 22));
    EXPECT_BYTES_EQ(fromText("alice"), attributeValue(server.request(2), 1));
    EXPECT_BYTES_EQ(fromText("alices"), attributeValue(server.request(2), 24));
    EXPECT_BYTES_EQ(fromText("bob"), attributeValue(server.request(3), 1));
    EXPECT_BYTES_EQ(fromText("bobs"), attributeValue(server.request(3), 24));
}

}  // namespace
}  // namespace lanyard::test::request_test
