// Conversations end after 3000 passes, whatever happens in them.
#include <lanyard/radius/attr.h>
#include <lanyard/radius/frame.h>

#include "tests/support/test.h"
#include "tests/unit/relay/fixture.h"

namespace lanyard::test::ageing_test {
namespace {

using testing::IsEmpty;

constexpr uint32_t kCookie = 0x1001;

class EapAgeing : public EapTest {
  protected:
    static void age(int passes) {
        for (int pass = 0; pass < passes; ++pass) {
            radEapCtxTimeout();
        }
    }
};

TEST_F(EapAgeing, CountsThePasses) {
    EXPECT_EQ(0, fromPnac(1, eapResponse(7, 22)));
    age(1);
    EXPECT_EQ(0, fromPnac(2, eapResponse(7, 22)));
    age(2);
    EXPECT_EQ(3, conversation(1).age);
    EXPECT_EQ(2, conversation(2).age);
}

TEST_F(EapAgeing, EndsAConversationInThe3001stPass) {
    const size_t blocks = liveBlocks();
    EXPECT_EQ(0, fromPnac(kCookie, eapResponse(7, 22)));
    log.clear();
    age(3000);
    EXPECT_EQ(3000, conversation(kCookie).age);
    EXPECT_THAT(bus.sent, IsEmpty());
    EXPECT_LOG(log);
    age(1);
    EXPECT_THAT(conversations(), IsEmpty());
    expectSent(kCookie, {"04070004"_hex});
    EXPECT_EQ(blocks, liveBlocks());
    EXPECT_LOG(log, "device trace radEapMsgQueueRelease> Releasing Packet and cookie:0x1001");
}

TEST_F(EapAgeing, IsNotStoppedByTraffic) {
    server.otherwise(challenge(eapMessage(eapRequest(8, 22), Attributes().addText(24, "state"))));
    relay(kCookie, identityResponse(7, "alice"));
    age(1500);
    relay(kCookie, eapResponse(8, 22));
    EXPECT_EQ(0, fromPnac(kCookie, identityResponse(9, "alice")));
    age(1500);
    EXPECT_EQ(3000, conversation(kCookie).age);
    bus.sent.clear();
    age(1);
    EXPECT_THAT(conversations(), IsEmpty());
    expectSent(kCookie, {"04090004"_hex});
}

TEST_F(EapAgeing, EndsAConversationThatWaitsForTheSupplicantInSilence) {
    server.otherwise(challenge(eapMessage(eapRequest(8, 22), Attributes().addText(24, "state"))));
    relay(kCookie, identityResponse(7, "alice"));
    bus.sent.clear();
    age(3001);
    EXPECT_THAT(conversations(), IsEmpty());
    EXPECT_THAT(bus.sent, IsEmpty());
}

TEST_F(EapAgeing, EndsEachConversationInItsTime) {
    for (const uint32_t cookie : {1U, 2U, 3U, 4U}) {
        EXPECT_EQ(0, fromPnac(cookie, eapResponse(static_cast<uint8_t>(cookie), 22)));
    }
    conversation(1).age = 3000;
    conversation(2).age = 3000;
    conversation(4).age = 3000;
    age(1);
    ASSERT_EQ(1U, conversations().size());
    EXPECT_EQ(1, conversation(3).age);
    ASSERT_EQ(3U, bus.sent.size());
    EXPECT_BYTES_EQ("04010004"_hex, bus.sent[0].payload());
    EXPECT_EQ(2U, bus.sent[1].word(0));
    EXPECT_EQ(4U, bus.sent[2].word(0));
}

TEST_F(EapAgeing, EndsAConversationOfAnyGreaterAge) {
    EXPECT_EQ(0, fromPnac(kCookie, eapResponse(7, 22)));
    conversation(kCookie).age = INT32_MAX;
    age(1);
    EXPECT_THAT(conversations(), IsEmpty());
}

TEST_F(EapAgeing, SendsNothingWithoutACookie) {
    EXPECT_EQ(0, fromPnac(kCookie, eapResponse(7, 22)));
    conversation(kCookie).cookie = 0;
    conversations().at(0)->age = 3000;
    age(1);
    EXPECT_THAT(conversations(), IsEmpty());
    EXPECT_THAT(bus.sent, IsEmpty());
    EXPECT_THAT(problems(), IsEmpty());
}

TEST_F(EapAgeing, EndsAConversationAlsoWithoutMemoryForTheFailure) {
    EXPECT_EQ(0, fromPnac(kCookie, eapResponse(7, 22)));
    conversation(kCookie).age = 3000;
    failAllocation(1);
    age(1);
    EXPECT_TRUE(allocationFailed());
    EXPECT_THAT(conversations(), IsEmpty());
    EXPECT_THAT(bus.sent, IsEmpty());
}

TEST_F(EapAgeing, OfNoConversationsDoesNothing) {
    age(1);
    EXPECT_LOG(log);
    EXPECT_THAT(bus.sent, IsEmpty());
}

}  // namespace
}  // namespace lanyard::test::ageing_test
