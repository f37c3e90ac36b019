// Whole relay passes with each of their allocations failing in turn: nothing is left behind, and
// Pnac gets a whole packet or none.
#include "tests/support/test.h"
#include "tests/unit/relay/fixture.h"

namespace lanyard::test::memory_test {
namespace {

using testing::AnyOf;
using testing::ElementsAre;
using testing::Eq;
using testing::SizeIs;

constexpr uint32_t kCookie = 0x1001;

class EapMemory : public EapTest {
  protected:
    // What has gone to Pnac, all of it.
    std::vector<Bytes> payloads() {
        std::vector<Bytes> all;
        for (const Sent &sent : bus.sent) {
            all.push_back(sent.payload());
            EXPECT_EQ(all.back().size(), sent.word(2));
        }
        bus.sent.clear();
        return all;
    }
};

TEST_F(EapMemory, OfAChallengeMayFail) {
    const Bytes packet = eapRequest(8, 600);
    const Bytes whole = concatenate({packet, "0008 0306 0000003c"_hex});
    server.otherwise(
        challenge(eapMessage(packet, Attributes().addText(24, "state").addInteger(27, 60))));
    int relayed = 0;
    const unsigned failures = forEachFailingAllocation([&] {
        relay(kCookie, identityResponse(7, "alice"));
        relay(kCookie, eapResponse(8, 600));
        const std::vector<Bytes> sent = payloads();
        EXPECT_LE(sent.size(), 2U);
        EXPECT_THAT(sent, testing::Each(AnyOf(Eq(whole), Eq("04070004"_hex), Eq("04080004"_hex))));
        if (!allocationFailed()) {
            EXPECT_THAT(sent, ElementsAre(whole, whole));
        }
        relayed += static_cast<int>(std::count(sent.begin(), sent.end(), whole));
        EXPECT_EQ(0, radEapMsgQueueCleanUp());
    });
    EXPECT_GT(failures, 30U);
    EXPECT_GT(relayed, 2) << "some runs went on after the failure";
}

TEST_F(EapMemory, OfAnAcceptMayFail) {
    const Bytes key = "a1a2a3a4a5"_hex;
    server.otherwise(accept([&](const ReceivedRequest &request) {
        return Attributes()
            .addInteger(27, 60)
            .addVendor(311, 17, encryptMppeKey(key, kSecret, request.authenticator()))
            .addMessageAuthenticator();
    }));
    const Bytes whole = concatenate({"03070004 0010 0506 0000003c 0108 05"_hex, key});
    const Bytes withoutKey = "03070004 0008 0506 0000003c"_hex;
    const unsigned failures = forEachFailingAllocation([&] {
        relay(kCookie, identityResponse(7, "alice"));
        const std::vector<Bytes> sent = payloads();
        EXPECT_LE(sent.size(), 1U);
        EXPECT_THAT(sent, testing::Each(AnyOf(Eq(whole), Eq(withoutKey), Eq("04070004"_hex))));
        if (!allocationFailed()) {
            EXPECT_THAT(sent, ElementsAre(whole));
        }
        EXPECT_EQ(0, radEapMsgQueueCleanUp());
    });
    EXPECT_GT(failures, 15U);
}

TEST_F(EapMemory, OfARejectMayFail) {
    server.otherwise(reject());
    const unsigned failures = forEachFailingAllocation([&] {
        relay(kCookie, identityResponse(7, "alice"));
        const std::vector<Bytes> sent = payloads();
        EXPECT_LE(sent.size(), 1U);
        EXPECT_THAT(sent, testing::Each(Eq("04070004"_hex)));
        if (!allocationFailed()) {
            EXPECT_THAT(sent, SizeIs(1));
        }
        EXPECT_EQ(0, radEapMsgQueueCleanUp());
    });
    EXPECT_GT(failures, 10U);
}

}  // namespace
}  // namespace lanyard::test::memory_test
