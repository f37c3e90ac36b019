// Records of the relay and the key-information blocks in them.
#include "tools/pnac_wired/relay_record.h"

#include "tests/support/guard_page.h"
#include "tests/unit/tools/pnac_wired/world.h"

namespace lanyard::test::relay_record_test {
namespace {

using pnac::FailureReason;
using pnac::parseKeyInfo;
using pnac::parseRecord;
using pnac::SessionRule;

const Bytes kKey(32, 0x5a);

bool isRecord(ByteView record) {
    const GuardedBuffer guarded(record);
    return parseRecord(guarded.bytes()).has_value();
}

bool isBlock(ByteView block) {
    const GuardedBuffer guarded(block);
    return parseKeyInfo(guarded.bytes()).has_value();
}

TEST(Record, ForTheRelayHasItsHeadInHostByteOrder) {
    const Bytes record = pnac::buildRecord(0x01020304, "0207 0005 01"_hex);
    ASSERT_EQ(17U, record.size());
    const std::array<uint32_t, 3> head = {0x01020304, pnac::kRecordCommand, 5};
    const auto *octets = reinterpret_cast<const uint8_t *>(head.data());
    EXPECT_BYTES_EQ(ByteView(octets, 12), ByteView(record).first(12));
    EXPECT_BYTES_EQ("0207 0005 01"_hex, ByteView(record).subspan(12));
}

TEST(Record, HasPortInformationAfterThePayload) {
    const pnac::Port port{.number = 0x01020304, .name = "eth0", .address = kOwnAddress};
    const Bytes block = pnac::portInformation(macOf(1), port);
    EXPECT_BYTES_EQ("001e 0108 021000000001 0208 0200000000fe 0306 01020304 0406 65746830"_hex,
                    block);
    const Bytes record = pnac::buildRecord(1, "0207 0005 01"_hex, block);
    EXPECT_BYTES_EQ(pnac::buildRecord(1, "0207 0005 01"_hex), ByteView(record).first(17));
    EXPECT_BYTES_EQ(block, ByteView(record).subspan(17));
}

TEST(Record, IsReadToItsParts) {
    const Bytes bytes = relayRecord(0xcafe, "0107 0006 0410"_hex);
    const auto record = parseRecord(bytes);
    ASSERT_TRUE(record);
    EXPECT_EQ(0xcafeU, record->cookie);
    EXPECT_EQ(EapCode::kRequest, record->eap.code);
    EXPECT_BYTES_EQ("0107 0006 0410"_hex, record->eap.bytes);
    EXPECT_FALSE(record->keyInfo.session);
    EXPECT_TRUE(record->keyInfo.recvKey.empty());
    EXPECT_TRUE(record->keyInfo.sendKey.empty());
}

TEST(Record, HasItsKeyInformationBehindThePacket) {
    const Bytes bytes = relayRecord(
        1, concatenate({eapSuccess(9), keyBlock({sessionElement(2, 3600), keyElement(1, kKey),
                                                 keyElement(4, "010203"_hex)})}));
    const auto record = parseRecord(bytes);
    ASSERT_TRUE(record);
    EXPECT_BYTES_EQ(eapSuccess(9), record->eap.bytes);
    ASSERT_TRUE(record->keyInfo.session);
    EXPECT_EQ(SessionRule::kReauthenticate, record->keyInfo.session->rule);
    EXPECT_EQ(3600U, record->keyInfo.session->seconds);
    EXPECT_BYTES_EQ(kKey, record->keyInfo.recvKey);
    EXPECT_BYTES_EQ("010203"_hex, record->keyInfo.sendKey);
}

TEST(Record, HasTheLengthThatItSays) {
    const Bytes eap = eapSuccess(9);
    EXPECT_TRUE(isRecord(relayRecord(1, eap)));
    EXPECT_FALSE(isRecord(relayRecord(1, eap, 3)));
    EXPECT_FALSE(isRecord(relayRecord(1, eap, 5)));
    EXPECT_FALSE(isRecord(relayRecord(1, eap, 0x7fffffff)));
}

TEST(Record, CutShortIsNoneWhereverTheCutIs) {
    const Bytes whole =
        relayRecord(1, concatenate({eapSuccess(9), keyBlock({keyElement(1, kKey)})}));
    for (size_t size = 0; size < whole.size(); ++size) {
        EXPECT_FALSE(isRecord(ByteView(whole).first(size))) << size;
    }
    EXPECT_TRUE(isRecord(whole));
}

TEST(Record, WithoutAnEapPacketIsNone) {
    EXPECT_FALSE(isRecord(relayRecord(1, {})));
    EXPECT_FALSE(isRecord(relayRecord(1, "0107 0007 0410"_hex)));
    EXPECT_FALSE(isRecord(relayRecord(1, eapResponse(1, 1))));
}

TEST(Record, OfARequestIgnoresWhatIsNoKeyInformation) {
    for (const Bytes &after : {"00"_hex, "0003 01"_hex, "000000"_hex,
                               concatenate({"dead"_hex, keyBlock({sessionElement(3, 20)})})}) {
        const Bytes record = relayRecord(7, concatenate({eapRequest(8, 4, "10"_hex), after}));
        const auto read = parseRecord(record);
        ASSERT_TRUE(read);
        EXPECT_EQ(7U, read->cookie);
        EXPECT_BYTES_EQ(eapRequest(8, 4, "10"_hex), read->eap.bytes);
        EXPECT_FALSE(read->keyInfo.session);
    }
}

TEST(Record, OfAVerdictWithBrokenKeyInformationIsNone) {
    EXPECT_FALSE(isRecord(relayRecord(1, concatenate({eapFailure(9), "00"_hex}))));
    EXPECT_FALSE(isRecord(relayRecord(1, concatenate({eapSuccess(9), "00"_hex}))));
    EXPECT_FALSE(isRecord(relayRecord(1, concatenate({eapSuccess(9), "0003 01"_hex}))));
}

TEST(KeyInfo, OfNothingIsEmpty) {
    EXPECT_TRUE(isBlock({}));
    EXPECT_TRUE(isBlock("0002"_hex));
}

TEST(KeyInfo, HasTheLengthThatItSays) {
    EXPECT_FALSE(isBlock("0000"_hex));
    EXPECT_FALSE(isBlock("0003"_hex));
    EXPECT_FALSE(isBlock("ffff"_hex));
    EXPECT_FALSE(isBlock("0002 00"_hex));
    EXPECT_FALSE(isBlock("00"_hex));
}

TEST(KeyInfo, HasWholeElements) {
    EXPECT_FALSE(isBlock("0003 01"_hex)) << "a type without a length";
    EXPECT_FALSE(isBlock("0004 0100"_hex)) << "a length of zero";
    EXPECT_FALSE(isBlock("0004 0101"_hex)) << "a length below its header";
    EXPECT_FALSE(isBlock("0004 0103"_hex)) << "a length beyond the end";
    EXPECT_FALSE(isBlock("0008 02ff 0000 0001"_hex)) << "a length far beyond the end";
}

TEST(KeyInfo, HasKeysAsLongAsTheySay) {
    EXPECT_TRUE(isBlock("0006 0104 01 aa"_hex));
    EXPECT_FALSE(isBlock("0006 0104 00 aa"_hex));
    EXPECT_FALSE(isBlock("0006 0104 02 aa"_hex));
    EXPECT_FALSE(isBlock("0006 0404 ff aa"_hex));
    EXPECT_FALSE(isBlock("0004 0102"_hex)) << "no key length";
}

TEST(KeyInfo, HasSessionTimeoutsOfFourOctets) {
    EXPECT_TRUE(isBlock("0008 0206 0000 0e10"_hex));
    EXPECT_FALSE(isBlock("0007 0205 0000 0e"_hex));
    EXPECT_FALSE(isBlock("0009 0207 0000 0e10 00"_hex));
}

TEST(KeyInfo, HasARuleForEachTypeOfSessionTimeout) {
    for (const auto &[type, rule] :
         {std::pair{2, SessionRule::kReauthenticate}, std::pair{3, SessionRule::kChallengeWait},
          std::pair{5, SessionRule::kTerminate}}) {
        const Bytes block = keyBlock({sessionElement(static_cast<uint8_t>(type), 0xffffffff)});
        const auto info = parseKeyInfo(block);
        ASSERT_TRUE(info && info->session) << type;
        EXPECT_EQ(rule, info->session->rule);
        EXPECT_EQ(0xffffffffU, info->session->seconds);
    }
}

TEST(KeyInfo, HasAReasonOfOneOctetForAFailure) {
    for (const auto &[value, reason] :
         {std::pair{"01", FailureReason::kRejected}, std::pair{"02", FailureReason::kNoServer},
          std::pair{"03", FailureReason::kNotSent}, std::pair{"04", FailureReason::kExpired},
          std::pair{"00", FailureReason::kRejected}, std::pair{"05", FailureReason::kRejected}}) {
        const Bytes block = keyBlock({concatenate({"0603"_hex, fromHex(value)})});
        const auto info = parseKeyInfo(block);
        ASSERT_TRUE(info) << value;
        EXPECT_EQ(reason, info->failure) << value;
    }
    EXPECT_EQ(FailureReason::kRejected, parseKeyInfo({})->failure);
    EXPECT_FALSE(isBlock("0004 0602"_hex));
    EXPECT_FALSE(isBlock("0006 0604 0002"_hex));
}

TEST(KeyInfo, HasAVlanThatIsNotEmpty) {
    const Bytes longest(253, 'v');
    const Bytes block = keyBlock({concatenate({"07ff"_hex, longest})});
    const auto info = parseKeyInfo(block);
    ASSERT_TRUE(info);
    EXPECT_BYTES_EQ(longest, info->vlan);
    EXPECT_FALSE(isBlock("0004 0702"_hex));
}

TEST(KeyInfo, PassesOverElementsThatItDoesNotKnow) {
    const Bytes block = keyBlock({"c803aa"_hex, keyElement(1, kKey), "0002"_hex});
    const auto info = parseKeyInfo(block);
    ASSERT_TRUE(info);
    EXPECT_BYTES_EQ(kKey, info->recvKey);
}

TEST(KeyInfo, OfManyElementsHasTheLastOfEach) {
    const Bytes block = keyBlock({keyElement(1, "aa"_hex), keyElement(1, "bb"_hex),
                                  sessionElement(5, 1), sessionElement(2, 2)});
    const auto info = parseKeyInfo(block);
    ASSERT_TRUE(info && info->session);
    EXPECT_BYTES_EQ("bb"_hex, info->recvKey);
    EXPECT_EQ(SessionRule::kReauthenticate, info->session->rule);
}

TEST(KeyInfo, OfRandomOctetsNeverReadsBeyondItsEnd) {
    Random random(2);
    const Bytes model = keyBlock({sessionElement(2, 60), keyElement(1, kKey), keyElement(4, kKey)});
    size_t good = 0;
    for (int round = 0; round < 20000; ++round) {
        Bytes block = model;
        for (unsigned changes = random.below(4); changes > 0; --changes) {
            block[random.below(block.size())] = random.octet();
        }
        if (random.below(8) == 0) {
            block.resize(random.below(block.size()));
        }
        const GuardedBuffer guarded(block);
        const auto info = parseKeyInfo(guarded.bytes());
        if (info) {
            ++good;
            ASSERT_LE(info->recvKey.size() + info->sendKey.size(), block.size());
        }
    }
    EXPECT_GT(good, 1000U);
}

}  // namespace
}  // namespace lanyard::test::relay_record_test
