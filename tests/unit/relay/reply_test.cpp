// The relay pass, back from the server: what Pnac gets, and what the conversation keeps.
#include <algorithm>

#include <lanyard/radius/attr.h>
#include <lanyard/radius/conf.h>
#include <lanyard/radius/frame.h>

#include "tests/support/test.h"
#include "tests/unit/relay/fixture.h"

namespace lanyard::test::reply_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr uint32_t kCookie = 0x1001;
constexpr const char *kNoEapMessage =
    "device error radEapRecvTask: No EAP-Message Found in RADIUS Server Reply orEAP-Message longer "
    "than "
    "Framed-MTU";

class EapReply : public EapTest {
  protected:
    // Relays the identity of a new conversation, which the server answers so.
    void relayIdentity(Action action) {
        server.then(std::move(action));
        relay(kCookie, identityResponse(7, "alice"));
        ASSERT_EQ(0U, server.unusedActions());
    }

    // The lines after the request.
    [[nodiscard]] std::vector<std::string> toldOfTheReply() const {
        std::vector<std::string> lines = told();
        const auto request =
            std::find(lines.begin(), lines.end(), line("trace", "Filling Framed-MTU: 1420"));
        EXPECT_NE(lines.end(), request);
        lines.erase(lines.begin(), request == lines.end() ? request : request + 1);
        return lines;
    }

    static std::string line(const std::string &level, const std::string &text) {
        return "device " + level + " radEapRecvTask> " + text;
    }
    static std::string released() {
        return "device trace radEapMsgQueueRelease> Releasing Packet with cookie:0x1001";
    }
    static std::string ended() {
        return "device trace radEapMsgQueueRelease> Releasing Packet and cookie:0x1001";
    }

    static void expectEnded() { EXPECT_THAT(conversations(), IsEmpty()); }
    // The conversation waits for the supplicant.
    static void expectWaiting() {
        ASSERT_EQ(1U, conversations().size());
        EXPECT_STREQ("alice", conversation(kCookie).identity);
        EXPECT_EQ(std::nullopt, pendingPacket(conversation(kCookie)));
    }
};

// Unpack hooks that spoil an EAP-Message.
int tooLong(RadPair *pair, RadPair * /*list*/, RadPacket * /*reply*/, RadPacket * /*request*/,
            const char * /*secret*/) {
    if (pair->attrNum != RAD_ATTR_EAP_MESSAGE) {
        return 1;
    }
    pair->numValue = RAD_VALUE_MAX + 1;
    return 0;
}

int withoutType(RadPair *pair, RadPair * /*list*/, RadPacket * /*reply*/, RadPacket * /*request*/,
                const char * /*secret*/) {
    if (pair->attrNum != RAD_ATTR_EAP_MESSAGE) {
        return 1;
    }
    pair->type = 99;
    return 0;
}

using EapChallenge = EapReply;

TEST_F(EapChallenge, GoesToPnacAndItsStateIsKept) {
    const Bytes packet = eapRequest(8, 22);
    const Bytes state = "0001ff"_hex;
    relayIdentity(challenge(eapMessage(packet, Attributes().add(24, state).addText(18, "Hi"))));
    expectSent(kCookie, {packet});
    expectWaiting();
    const RadPair *kept = conversation(kCookie).state;
    ASSERT_NE(nullptr, kept);
    EXPECT_EQ(RAD_ATTR_STATE, kept->attrNum);
    EXPECT_BYTES_EQ(state, valueOf(*kept));
    EXPECT_EQ(nullptr, kept->next);
    EXPECT_THAT(toldOfTheReply(),
                ElementsAre(line("trace", "Received Access-Challenge from Server"),
                            line("trace", "Sending Reply EAP Packet to Pnac"), released()));
}

TEST_F(EapChallenge, ReplacesTheStateBefore) {
    relayIdentity(challenge(eapMessage(eapRequest(8, 22), Attributes().addText(24, "first"))));
    server.then(challenge(eapMessage(eapRequest(9, 22), Attributes().addText(24, "second"))));
    relay(kCookie, eapResponse(8, 22));
    expectSent(kCookie, {eapRequest(8, 22), eapRequest(9, 22)});
    EXPECT_BYTES_EQ(fromText("second"), valueOf(*conversation(kCookie).state));
}

TEST_F(EapChallenge, OfTwoStatesKeepsTheFirst) {
    relayIdentity(challenge(
        eapMessage(eapRequest(8, 22), Attributes().addText(24, "first").addText(24, "second"))));
    EXPECT_BYTES_EQ(fromText("first"), valueOf(*conversation(kCookie).state));
    EXPECT_EQ(nullptr, conversation(kCookie).state->next);
}

TEST_F(EapChallenge, WithoutAStateGoesToPnacAllTheSame) {
    relayIdentity(challenge(eapMessage(eapRequest(8, 22))));
    expectSent(kCookie, {eapRequest(8, 22)});
    expectWaiting();
    EXPECT_EQ(nullptr, conversation(kCookie).state);
    EXPECT_THAT(toldOfTheReply(),
                ElementsAre(line("trace", "Received Access-Challenge from Server"),
                            line("error", "No State Attribute in Access-Challenge message"),
                            line("trace", "Sending Reply EAP Packet to Pnac"), released()));
}

TEST_F(EapChallenge, KeepsAConversationByItsStateAlone) {
    server.then(challenge(eapMessage(eapRequest(8, 22), Attributes().addText(24, "state"))));
    relay(kCookie, eapResponse(7, 22));
    expectSent(kCookie, {eapRequest(8, 22)});
    EXPECT_EQ(nullptr, conversation(kCookie).identity);
    EXPECT_NE(nullptr, conversation(kCookie).state);
}

TEST_F(EapChallenge, WithoutIdentityAndStateEndsTheConversation) {
    server.then(challenge(eapMessage(eapRequest(8, 22))));
    relay(kCookie, eapResponse(7, 22));
    expectSent(kCookie, {eapRequest(8, 22)});
    expectEnded();
}

TEST_F(EapChallenge, WithoutAttributesIsDropped) {
    relayIdentity(challenge());
    expectSent(kCookie, {});
    expectWaiting();
    EXPECT_THAT(toldOfTheReply(),
                ElementsAre(line("trace", "Received Access-Challenge from Server"),
                            line("error", "No attributes received in Access-Challenge message"),
                            released()));
}

TEST_F(EapChallenge, WithoutAnEapPacketIsDroppedAndItsStateKept) {
    relayIdentity(challenge(Attributes().addText(24, "state").addText(18, "Hello")));
    expectSent(kCookie, {});
    expectWaiting();
    EXPECT_BYTES_EQ(fromText("state"), valueOf(*conversation(kCookie).state));
    EXPECT_THAT(toldOfTheReply(),
                ElementsAre(line("trace", "Received Access-Challenge from Server"), kNoEapMessage,
                            released()));
}

TEST_F(EapChallenge, IsPutTogetherFromItsPiecesInTheirOrder) {
    const Bytes packet = eapRequest(8, 300);
    const ByteView bytes = packet;
    relayIdentity(challenge(Attributes()
                                .add(79, bytes.first(3))
                                .addText(24, "state")
                                .add(79, bytes.subspan(3, 253))
                                .addText(18, "Hello")
                                .add(79, bytes.subspan(256))
                                .addMessageAuthenticator()));
    expectSent(kCookie, {packet});
}

TEST_F(EapChallenge, OfTheLargestEapPacketGoesToPnac) {
    relayIdentity(challenge(eapMessage(eapRequest(8, 1500), Attributes().addText(24, "state"))));
    expectSent(kCookie, {eapRequest(8, 1500)});
}

TEST_F(EapChallenge, OfALargerEapPacketIsDropped) {
    for (const size_t size : {1501U, 3000U}) {
        log.clear();
        relayIdentity(
            challenge(eapMessage(eapRequest(8, size), Attributes().addText(24, "state"))));
        expectSent(kCookie, {});
        expectWaiting();
        EXPECT_THAT(toldOfTheReply(),
                    ElementsAre(line("trace", "Received Access-Challenge from Server"),
                                kNoEapMessage, released()));
    }
}

// A hook may leave such pieces behind: longer than an attribute, or without a value at all.
TEST_F(EapChallenge, WithAPieceThatIsNoValueIsDroppedInSilence) {
    for (const RadUnpackHook hook : {tooLong, withoutType}) {
        log.clear();
        const RadFuncTbl table{.radPackHook = nullptr, .radUnpackHook = hook};
        ASSERT_EQ(0, radFuncTblInstall(&table));
        relayIdentity(challenge(eapMessage(eapRequest(8, 300), Attributes().addText(24, "state"))));
        expectSent(kCookie, {});
        expectWaiting();
        EXPECT_THAT(
            toldOfTheReply(),
            ElementsAre(line("trace", "Received Access-Challenge from Server"), released()));
    }
}

// Whoever reads the record takes what he understands of it.
TEST_F(EapChallenge, GoesToPnacWithWhatTheServerSentAfterItsOwnEnd) {
    const Bytes whole = concatenate({eapRequest(8, 22), "0008 0206 00000e10"_hex});
    relayIdentity(challenge(eapMessage(whole, Attributes().addText(24, "state"))));
    expectSent(kCookie, {whole});

    relayIdentity(
        challenge(eapMessage(whole, Attributes().addText(24, "state").addInteger(27, 30))));
    expectSent(kCookie, {concatenate({whole, "0008 0306 0000001e"_hex})});
}

TEST_F(EapChallenge, ThatSaysMoreThanItHoldsGoesToPnacAsItIs) {
    const Bytes packet = "01080100 04aabb"_hex;
    relayIdentity(challenge(eapMessage(packet, Attributes().addText(24, "state"))));
    expectSent(kCookie, {packet});
}

TEST_F(EapChallenge, ShorterThanAHeaderGoesToPnacAsItIs) {
    relayIdentity(challenge(eapMessage("0108"_hex, Attributes().addText(24, "state"))));
    expectSent(kCookie, {"0108"_hex});
}

TEST_F(EapChallenge, HasTheKeyInformationAfterIt) {
    const Bytes packet = eapRequest(8, 22);
    relayIdentity(challenge(
        eapMessage(packet, Attributes().addText(24, "state").addInteger(27, 0x01020304))));
    expectSent(kCookie, {concatenate({packet, "0008 0306 01020304"_hex})});
}

TEST_F(EapChallenge, HasTheKeyInformationAfterTheLargestEapPacket) {
    const Bytes packet = eapRequest(8, 1500);
    relayIdentity(challenge(eapMessage(
        packet, Attributes().addText(24, "state").addInteger(27, 60).addInteger(29, 1))));
    expectSent(kCookie, {concatenate({packet, "0008 0306 0000003c"_hex})});
}

TEST_F(EapChallenge, ThatTheBusRefusesIsTold) {
    bus.sendResult = -1;
    relayIdentity(challenge(eapMessage(eapRequest(8, 22), Attributes().addText(24, "state"))));
    EXPECT_THAT(toldOfTheReply(),
                ElementsAre(line("trace", "Received Access-Challenge from Server"),
                            line("trace", "Sending Reply EAP Packet to Pnac"),
                            "device error radEapSendRtn> xbusIoctl failed",
                            line("trace", "Error sending packet to Pnac"), released()));
    expectWaiting();
    EXPECT_NE(nullptr, conversation(kCookie).state);
}

TEST_F(EapChallenge, WithoutASignatureIsAFailure) {
    relayIdentity(challenge(Attributes().addText(24, "state").add(79, eapRequest(8, 22))));
    expectSent(kCookie, {"04070004"_hex});
    expectEnded();
}

using EapAccept = EapReply;

TEST_F(EapAccept, IsASuccess) {
    relayIdentity(accept(Attributes().addText(1, "alice").addInteger(28, 60)));
    expectSent(kCookie, {"03070004"_hex});
    expectEnded();
    EXPECT_THAT(
        toldOfTheReply(),
        ElementsAre(line("trace", "RADIUS Authentication Successful; Sending EAP-Success to Pnac"),
                    ended()));
}

TEST_F(EapAccept, WithoutAttributesIsASuccess) {
    relayIdentity(accept());
    expectSent(kCookie, {"03070004"_hex});
    expectEnded();
}

TEST_F(EapAccept, AnswersTheResponse) {
    relayIdentity(challenge(eapMessage(eapRequest(8, 22), Attributes().addText(24, "state"))));
    expectSent(kCookie, {eapRequest(8, 22)});
    server.then(accept(eapMessage(eapPacket(3, 99))));
    relay(kCookie, eapResponse(0xa8, 22));
    expectSent(kCookie, {"03a80004"_hex});
    expectEnded();
}

TEST_F(EapAccept, HasNothingOfTheServersEapPacket) {
    relayIdentity(accept(eapMessage("03630004"_hex)));
    expectSent(kCookie, {"03070004"_hex});
}

TEST_F(EapAccept, HasTheSessionTimeoutAndWhatComesAfterIt) {
    relayIdentity(accept(Attributes().addInteger(27, 3600).addInteger(29, 1)));
    expectSent(kCookie, {"03070004 0008 0206 00000e10"_hex});
    relayIdentity(accept(Attributes().addInteger(29, 1).addInteger(27, 3600)));
    expectSent(kCookie, {"03070004 0008 0206 00000e10"_hex});
    relayIdentity(accept(Attributes().addInteger(27, 3600).addInteger(29, 0)));
    expectSent(kCookie, {"03070004 0008 0506 00000e10"_hex});
    relayIdentity(accept(Attributes().addInteger(27, 3600)));
    expectSent(kCookie, {"03070004 0008 0506 00000e10"_hex});
    relayIdentity(accept(Attributes().addInteger(29, 1)));
    expectSent(kCookie, {"03070004"_hex});
}

TEST_F(EapAccept, HasTheDecryptedKeys) {
    const Bytes recvKey = Bytes(32, 0x11);
    const Bytes sendKey = "a1a2a3a4a5"_hex;
    relayIdentity(accept([&](const ReceivedRequest &request) {
        return Attributes()
            .addVendor(311, 16, encryptMppeKey(sendKey, kSecret, request.authenticator(), 0x8001))
            .addInteger(27, 60)
            .addVendor(311, 17, encryptMppeKey(recvKey, kSecret, request.authenticator(), 0x8002))
            .addMessageAuthenticator();
    }));
    expectSent(kCookie, {concatenate({"03070004 0033"_hex, "0506 0000003c"_hex, "0123 20"_hex,
                                      recvKey, "0408 05"_hex, sendKey})});
    expectEnded();
}

TEST_F(EapAccept, ThatTheBusRefusesEndsTheConversation) {
    bus.sendResult = -1;
    relayIdentity(accept());
    EXPECT_THAT(
        toldOfTheReply(),
        ElementsAre(line("trace", "RADIUS Authentication Successful; Sending EAP-Success to Pnac"),
                    "device error radEapSendRtn> xbusIoctl failed", ended()));
    expectEnded();
}

class EapFailure : public EapReply {
  protected:
    void expectFailure() {
        expectSent(kCookie, {"04070004"_hex});
        expectEnded();
        EXPECT_THAT(
            toldOfTheReply(),
            ElementsAre(line("trace", "RADIUS Authentication Failed; Sending EAP-Failure to Pnac"),
                        ended()));
    }
};

TEST_F(EapFailure, IsARejectsAnswer) {
    relayIdentity(reject());
    expectFailure();
}

TEST_F(EapFailure, HasNothingOfTheServersEapPacketOrKeys) {
    relayIdentity(reject(eapMessage("04630004"_hex, Attributes().addInteger(27, 60))));
    expectFailure();
}

TEST_F(EapFailure, IsTheAnswerToSilence) {
    const SilentPort silent;
    ASSERT_EQ(0, radConfDelAuthServ());
    ASSERT_EQ(0, radConfAddAuthServ(silent.host().c_str(), silent.port(), 0, 0, kSecret, nullptr));
    relay(kCookie, identityResponse(7, "alice"));
    EXPECT_EQ(1U, silent.received().size());
    expectFailure();
}

TEST_F(EapFailure, IsTheAnswerToAReplyThatIsNotGenuine) {
    relayIdentity(accept().withWrongAuthenticator());
    expectFailure();
}

TEST_F(EapFailure, IsTheAnswerWithoutAServer) {
    ASSERT_EQ(0, radConfDelAuthServ());
    relay(kCookie, identityResponse(7, "alice"));
    expectFailure();
}

TEST_F(EapFailure, AlsoEndsAConversationWithAState) {
    relayIdentity(challenge(eapMessage(eapRequest(8, 22), Attributes().addText(24, "state"))));
    expectSent(kCookie, {eapRequest(8, 22)});
    log.clear();
    server.then(reject());
    relay(kCookie, eapResponse(7, 22));
    expectFailure();
}

using EapOther = EapReply;

TEST_F(EapOther, ReplyIsDroppedAndTheIdentityKept) {
    for (const uint8_t code : {uint8_t{5}, uint8_t{12}, uint8_t{255}}) {
        log.clear();
        relayIdentity(answer(code, Attributes().addText(24, "state")));
        expectSent(kCookie, {});
        expectWaiting();
        EXPECT_EQ(nullptr, conversation(kCookie).state);
        EXPECT_THAT(toldOfTheReply(), ElementsAre(released()));
    }
}

TEST_F(EapOther, ReplyEndsAConversationThatHoldsNothing) {
    server.then(answer(5));
    relay(kCookie, eapResponse(7, 22));
    expectSent(kCookie, {});
    expectEnded();
}

}  // namespace
}  // namespace lanyard::test::reply_test
