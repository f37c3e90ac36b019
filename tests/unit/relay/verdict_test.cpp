// What a relay with many requests in flight tells Pnac of a login: why it failed, which VLAN it was
// given. And which replies it believes.
#include <fstream>

#include <lanyard/radius/conf.h>
#include <lanyard/radius/dict.h>
#include <lanyard/radius/frame.h>

#include "tests/support/test.h"
#include "tests/unit/relay/in_flight_fixture.h"

namespace lanyard::test::verdict_test {
namespace {

using testing::IsEmpty;

constexpr int kUnsignedAccepted = -1;

using Verdict = InFlightTest;

TEST_F(Verdict, RejectedByAServer_HasThatReason) {
    server.otherwise(reject(signedAttributes()));
    serve({hand(1, identityResponse(7, "alice")), awaitSent(1)});
    expectFailure(0, 1, 7, RAD_EAP_FAILED_REJECTED);
}

TEST_F(Verdict, SilentServer_HasThatReason) {
    const SilentPort silent;
    configure(serverEntry(silent, 1, 0));
    serve({hand(1, identityResponse(7, "alice")), awaitSent(1)});
    expectFailure(0, 1, 7, RAD_EAP_FAILED_NO_SERVER);
}

// Each of them counts, not the last alone.
TEST_F(Verdict, SilentServerBeforeOneWithoutAnAddress_HasTheReasonOfTheFirst) {
    const SilentPort silent;
    configure(serverEntry(silent, 1, 0));
    EXPECT_EQ(0, radConfAddAuthServ("nowhere.invalid", 1812, 1, 0, "s", nullptr));
    serve({hand(1, identityResponse(7, "alice")), awaitSent(1)});
    expectFailure(0, 1, 7, RAD_EAP_FAILED_NO_SERVER);
}

TEST_F(Verdict, NoServerConfigured_CouldNotBeSent) {
    EXPECT_EQ(0, radConfDelAuthServ());
    serve({hand(1, identityResponse(7, "alice")), awaitSent(1)});
    expectFailure(0, 1, 7, RAD_EAP_FAILED_NOT_SENT);
}

// The reason is not that of an earlier request.
TEST_F(Verdict, NoMemoryForTheRequest_CouldNotBeSent) {
    server.otherwise(reject(signedAttributes()));
    unsigned told = 0;
    for (unsigned nth = 1; nth <= 12; ++nth) {
        bus.sent.clear();
        serve({hand(1, identityResponse(6, "bob")), awaitSent(1),
               hand(2, identityResponse(7, "alice")), perform([nth] { failAllocation(nth); }),
               await([] { return conversations().empty(); }), perform([] { stopFailing(); })});
        if (bus.sent.size() == 2 && bus.sent[1].payload().size() > 4) {
            told += bus.sent[1].payload().back() == RAD_EAP_FAILED_NOT_SENT ? 1 : 0;
        }
    }
    EXPECT_GT(told, 3U);
}

TEST_F(Verdict, RecordWithoutRoom_CouldNotBeSent) {
    serve({perform([&] {
        failAllocation(1);
        EXPECT_EQ(0, fromPnac(1, identityResponse(7, "alice")));
        stopFailing();
    })});
    expectFailure(0, 1, 7, RAD_EAP_FAILED_NOT_SENT);
}

TEST_F(Verdict, OneAtATime_TellsNoReason) {
    setLimit(1);
    server.otherwise(reject(signedAttributes()));
    serve({hand(1, identityResponse(7, "alice")), awaitSent(1), perform([&] {
               failAllocation(1);
               EXPECT_EQ(0, fromPnac(2, identityResponse(8, "alice")));
               stopFailing();
           }),
           perform([] {
               EXPECT_EQ(0, fromPnac(3, identityResponse(9, "alice")));
               conversation(3).age = RAD_EAP_LIFE;
               radEapCtxTimeout();
           })});
    expectVerdict(0, 1, "04070004"_hex);
    expectVerdict(1, 2, "04080004"_hex);
    expectVerdict(2, 3, "04090004"_hex);
}

// Without the descriptors or the memory that many requests take.
TEST_F(Verdict, NoMemoryForTheLoop_ServesOneByOneAndTellsNoReason) {
    server.otherwise(reject(signedAttributes()));
    bus.whenDetached = [] { failAllocation(1); };
    serve({[] {
               EXPECT_TRUE(allocationFailed());
               stopFailing();
               return 0;
           },
           hand(1, identityResponse(7, "alice")), awaitSent(1)});
    expectVerdict(0, 1, "04070004"_hex);
    EXPECT_THAT(bus.calls, testing::Contains("xbusListen 100000"));
}

// Replies that anybody can make who sees requests and knows how to collide MD5.
class Unsigned : public InFlightTest, public testing::WithParamInterface<int> {
  protected:
    [[nodiscard]] Action reply() const {
        return GetParam() == 11
                   ? challenge(Attributes().addText(24, "state").add(79, eapRequest(8, 22)))
                   : answer(static_cast<uint8_t>(GetParam()));
    }
};

TEST_P(Unsigned, IsIgnored) {
    server.then(reply());
    serve({hand(1, identityResponse(7, "alice")),
           await([this] { return statusOf(server).at("bad_authenticators") == 1; }), perform([&] {
               EXPECT_THAT(bus.sent, IsEmpty());
               EXPECT_EQ(1, status().at("in_flight"));
           })});
}

TEST_P(Unsigned, SignedOneAfterIt_IsBelieved) {
    server.then(reply());
    server.then(reject(signedAttributes()));
    // The second send comes after a second: this is the server's time-out.
    configure(serverEntry(server, 1, 1));
    serve({hand(1, identityResponse(7, "alice")), awaitSent(1)});
    expectFailure(0, 1, 7, RAD_EAP_FAILED_REJECTED);
}

INSTANTIATE_TEST_SUITE_P(Replies, Unsigned, testing::Values(2, 3, 11));

// A challenge is none of them: what carries EAP is signed in any case (RFC 3579 section 3.2).
using UnsignedVerdict = Unsigned;

TEST_P(UnsignedVerdict, IsBelievedByOption) {
    radOptionSet(RAD_OPTION_REQUIRE_MESSAGE_AUTHENTICATOR, kUnsignedAccepted);
    server.then(reply());
    serve({hand(1, identityResponse(7, "alice")), awaitSent(1)});
    ASSERT_EQ(1U, bus.sent.size());
    EXPECT_EQ(GetParam() == 2 ? 3 : 4, bus.sent[0].payload().at(0));
}

INSTANTIATE_TEST_SUITE_P(Replies, UnsignedVerdict, testing::Values(2, 3));

// The dictionary that is shipped names the attributes of tunnels.
class Vlan : public InFlightTest {
  protected:
    static void SetUpTestSuite() {
        std::ifstream file(LANYARD_DICTIONARY, std::ios::binary);
        text_ = {std::istreambuf_iterator<char>(file), {}};
    }
    Vlan() {
        library.root().write("/dict", text_);
        EXPECT_EQ(0, radDictLoad("/dict"));
    }

    // What follows the Success for an accept with these attributes.
    Bytes blockFor(Attributes attributes) {
        bus.sent.clear();
        server.otherwise(accept(attributes.addMessageAuthenticator()));
        serve({hand(1, identityResponse(7, "alice")), awaitSent(1)});
        if (bus.sent.size() != 1 || bus.sent[0].payload().size() < 4) {
            ADD_FAILURE() << "no verdict";
            return {};
        }
        const Bytes payload = bus.sent[0].payload();
        EXPECT_BYTES_EQ("03070004"_hex, ByteView(payload).first(4));
        return {payload.begin() + 4, payload.end()};
    }

    static Attributes tunnel(ByteView group, uint32_t type = 13, uint32_t medium = 6) {
        return Attributes().addInteger(64, type).addInteger(65, medium).add(81, group);
    }

  private:
    inline static std::string text_;
};

TEST_F(Vlan, GroupOfAnAccept_IsTold) {
    EXPECT_BYTES_EQ("0007 07 05"_hex, ByteView(blockFor(tunnel(fromText("123")))).first(4));
    EXPECT_BYTES_EQ("0007 0705 313233"_hex, blockFor(tunnel(fromText("123"))));
    EXPECT_BYTES_EQ("0005 0703 78"_hex, blockFor(tunnel(fromText("x"))));
}

TEST_F(Vlan, Tags_AreNoPartOfIt) {
    constexpr uint32_t kTag = 0x01000000;
    EXPECT_BYTES_EQ("0007 0705 313233"_hex, blockFor(tunnel("01313233"_hex, kTag | 13, kTag | 6)));
    EXPECT_BYTES_EQ("0007 0705 313233"_hex, blockFor(tunnel("1f313233"_hex)));
    EXPECT_BYTES_EQ("0007 0705 313233"_hex, blockFor(tunnel("00313233"_hex)));
    EXPECT_BYTES_EQ("0008 0706 20313233"_hex, blockFor(tunnel("20313233"_hex)))
        << "a larger first byte is no tag";
    EXPECT_THAT(blockFor(tunnel("01"_hex)), IsEmpty()) << "a tag alone";
}

TEST_F(Vlan, LongestName_IsTold) {
    const Bytes name(253, 'v');
    EXPECT_BYTES_EQ(concatenate({"0101 07ff"_hex, name}), blockFor(tunnel(name)));
}

TEST_F(Vlan, StandsAfterTheKeyInformation) {
    EXPECT_BYTES_EQ("000d 0506 0000003c 0705 313233"_hex,
                    blockFor(tunnel(fromText("123")).addInteger(27, 60)));
}

TEST_F(Vlan, OtherTunnels_AreNone) {
    EXPECT_THAT(blockFor(tunnel(fromText("123"), 3)), IsEmpty());
    EXPECT_THAT(blockFor(tunnel(fromText("123"), 13, 1)), IsEmpty());
    EXPECT_THAT(blockFor(Attributes().add(81, fromText("123"))), IsEmpty());
    EXPECT_THAT(blockFor(Attributes().addInteger(64, 13).addInteger(65, 6)), IsEmpty());
    EXPECT_THAT(blockFor(Attributes().addInteger(64, 13).add(81, fromText("123"))), IsEmpty());
}

TEST_F(Vlan, DictionaryWithoutTheAttributes_TellsNone) {
    EXPECT_EQ(0, radDictLoad(nullptr));
    EXPECT_THAT(blockFor(tunnel(fromText("123"))), IsEmpty());
}

TEST_F(Vlan, OneAtATime_IsNotTold) {
    setLimit(1);
    EXPECT_THAT(blockFor(tunnel(fromText("123"))), IsEmpty());
}

}  // namespace
}  // namespace lanyard::test::verdict_test
