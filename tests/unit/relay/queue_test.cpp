// The conversations: adding packets, releasing them, and the end of a conversation.
#include <climits>

#include <lanyard/radius/attr.h>
#include <lanyard/radius/frame.h>

#include "tests/support/test.h"
#include "tests/unit/relay/fixture.h"

namespace lanyard::test::queue_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr uint32_t kCookie = 0x1001;
constexpr uint32_t kOther = 0x1002;

class EapQueue : public EapTest {
  protected:
    // Adds a packet that ends where its guard begins.
    static int add(ByteView packet, uint32_t cookie = kCookie, uint32_t module = kPnac,
                   uint32_t command = kReplyCommand) {
        GuardedBuffer buffer(packet);
        buffer.makeReadOnly();
        return radEapRecv(buffer.data(), static_cast<int32_t>(buffer.size()), cookie, module,
                          command);
    }

    static void identify(RadEapQueueEntry &entry) {
        entry.identity = palMemPartStrDup(radMemPartId, "alice");
        ASSERT_NE(nullptr, entry.identity);
    }
    static void giveState(RadEapQueueEntry &entry) {
        entry.state = radPairNew(RAD_ATTR_STATE, "state", 5);
        ASSERT_NE(nullptr, entry.state);
    }

    static std::vector<uint32_t> cookies() {
        std::vector<uint32_t> all;
        for (const RadEapQueueEntry *entry : conversations()) {
            all.push_back(entry->cookie);
        }
        return all;
    }
};

TEST_F(EapQueue, ANewCookieIsANewConversationAtTheEnd) {
    const Bytes packet = identityResponse(7, "alice");
    EXPECT_EQ(0, add(eapResponse(1, 6), kOther));
    log.clear();
    EXPECT_EQ(0, add(packet, kCookie, 9, 0xfffffffe));
    EXPECT_THAT(cookies(), ElementsAre(kOther, kCookie));
    const RadEapQueueEntry &entry = conversation(kCookie);
    EXPECT_EQ(packet, pendingPacket(entry));
    EXPECT_EQ(9U, entry.destModule);
    EXPECT_EQ(0xfffffffeU, entry.replyCmd);
    EXPECT_EQ(0, entry.age);
    EXPECT_EQ(0, entry.reserved);
    EXPECT_EQ(nullptr, entry.identity);
    EXPECT_EQ(nullptr, entry.state);
    EXPECT_LOG(log, "device trace radEapMsgQueueAdd> Adding Packet and cookie:0x1001");
}

TEST_F(EapQueue, AKnownCookieGoesOnWithItsConversation) {
    EXPECT_EQ(0, add(eapResponse(1, 6)));
    EXPECT_EQ(0, add(eapResponse(1, 6), kOther));
    RadEapQueueEntry &entry = conversation(kCookie);
    identify(entry);
    giveState(entry);
    entry.age = 17;
    const RadPair *state = entry.state;
    const size_t blocks = liveBlocks();
    log.clear();

    const Bytes packet = eapResponse(2, 200);
    EXPECT_EQ(0, add(packet, kCookie, 9, 99));
    EXPECT_THAT(cookies(), ElementsAre(kCookie, kOther));
    EXPECT_EQ(packet, pendingPacket(entry));
    EXPECT_EQ(kPnac, entry.destModule);
    EXPECT_EQ(kReplyCommand, entry.replyCmd);
    EXPECT_EQ(17, entry.age);
    EXPECT_STREQ("alice", entry.identity);
    EXPECT_EQ(state, entry.state);
    EXPECT_EQ(blocks, liveBlocks()) << "the packet before is released";
    EXPECT_LOG(log, "device trace radEapMsgQueueAdd> Adding Packet for existing cookie:0x1001");
}

TEST_F(EapQueue, AConversationWithoutAPacketTakesOne) {
    EXPECT_EQ(0, add(eapResponse(1, 6)));
    identify(conversation(kCookie));
    EXPECT_EQ(0, radEapMsgQueueRelease(&conversation(kCookie)));
    const Bytes packet = eapResponse(2, 4);
    EXPECT_EQ(0, add(packet));
    EXPECT_EQ(packet, pendingPacket(conversation(kCookie)));
}

TEST_F(EapQueue, APacketOfAnotherLengthThanEapHasIsDropped) {
    for (const int32_t length : {0, 1, 2, 3, 1501, 65535, INT_MAX}) {
        log.clear();
        const GuardedBuffer buffer(Bytes(1, 2));
        EXPECT_EQ(0, radEapRecv(buffer.data(), length, kCookie, kPnac, kReplyCommand));
        EXPECT_LOG(log, "device error radEapMsgQueueAdd: Invalid EAP packet length(" +
                            std::to_string(length) + ")");
    }
    EXPECT_THAT(cookies(), IsEmpty());
}

TEST_F(EapQueue, ADroppedPacketLeavesTheOneThatWaits) {
    const Bytes packet = eapResponse(1, 6);
    EXPECT_EQ(0, add(packet));
    EXPECT_EQ(0, add(Bytes(3)));
    EXPECT_EQ(0, add(Bytes(1501)));
    EXPECT_EQ(packet, pendingPacket(conversation(kCookie)));
}

TEST_F(EapQueue, TheShortestAndTheLongestPacketAreTaken) {
    for (const size_t size : {4U, 1500U}) {
        const Bytes packet = eapResponse(1, size);
        EXPECT_EQ(0, add(packet));
        EXPECT_EQ(packet, pendingPacket(conversation(kCookie)));
    }
    EXPECT_THAT(log.log(8), IsEmpty());
}

// Seen as a number without a sign it is not too short, and with one not too long.
TEST_F(EapQueue, ALengthWithItsTopBitSetFindsNoMemory) {
    for (const int32_t length : {INT_MIN, -1500, -1}) {
        const GuardedBuffer buffer(Bytes(1, 2));
        EXPECT_EQ(-1, radEapRecv(buffer.data(), length, kCookie, kPnac, kReplyCommand));
        EXPECT_THAT(cookies(), IsEmpty());

        EXPECT_EQ(0, add(eapResponse(1, 6)));
        EXPECT_EQ(-1, radEapRecv(buffer.data(), length, kCookie, kPnac, kReplyCommand));
        EXPECT_THAT(cookies(), IsEmpty()) << "the conversation ends with it";
    }
    EXPECT_THAT(problems(), IsEmpty());
}

TEST_F(EapQueue, AMissingArgumentIsRefused) {
    const Bytes packet = eapResponse(1, 6);
    EXPECT_EQ(-1, radEapRecv(nullptr, 6, kCookie, kPnac, kReplyCommand));
    EXPECT_EQ(-1, add(packet, 0));
    EXPECT_EQ(-1, add(Bytes(3), 0)) << "before the length is looked at";
    EXPECT_THAT(cookies(), IsEmpty());
    EXPECT_LOG(log);
}

TEST_F(EapQueue, WithoutMemoryThereIsNoNewConversation) {
    const unsigned failures = forEachFailingAllocation([] {
        const int result = add(eapResponse(1, 6));
        EXPECT_EQ(allocationFailed() ? -1 : 0, result);
        EXPECT_EQ(allocationFailed(), conversations().empty());
        EXPECT_EQ(0, radEapMsgQueueCleanUp());
    });
    EXPECT_EQ(2U, failures) << "the conversation and its packet";
}

TEST_F(EapQueue, WithoutMemoryAConversationEnds) {
    for (const uint32_t cookie : {1U, 2U, 3U}) {
        EXPECT_EQ(0, add(eapResponse(1, 6), cookie));
    }
    const size_t blocks = liveBlocks();
    EXPECT_EQ(0, add(eapResponse(1, 6), kCookie));
    identify(conversation(kCookie));
    giveState(conversation(kCookie));
    EXPECT_EQ(0, add(eapResponse(1, 6), 4));
    log.clear();
    failAllocation(1);
    EXPECT_EQ(-1, add(eapResponse(2, 6)));
    EXPECT_TRUE(allocationFailed());
    EXPECT_THAT(cookies(), ElementsAre(1, 2, 3, 4));
    EXPECT_EQ(blocks + 2, liveBlocks()) << "with all that it held";
    EXPECT_LOG(log);
}

TEST_F(EapQueue, AReleaseKeepsAConversationWithAnIdentity) {
    EXPECT_EQ(0, add(eapResponse(1, 6)));
    RadEapQueueEntry &entry = conversation(kCookie);
    identify(entry);
    log.clear();
    const size_t blocks = liveBlocks();
    EXPECT_EQ(0, radEapMsgQueueRelease(&entry));
    EXPECT_THAT(cookies(), ElementsAre(kCookie));
    EXPECT_EQ(std::nullopt, pendingPacket(entry));
    EXPECT_STREQ("alice", entry.identity);
    EXPECT_EQ(blocks - 1, liveBlocks());
    EXPECT_EQ(0, radEapMsgQueueRelease(&entry)) << "also where none waits";
    const char *line = "device trace radEapMsgQueueRelease> Releasing Packet with cookie:0x1001";
    EXPECT_LOG(log, line, line);
}

TEST_F(EapQueue, AReleaseKeepsAConversationWithAState) {
    EXPECT_EQ(0, add(eapResponse(1, 6)));
    RadEapQueueEntry &entry = conversation(kCookie);
    giveState(entry);
    log.clear();
    EXPECT_EQ(0, radEapMsgQueueRelease(&entry));
    EXPECT_THAT(cookies(), ElementsAre(kCookie));
    EXPECT_EQ(std::nullopt, pendingPacket(entry));
    EXPECT_NE(nullptr, entry.state);
    EXPECT_LOG(log, "device trace radEapMsgQueueRelease> Releasing Packet with cookie:0x1001");
}

TEST_F(EapQueue, AReleaseEndsAConversationWithNeither) {
    const size_t blocks = liveBlocks();
    for (const uint32_t cookie : {1U, 2U, 3U, 4U}) {
        EXPECT_EQ(0, add(eapResponse(1, 6), cookie));
    }
    log.clear();
    EXPECT_EQ(0, radEapMsgQueueRelease(&conversation(3)));
    EXPECT_THAT(cookies(), ElementsAre(1, 2, 4));
    EXPECT_EQ(0, radEapMsgQueueRelease(&conversation(1)));
    EXPECT_THAT(cookies(), ElementsAre(2, 4));
    EXPECT_EQ(0, radEapMsgQueueRelease(&conversation(4)));
    EXPECT_THAT(cookies(), ElementsAre(2));
    EXPECT_EQ(0, radEapMsgQueueRelease(&conversation(2)));
    EXPECT_THAT(cookies(), IsEmpty());
    EXPECT_EQ(blocks, liveBlocks());
    EXPECT_LOG(log, "device trace radEapMsgQueueRelease> Releasing Packet and cookie:0x3",
               "device trace radEapMsgQueueRelease> Releasing Packet and cookie:0x1",
               "device trace radEapMsgQueueRelease> Releasing Packet and cookie:0x4",
               "device trace radEapMsgQueueRelease> Releasing Packet and cookie:0x2");
}

TEST_F(EapQueue, AReleaseFreesWhatIsInNoList) {
    EXPECT_EQ(0, add(eapResponse(1, 6)));
    const size_t blocks = liveBlocks();
    auto *entry =
        static_cast<RadEapQueueEntry *>(palMemPartAlloc(radMemPartId, sizeof(RadEapQueueEntry)));
    ASSERT_NE(nullptr, entry);
    *entry = {};
    EXPECT_EQ(0, radEapMsgQueueRelease(entry));
    EXPECT_EQ(blocks, liveBlocks());
    EXPECT_THAT(cookies(), ElementsAre(kCookie));
}

TEST_F(EapQueue, AReleaseOfNothingIsRefused) {
    EXPECT_EQ(-1, radEapMsgQueueRelease(nullptr));
    EXPECT_LOG(log);
}

TEST_F(EapQueue, AConversationForgetsIdentityAndState) {
    const Bytes packet = eapResponse(1, 6);
    EXPECT_EQ(0, add(packet));
    RadEapQueueEntry &entry = conversation(kCookie);
    const size_t blocks = liveBlocks();
    identify(entry);
    giveState(entry);
    EXPECT_EQ(0, radEapCtxClear(&entry));
    EXPECT_EQ(nullptr, entry.identity);
    EXPECT_EQ(nullptr, entry.state);
    EXPECT_EQ(blocks, liveBlocks());
    EXPECT_EQ(packet, pendingPacket(entry));
    EXPECT_EQ(0, radEapCtxClear(&entry)) << "also what it does not have";
    EXPECT_EQ(0, radEapCtxClear(nullptr));
}

TEST_F(EapQueue, ACleanUpDropsAll) {
    const size_t blocks = liveBlocks();
    for (const uint32_t cookie : {1U, 2U, 3U, 4U}) {
        EXPECT_EQ(0, add(eapResponse(1, 6), cookie));
    }
    identify(conversation(1));
    identify(conversation(2));
    giveState(conversation(2));
    giveState(conversation(3));
    EXPECT_EQ(0, radEapMsgQueueRelease(&conversation(1)));
    log.clear();
    EXPECT_EQ(0, radEapMsgQueueCleanUp());
    EXPECT_EQ(nullptr, radEapMsgQueue.first);
    EXPECT_EQ(nullptr, radEapMsgQueue.last);
    EXPECT_EQ(blocks, liveBlocks());
    EXPECT_LOG(log);
    EXPECT_EQ(0, radEapMsgQueueCleanUp()) << "also of none";

    EXPECT_EQ(0, add(eapResponse(1, 6)));
    EXPECT_THAT(cookies(), ElementsAre(kCookie)) << "and the queue goes on";
}

}  // namespace
}  // namespace lanyard::test::queue_test
