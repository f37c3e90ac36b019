// Frames and EAP packets, good ones and all kinds of others.
#include "tools/pnac_wired/eapol.h"

#include "tests/support/guard_page.h"
#include "tests/unit/tools/pnac_wired/world.h"

namespace lanyard::test::eapol_test {
namespace {

using pnac::EapolType;
using pnac::FrameFault;
using pnac::parseEap;
using pnac::parseFrame;

const Mac kAlice = macOf(1);

// Parses octets that have inaccessible memory right behind them.
pnac::FrameFault faultOf(ByteView frame) {
    const GuardedBuffer guarded(frame);
    return parseFrame(guarded.bytes(), kOwnAddress).fault;
}

bool isEap(ByteView packet) {
    const GuardedBuffer guarded(packet);
    return parseEap(guarded.bytes()).has_value();
}

TEST(Frame, IsReadToItsParts) {
    const Bytes bytes = eapolFrame(kAlice, 0, "0201 0006 0161"_hex, 2);
    const auto parsed = parseFrame(bytes, kOwnAddress);
    EXPECT_EQ(FrameFault::kNone, parsed.fault);
    EXPECT_EQ(kAlice, parsed.frame.source);
    EXPECT_EQ(2, parsed.frame.version);
    EXPECT_EQ(EapolType::kEap, parsed.frame.type);
    EXPECT_BYTES_EQ("0201 0006 0161"_hex, parsed.frame.body);
}

TEST(Frame, LosesItsPadding) {
    Bytes bytes = eapolFrame(kAlice, 0, "0201 0006 0161"_hex);
    bytes.resize(60);
    const auto parsed = parseFrame(bytes, kOwnAddress);
    EXPECT_EQ(FrameFault::kNone, parsed.fault);
    EXPECT_BYTES_EQ("0201 0006 0161"_hex, parsed.frame.body);
}

TEST(Frame, MayBeForTheInterfaceItself) {
    EXPECT_EQ(FrameFault::kNone, faultOf(eapolFrame(kAlice, 1, {}, 1, kOwnAddress)));
}

TEST(Frame, OfALaterVersionIsReadAsTheLastThatIsKnown) {
    const Bytes bytes = eapolFrame(kAlice, 1, "0102"_hex, 3);
    const auto parsed = parseFrame(bytes, kOwnAddress);
    EXPECT_EQ(FrameFault::kNone, parsed.fault);
    EXPECT_EQ(2, parsed.frame.version);
}

TEST(Frame, ForOthersIsForeign) {
    EXPECT_EQ(FrameFault::kForeign, faultOf(eapolFrame(kAlice, 1, {}, 1, macOf(2))));
    Bytes other = eapolFrame(kAlice, 1, {});
    other[13] = 0x8f;
    EXPECT_EQ(FrameFault::kForeign, faultOf(other));
}

TEST(Frame, OfAnotherPacketTypeIsForeign) {
    for (const uint8_t type : Bytes{3, 4, 5, 255}) {
        EXPECT_EQ(FrameFault::kForeign, faultOf(eapolFrame(kAlice, type, {}))) << int{type};
    }
}

TEST(Frame, HasAStationForASender) {
    EXPECT_EQ(FrameFault::kMalformed, faultOf(eapolFrame(pnac::kPaeGroup, 1, {})));
    EXPECT_EQ(FrameFault::kMalformed, faultOf(eapolFrame(Mac{}, 1, {})));
    EXPECT_EQ(FrameFault::kMalformed, faultOf(eapolFrame(kOwnAddress, 1, {})));
    EXPECT_EQ(FrameFault::kMalformed,
              faultOf(eapolFrame({0xff, 0xff, 0xff, 0xff, 0xff, 0xff}, 1, {})));
}

TEST(Frame, HasNoVersionZero) {
    EXPECT_EQ(FrameFault::kMalformed, faultOf(eapolFrame(kAlice, 1, {}, 0)));
}

TEST(Frame, CutShortIsMalformedWhereverTheCutIs) {
    const Bytes whole = eapolFrame(kAlice, 0, "0201 0006 0161"_hex);
    for (size_t size = 0; size < whole.size(); ++size) {
        EXPECT_EQ(FrameFault::kMalformed, faultOf(ByteView(whole).first(size))) << size;
    }
    EXPECT_EQ(FrameFault::kNone, faultOf(whole));
}

TEST(Frame, WithALengthBeyondItsEndIsMalformed) {
    const Bytes eap = "0201 0006 0161"_hex;
    EXPECT_EQ(FrameFault::kMalformed, faultOf(eapolFrame(kAlice, 0, eap, 1, pnac::kPaeGroup, 7)));
    EXPECT_EQ(FrameFault::kMalformed,
              faultOf(eapolFrame(kAlice, 0, eap, 1, pnac::kPaeGroup, 0xffff)));
    EXPECT_EQ(FrameFault::kMalformed, faultOf(eapolFrame(kAlice, 1, {}, 1, pnac::kPaeGroup, 1)));
}

TEST(Frame, IsBuiltAsItIsRead) {
    const Bytes eap = "0107 0005 01"_hex;
    EXPECT_BYTES_EQ("0210 0000 0001  0200 0000 00fe  888e  02 00 0005  0107 0005 01"_hex,
                    pnac::buildFrame(kAlice, kOwnAddress, 2, eap));
}

TEST(Frame, OfRandomOctetsNeverReadsBeyondItsEnd) {
    Random random(1);
    size_t good = 0;
    for (int round = 0; round < 20000; ++round) {
        // A good frame with some octets changed, cut or lengthened: most get past the first checks.
        Bytes frame = eapolFrame(kAlice, static_cast<uint8_t>(random.below(4)),
                                 eapResponse(1, 1, Bytes(random.below(40), 'a')));
        for (unsigned changes = random.below(3); changes > 0; --changes) {
            frame[12 + random.below(frame.size() - 12)] = random.octet();
        }
        if (random.below(4) == 0) {
            frame.resize(random.below(frame.size() + 10));
        }
        const GuardedBuffer guarded(frame);
        const auto parsed = parseFrame(guarded.bytes(), kOwnAddress);
        if (parsed.fault == FrameFault::kNone) {
            ++good;
            const auto eap = parseEap(parsed.frame.body);
            ASSERT_LE(parsed.frame.body.size() + 18, frame.size());
            ASSERT_TRUE(!eap || eap->bytes.size() <= parsed.frame.body.size());
        }
    }
    EXPECT_GT(good, 1000U);
}

TEST(Address, IsShownInTheUsualWay) {
    EXPECT_EQ("02:10:00:00:0a:ff", pnac::toText(macOf(0x0aff)));
}

TEST(Eap, IsReadToItsParts) {
    const Bytes bytes = "0209 0008 01 626f62"_hex;
    const auto packet = parseEap(bytes);
    ASSERT_TRUE(packet);
    EXPECT_EQ(EapCode::kResponse, packet->code);
    EXPECT_EQ(9, packet->identifier);
    EXPECT_EQ(1, packet->type);
    EXPECT_BYTES_EQ("626f62"_hex, packet->typeData);
    EXPECT_BYTES_EQ(bytes, packet->bytes);
}

TEST(Eap, EndsWhereItsLengthSays) {
    const Bytes bytes = "0209 0006 01 62 0000 0000"_hex;
    const auto packet = parseEap(bytes);
    ASSERT_TRUE(packet);
    EXPECT_BYTES_EQ("0209 0006 01 62"_hex, packet->bytes);
    EXPECT_BYTES_EQ("62"_hex, packet->typeData);
}

TEST(Eap, WithALengthBeyondTheBodyIsNone) {
    EXPECT_FALSE(isEap("0209 0007 01 62"_hex));
    EXPECT_FALSE(isEap("0209 ffff 01 62"_hex));
}

TEST(Eap, WithALengthBelowItsHeaderIsNone) {
    for (const uint8_t length : Bytes{0, 1, 2, 3}) {
        EXPECT_FALSE(isEap(Bytes{3, 9, 0, length})) << int{length};
    }
    EXPECT_TRUE(isEap("0309 0004"_hex));
}

TEST(Eap, RequestAndResponseHaveAType) {
    EXPECT_FALSE(isEap("0109 0004"_hex));
    EXPECT_FALSE(isEap("0209 0004"_hex));
    EXPECT_TRUE(isEap("0109 0005 01"_hex));
    EXPECT_TRUE(isEap("0209 0005 01"_hex));
}

TEST(Eap, SuccessAndFailureAreTheirHeader) {
    EXPECT_FALSE(isEap("0309 0005 00"_hex));
    EXPECT_FALSE(isEap("0409 0005 00"_hex));
}

TEST(Eap, OfAnotherCodeIsNone) {
    for (const uint8_t code : Bytes{0, 5, 6, 255}) {
        EXPECT_FALSE(isEap(Bytes{code, 9, 0, 5, 1})) << int{code};
    }
}

TEST(Eap, CutShortIsNoneWhereverTheCutIs) {
    const Bytes whole = "0209 0008 01 626f62"_hex;
    for (size_t size = 0; size < whole.size(); ++size) {
        EXPECT_FALSE(isEap(ByteView(whole).first(size))) << size;
    }
}

TEST(Eap, HasAsManyOctetsAsTheRelayTakes) {
    EXPECT_TRUE(isEap(eapResponse(1, 4, Bytes(1495))));
    EXPECT_FALSE(isEap(eapResponse(1, 4, Bytes(1496))));
}

}  // namespace
}  // namespace lanyard::test::eapol_test
