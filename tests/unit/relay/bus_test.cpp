// The relay on the bus: its registration, the handler of what comes in, and what goes to Pnac.
#include <cerrno>
#include <climits>
#include <cstring>

#include <lanyard/radius/conf.h>
#include <lanyard/radius/mgmt.h>

#include "tests/support/test.h"
#include "tests/unit/relay/fixture.h"

namespace lanyard::test::bus_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

constexpr uint32_t kCookie = 0x1001;

class EapBus : public EapTest {
  protected:
    EapBus() { bus.calls.clear(); }
};

using EapRegistration = EapBus;

TEST_F(EapRegistration, IsThatOfModule8) {
    pRadEapXbusCtx = nullptr;
    EXPECT_EQ(0, radEapXbusInit());
    EXPECT_THAT(bus.calls, ElementsAre("xbusInit", "xbusRegister 8 2"));
    EXPECT_EQ(&radEapIoctlHandler, bus.handler);
    EXPECT_EQ(nullptr, bus.handlerArgument);
    EXPECT_EQ(TestBus::context(), pRadEapXbusCtx);
    EXPECT_LOG(log);
}

TEST_F(EapRegistration, NeedsTheBus) {
    for (const int result : {-1, 1}) {
        log.clear();
        bus.calls.clear();
        bus.initResult = result;
        EXPECT_EQ(-1, radEapXbusInit());
        EXPECT_THAT(bus.calls, ElementsAre("xbusInit"));
        EXPECT_LOG(log, "device error radEapXbusInit> failed to initialize XBUS ");
    }
}

TEST_F(EapRegistration, NeedsItsPlaceOnTheBus) {
    bus.registerError = EADDRINUSE;
    EXPECT_EQ(-1, radEapXbusInit());
    EXPECT_THAT(bus.calls, ElementsAre("xbusInit", "xbusRegister 8 2", "xbusDeInit"));
    EXPECT_EQ(nullptr, pRadEapXbusCtx);
    EXPECT_LOG(log, "device error radEapXbusInit> xbusRegister failed. errno=" +
                        std::to_string(EADDRINUSE));
}

TEST_F(EapRegistration, AtAuthenticationServersDoesNothing) {
    EXPECT_EQ(0, radEapASRegister());
    EXPECT_THAT(bus.calls, IsEmpty());
    EXPECT_LOG(log);
}

using EapHandler = EapBus;

TEST_F(EapHandler, QueuesPacketsOfEveryCommandButOne) {
    uint32_t cookie = 1;
    for (const uint32_t command : {0U, 1U, 3U, 5U, 17U, 0x80000004U, 0xffffffffU}) {
        const Bytes packet = eapResponse(static_cast<uint8_t>(cookie), 22);
        EXPECT_EQ(0, deliver(command, busRecord(cookie, packet, 0x01020304)));
        const RadEapQueueEntry &entry = conversation(cookie);
        EXPECT_EQ(packet, pendingPacket(entry));
        EXPECT_EQ(0x01020304U, entry.replyCmd);
        EXPECT_EQ(6U, entry.destModule);
        ++cookie;
    }
    EXPECT_EQ(0U, server.requestCount()) << "they wait for the relay pass";
}

TEST_F(EapHandler, LeavesItsFirstArgumentsAlone) {
    Bytes record = busRecord(kCookie, eapResponse(1, 22));
    int one = 1;
    uint32_t outLen = 4;
    EXPECT_EQ(0, radEapIoctlHandler(&one, &one, 17, record.data(),
                                    static_cast<uint32_t>(record.size()), &one, &outLen));
    EXPECT_EQ(1, one);
    EXPECT_EQ(4U, outLen);
    EXPECT_EQ(1U, conversations().size());
}

TEST_F(EapHandler, TakesARecordOfAnyAlignment) {
    const Bytes record = busRecord(kCookie, eapResponse(1, 23));
    GuardedBuffer room(record.size() + 1, GuardedBuffer::Edge::start);
    std::memcpy(room.data() + 1, record.data(), record.size());
    EXPECT_EQ(0, radEapIoctlHandler(nullptr, nullptr, 17, room.data() + 1,
                                    static_cast<uint32_t>(record.size()), nullptr, nullptr));
    EXPECT_EQ(eapResponse(1, 23), pendingPacket(conversation(kCookie)));
}

TEST_F(EapHandler, RefusesAMessageOfNothing) {
    for (const uint32_t command : {17U, 4U}) {
        log.clear();
        EXPECT_EQ(-1,
                  radEapIoctlHandler(nullptr, nullptr, command, nullptr, 100, nullptr, nullptr));
        EXPECT_LOG(log, "device error radEapIoctlHandler> Invalid arguments to ioctl handler ");
    }
}

TEST_F(EapHandler, DropsARecordThatIsShorterThanItsHead) {
    const Bytes record = busRecord(kCookie, {});
    for (size_t size = 0; size < 12; ++size) {
        log.clear();
        EXPECT_EQ(0, deliver(17, ByteView(record).first(size)));
        EXPECT_THAT(
            log.log(),
            ElementsAre(StartsWith("device error radEapMsgQueueAdd: Invalid EAP packet length(")));
    }
    EXPECT_THAT(conversations(), IsEmpty());
}

TEST_F(EapHandler, DropsARecordThatIsShorterThanItSays) {
    const Bytes packet = eapResponse(1, 22);
    for (const uint32_t length :
         {23U, 1500U, 1501U, 0x7fffffffU, 0x80000000U, 0xfffffff4U, 0xffffffffU}) {
        log.clear();
        EXPECT_EQ(0, deliver(17, busRecord(kCookie, packet, kReplyCommand, length)));
        EXPECT_LOG(log, "device error radEapMsgQueueAdd: Invalid EAP packet length(" +
                            std::to_string(static_cast<int32_t>(length)) + ")");
    }
    EXPECT_THAT(conversations(), IsEmpty());
}

TEST_F(EapHandler, TakesNoMoreOfARecordThanItSays) {
    const Bytes packet = eapResponse(1, 22);
    EXPECT_EQ(
        0, deliver(17, busRecord(kCookie, concatenate({packet, "aabbcc"_hex}), kReplyCommand, 22)));
    EXPECT_EQ(packet, pendingPacket(conversation(kCookie)));
}

TEST_F(EapHandler, YieldsNothingOfWhatBecomesOfAPacket) {
    EXPECT_EQ(0, fromPnac(0, eapResponse(1, 22)));
    EXPECT_EQ(0, fromPnac(kCookie, Bytes(3)));
    EXPECT_EQ(0, fromPnac(kCookie, Bytes(1501)));
    EXPECT_EQ(0, fromPnac(kCookie, {}));
    failAllocation(1);
    EXPECT_EQ(0, fromPnac(kCookie, eapResponse(1, 22)));
    EXPECT_TRUE(allocationFailed());
    EXPECT_THAT(conversations(), IsEmpty());
    EXPECT_EQ(log.texts(8),
              (std::vector<std::string>{"radEapMsgQueueAdd: Invalid EAP packet length(3)\n",
                                        "radEapMsgQueueAdd: Invalid EAP packet length(1501)\n",
                                        "radEapMsgQueueAdd: Invalid EAP packet length(0)\n"}));
}

TEST_F(EapHandler, TellsPnacOfANewcomerWithoutRoom) {
    // The conversation, then its packet.
    for (const unsigned failing : {1U, 2U}) {
        const size_t blocks = liveBlocks();
        failAllocation(failing);
        EXPECT_EQ(0, fromPnac(kCookie, identityResponse(0xa7, "alice"), 99));
        EXPECT_TRUE(allocationFailed());
        EXPECT_EQ(blocks, liveBlocks());
        EXPECT_THAT(conversations(), IsEmpty());
        ASSERT_EQ(1U, bus.sent.size());
        EXPECT_EQ(kPnac, bus.sent[0].module);
        EXPECT_EQ(99U, bus.sent[0].command) << "what the record asks for";
        EXPECT_BYTES_EQ(busRecord(kCookie, "04a70004"_hex, 0xffffffff), bus.sent[0].record);
        bus.sent.clear();
    }
    EXPECT_THAT(problems(), IsEmpty());
}

TEST_F(EapHandler, TellsPnacOfAConversationThatEndsForWantOfRoom) {
    EXPECT_EQ(0, fromPnac(kCookie, identityResponse(1, "alice"), 99));
    failAllocation(1);
    EXPECT_EQ(0, fromPnac(kCookie, eapResponse(2, 22), 77));
    EXPECT_THAT(conversations(), IsEmpty());
    ASSERT_EQ(1U, bus.sent.size());
    EXPECT_EQ(99U, bus.sent[0].command) << "the first packet's counts";
    EXPECT_BYTES_EQ(busRecord(kCookie, "04020004"_hex, 0xffffffff), bus.sent[0].record);
}

TEST_F(EapHandler, NeedsNoMemoryToTellPnac) {
    bus.sendResult = -1;
    const size_t before = allocationCount();
    failAllocation(1);
    EXPECT_EQ(0, fromPnac(kCookie, identityResponse(1, "alice")));
    EXPECT_EQ(before + 1, allocationCount()) << "the one that failed";
    EXPECT_EQ(1U, bus.sent.size());
    EXPECT_LOG(log, "device error radEapSendRtn> xbusIoctl failed");
}

TEST_F(EapHandler, TellsPnacNothingOfWhatIsNoResponse) {
    EXPECT_EQ(0, fromPnac(0, identityResponse(1, "alice")));
    EXPECT_EQ(0, fromPnac(kCookie, Bytes(3)));
    EXPECT_EQ(0, fromPnac(kCookie, Bytes(1501)));
    failAllocation(1);
    EXPECT_EQ(0, fromPnac(kCookie, eapRequest(1, 22)));
    EXPECT_TRUE(allocationFailed());
    EXPECT_THAT(bus.sent, IsEmpty());
}

// As a record of Pnac's this would be an EAP packet.
TEST_F(EapHandler, TakesCommand4ForAChangeNotice) {
    const Bytes record = busRecord(kCookie, eapResponse(1, 22));
    EXPECT_EQ(-1, deliver(4, record));
    EXPECT_LOG(log,
               "device error radiusMgmtDBUpdateHandler> ERROR: incomplete DB update information.");
    EXPECT_EQ(-1, deliver(4, busRecord(kCookie, eapResponse(1, 79 - 12)))) << "79 bytes";
    EXPECT_THAT(conversations(), IsEmpty());
}

TEST_F(EapHandler, HandsOnAChangeNoticeWithTheOldValues) {
    ASSERT_EQ(0, radAuthServRowIdSet("127.0.0.1", 0, 4, 7));
    RadDbUpdateInfo info{.tableName = "radiusClient",
                         .rowKey = 4,
                         .rowId = 7,
                         .opCode = RAD_DB_DELETE,
                         .reserved = 0};
    GuardedBuffer odd(fromText(std::string("authserver\0", 11)));
    auto oldLen = static_cast<uint32_t>(odd.size());
    EXPECT_EQ(-1,
              radEapIoctlHandler(nullptr, nullptr, 4, &info, sizeof(info), odd.data(), &oldLen));
    EXPECT_THAT(log.texts(8), ElementsAre("old values result does not contain 2 rows\n"));
    EXPECT_EQ(1, radConfGetNumServers(RAD_SERVER_AUTH));

    GuardedBuffer even(fromText(std::string("authserver\0a\0", 13)));
    oldLen = static_cast<uint32_t>(even.size());
    EXPECT_EQ(0,
              radEapIoctlHandler(nullptr, nullptr, 4, &info, sizeof(info), even.data(), &oldLen));
    EXPECT_EQ(0, radConfGetNumServers(RAD_SERVER_AUTH));
    EXPECT_THAT(conversations(), IsEmpty());
}

TEST_F(EapHandler, HandsOnAChangeNoticeWithoutOldValues) {
    ASSERT_EQ(0, radAuthServRowIdSet("127.0.0.1", 0, 4, 7));
    RadDbUpdateInfo info{.tableName = "radiusClient",
                         .rowKey = 4,
                         .rowId = 7,
                         .opCode = RAD_DB_DELETE,
                         .reserved = 0};
    EXPECT_EQ(0, radEapIoctlHandler(nullptr, nullptr, 4, &info, sizeof(info), nullptr, nullptr));
    EXPECT_EQ(0, radConfGetNumServers(RAD_SERVER_AUTH));
}

class EapSend : public EapBus {
  protected:
    static int send(ByteView payload, uint32_t cookie = kCookie) {
        GuardedBuffer buffer(payload);
        buffer.makeReadOnly();
        return radEapSendRtn(buffer.data(), static_cast<int32_t>(buffer.size()), cookie);
    }
};

TEST_F(EapSend, IsARecordOfThreeWordsAndThePayload) {
    EXPECT_EQ(0, fromPnac(kCookie, eapResponse(1, 22)));
    log.clear();
    const size_t blocks = liveBlocks();
    EXPECT_EQ(0, send("03010004 0005 0103 00"_hex));
    EXPECT_EQ(blocks, liveBlocks());
    EXPECT_LOG(log);
    ASSERT_EQ(1U, bus.sent.size());
    const Sent &sent = bus.sent[0];
    EXPECT_EQ(kCookie, sent.word(0));
    EXPECT_EQ(0xffffffffU, sent.word(1));
    EXPECT_EQ(9U, sent.word(2));
    EXPECT_BYTES_EQ("03010004 0005 0103 00"_hex, sent.payload());
    EXPECT_EQ(TestBus::context(), sent.ctx);
    EXPECT_EQ(6U, sent.module);
    EXPECT_EQ(kReplyCommand, sent.command);
    EXPECT_FALSE(sent.hasOut);
    EXPECT_EQ(0U, sent.outLen);
    EXPECT_EQ(2U, sent.flags);
    EXPECT_EQ(0U, sent.reserved1);
    EXPECT_EQ(0U, sent.reserved2);
}

TEST_F(EapSend, HasTheCommandOfItsConversation) {
    EXPECT_EQ(0, fromPnac(1, eapResponse(1, 22), 101));
    EXPECT_EQ(0, fromPnac(2, eapResponse(1, 22), 102));
    EXPECT_EQ(0, fromPnac(1, eapResponse(2, 22), 103)) << "the first packet's counts";
    EXPECT_EQ(0, send("04010004"_hex, 1));
    EXPECT_EQ(0, send("04010004"_hex, 2));
    EXPECT_EQ(0, send("04010004"_hex, 3));
    ASSERT_EQ(3U, bus.sent.size());
    EXPECT_EQ(101U, bus.sent[0].command);
    EXPECT_EQ(102U, bus.sent[1].command);
    EXPECT_EQ(0xffffffffU, bus.sent[2].command) << "nobody's conversation";
}

TEST_F(EapSend, GoesToTheModuleOfTheLastConversation) {
    const Bytes packet = eapResponse(1, 22);
    EXPECT_EQ(0, radEapRecv(packet.data(), 22, 1, 11, 101));
    EXPECT_EQ(0, radEapRecv(packet.data(), 22, 2, 12, 102));
    EXPECT_EQ(0, send("04010004"_hex, 1));
    ASSERT_EQ(1U, bus.sent.size());
    EXPECT_EQ(12U, bus.sent[0].module);
    EXPECT_EQ(101U, bus.sent[0].command);
}

TEST_F(EapSend, NeedsItsArguments) {
    EXPECT_EQ(0, fromPnac(kCookie, eapResponse(1, 22)));
    log.clear();
    const Bytes payload = "04010004"_hex;
    EXPECT_EQ(-1, radEapSendRtn(nullptr, 4, kCookie));
    EXPECT_EQ(-1, radEapSendRtn(payload.data(), 4, 0));
    EXPECT_EQ(-1, radEapSendRtn(payload.data(), 0, kCookie));
    EXPECT_EQ(-1, radEapSendRtn(payload.data(), -1, kCookie));
    EXPECT_EQ(-1, radEapSendRtn(payload.data(), INT_MIN, kCookie));
    const std::string line = "device error radEapSendRtn: Invalid Arguments";
    EXPECT_LOG(log, line, line, line, line, line);
    EXPECT_THAT(bus.sent, IsEmpty());
}

TEST_F(EapSend, IsNotMadeWithoutAnyConversation) {
    EXPECT_EQ(-1, send("04010004"_hex));
    EXPECT_THAT(bus.sent, IsEmpty());
    EXPECT_THAT(problems(), IsEmpty());
}

TEST_F(EapSend, NeedsMemory) {
    EXPECT_EQ(0, fromPnac(kCookie, eapResponse(1, 22)));
    log.clear();
    failAllocation(1);
    EXPECT_EQ(-1, send("04010004"_hex));
    const GuardedBuffer payload("04"_hex);
    EXPECT_EQ(-1, radEapSendRtn(payload.data(), INT_MAX, kCookie)) << "more than there can be";
    const std::string line = "device error radEapSendRtn: failed to allocate buffer";
    EXPECT_LOG(log, line, line);
    EXPECT_THAT(bus.sent, IsEmpty());
}

TEST_F(EapSend, TellsThatTheBusRefuses) {
    EXPECT_EQ(0, fromPnac(kCookie, eapResponse(1, 22)));
    log.clear();
    const size_t blocks = liveBlocks();
    bus.sendResult = -1;
    EXPECT_EQ(-1, send("04010004"_hex));
    EXPECT_EQ(blocks, liveBlocks());
    EXPECT_LOG(log, "device error radEapSendRtn> xbusIoctl failed");
    bus.sendResult = 1;
    EXPECT_EQ(0, send("04010004"_hex)) << "anything but -1 is no failure";
}

class EapResult : public EapBus {
  protected:
    static int sendResult(uint8_t code, ByteView after, ByteView response = "02a70005 01"_hex) {
        const GuardedBuffer packet(response);
        const GuardedBuffer data(after);
        return radEapSendResult(packet.data(), kCookie, code, after.empty() ? nullptr : data.data(),
                                static_cast<uint32_t>(after.size()));
    }
};

TEST_F(EapResult, AnswersTheResponse) {
    EXPECT_EQ(0, fromPnac(kCookie, eapResponse(1, 22)));
    EXPECT_EQ(0, sendResult(3, {}));
    EXPECT_EQ(0, sendResult(4, {}, "02ff0004"_hex));
    expectSent(kCookie, {"03a70004"_hex, "04ff0004"_hex});
}

TEST_F(EapResult, CountsItsHeaderAloneAsItsLength) {
    EXPECT_EQ(0, fromPnac(kCookie, eapResponse(1, 22)));
    EXPECT_EQ(0, sendResult(3, "0008 0206 00000e10"_hex));
    expectSent(kCookie, {"03a70004 0008 0206 00000e10"_hex});
}

TEST_F(EapResult, IsDoneWhateverTheBusSays) {
    EXPECT_EQ(0, sendResult(3, {})) << "without any conversation";
    EXPECT_EQ(0, fromPnac(kCookie, eapResponse(1, 22)));
    bus.sendResult = -1;
    EXPECT_EQ(0, sendResult(3, {}));
    failAllocation(2);
    EXPECT_EQ(0, sendResult(3, {})) << "the record's memory is the sender's";
    EXPECT_TRUE(allocationFailed());
}

TEST_F(EapResult, NeedsMemory) {
    EXPECT_EQ(0, fromPnac(kCookie, eapResponse(1, 22)));
    failAllocation(1);
    EXPECT_EQ(-1, sendResult(3, {}));
    EXPECT_EQ(-1, radEapSendResult(nullptr, kCookie, 3, nullptr, 0));
    EXPECT_THAT(bus.sent, IsEmpty());
}

}  // namespace
}  // namespace lanyard::test::bus_test
