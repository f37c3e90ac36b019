// From the attributes of a received packet to a pair list.
#include <algorithm>
#include <string>
#include <vector>

#include <lanyard/radius/attr.h>
#include <lanyard/radius/dict.h>

#include "tests/support/test.h"
#include "tests/unit/attr/attr_test.h"

namespace lanyard::test::decode_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr const char *kLengthMismatch =
    "error radPairGen: Length in packet header does not match total length of attributes";

Bytes packetOf(const Attributes &attributes) {
    return makePacket(2, 7, Bytes(16, 0xaa), attributes);
}

Bytes packetOf(ByteView attributes) {
    return packetOf(Attributes().addRaw(attributes));
}

void setLengthField(Bytes &packet, size_t length) {
    packet.at(2) = static_cast<uint8_t>(length >> 8);
    packet.at(3) = static_cast<uint8_t>(length);
}

class DecodeTest : public AttrTest {
  protected:
    struct Decoded {
        int status = 0;
        PairList list;
    };

    // Decodes a packet that can be neither read beyond its end nor written to.
    static Decoded decode(ByteView packet) {
        GuardedBuffer buffer(packet);
        buffer.makeReadOnly();
        // The decoder may not rely on what the caller's pointer was before.
        auto *list = reinterpret_cast<RadPair *>(buffer.data());
        Decoded decoded;
        decoded.status = radPairGen(buffer.as<RadPacket>(), &list);
        decoded.list.reset(list);
        return decoded;
    }

    // A refused packet leaves no list and no block.
    void expectRefused(ByteView packet) {
        log_.clear();
        const size_t blocks = liveBlocks();
        const Decoded decoded = decode(packet);
        EXPECT_EQ(-1, decoded.status);
        EXPECT_EQ(nullptr, decoded.list);
        EXPECT_EQ(blocks, liveBlocks());
    }
};

TEST_F(DecodeTest, DecodesThePublishedAccept) {
    const Decoded decoded = decode(
        "02000026 86fe220e7624ba2a1005f6bf9b55e0b2 060600000001 0f0600000000 0e06c0a80103"_hex);
    ASSERT_EQ(0, decoded.status);
    EXPECT_THAT(attributesOf(decoded.list.get()),
                ElementsAre(Attribute{6, "00000001"_hex}, Attribute{15, "00000000"_hex},
                            Attribute{14, "c0a80103"_hex}));
    EXPECT_EQ(0xc0a80103U, radPairGet(decoded.list.get(), 14)->numValue);
    EXPECT_LOG(log_, "trace radPairGen> Receiving attribute: Service-Type",
               "trace radPairGen> Receiving attribute: Login-Service",
               "trace radPairGen> Receiving attribute: Login-IP-Host");
}

TEST_F(DecodeTest, PacketWithoutAttributesIsTheEmptyList) {
    const Decoded decoded = decode(packetOf(Attributes()));
    EXPECT_EQ(0, decoded.status);
    EXPECT_EQ(nullptr, decoded.list);
    EXPECT_LOG(log_);
}

TEST_F(DecodeTest, NothingIsNoPacketAndNoList) {
    const Bytes packet = packetOf(Attributes().addText(1, "nemo"));
    EXPECT_EQ(-1, radPairGen(reinterpret_cast<const RadPacket *>(packet.data()), nullptr));
    RadPair pair{};
    RadPair *list = &pair;
    EXPECT_EQ(-1, radPairGen(nullptr, &list));
    EXPECT_EQ(&pair, list);
    EXPECT_LOG(log_);
}

TEST_F(DecodeTest, LengthBelowTheHeaderIsRefused) {
    for (size_t length = 0; length < kHeaderSize; ++length) {
        Bytes packet = packetOf(Attributes());
        setLengthField(packet, length);
        expectRefused(packet);
        EXPECT_LOG(log_, kLengthMismatch);
    }
}

TEST_F(DecodeTest, LengthByteBelow2IsRefused) {
    for (const uint8_t length : {uint8_t{0}, uint8_t{1}}) {
        for (const int type : {1, 6, 17, 0, 255}) {
            const Bytes attribute = {static_cast<uint8_t>(type), length, 0, 0, 0, 0};
            expectRefused(packetOf(concatenate({"1203 41"_hex, attribute})));
            EXPECT_LOG(
                log_, "trace radPairGen> Receiving attribute: Reply-Message",
                "error radPairGen: Attribute(" + std::to_string(type) + ") has invalid length");
        }
    }
}

TEST_F(DecodeTest, NumbersHaveFourBytes) {
    for (size_t length = 0; length <= 253; ++length) {
        const Bytes packet = packetOf(Attributes().addText(1, "nemo").add(6, Bytes(length)));
        if (length == 4) {
            EXPECT_EQ(0, decode(packet).status);
            continue;
        }
        expectRefused(packet);
        EXPECT_LOG(
            log_, "trace radPairGen> Receiving attribute: User-Name",
            "trace radPairGen> Receiving attribute: Service-Type",
            "error radPairGen: received attrbute 6 with invalid length " + std::to_string(length));
    }
}

TEST_F(DecodeTest, AddressesAndDatesAreNumbersToo) {
    ASSERT_EQ(0, radDictAddAttr("Event-Timestamp 55 date"));
    const Decoded decoded =
        decode(packetOf(Attributes().addInteger(55, 0x89abcdef).addAddress(4, "127.0.0.1")));
    ASSERT_EQ(0, decoded.status);
    EXPECT_EQ(0x89abcdefU, decoded.list->numValue);
    EXPECT_EQ(0x7f000001U, decoded.list->next->numValue);
    for (const uint8_t type : {uint8_t{55}, uint8_t{4}}) {
        expectRefused(packetOf(Attributes().add(type, Bytes(3))));
        EXPECT_LOGGED(
            log_, 8, "radPairGen",
            "radPairGen: received attrbute " + std::to_string(type) + " with invalid length 3\n");
    }
}

TEST_F(DecodeTest, UnknownAttributesAreSkipped) {
    const Decoded decoded = decode(packetOf(
        Attributes().add(0, ""_hex).addText(1, "nemo").add(255, Bytes(253)).add(24, "01"_hex)));
    ASSERT_EQ(0, decoded.status);
    EXPECT_THAT(attributesOf(decoded.list.get()),
                ElementsAre(Attribute{1, fromText("nemo")}, Attribute{24, "01"_hex}));
    EXPECT_LOG(log_, "warning radPairGen: received unknown attribute 0 of length 0",
               "trace radPairGen> Receiving attribute: User-Name",
               "warning radPairGen: received unknown attribute 255 of length 253",
               "trace radPairGen> Receiving attribute: State");
}

TEST_F(DecodeTest, AttributesOfUnknownTypeAreSkipped) {
    makeTypeUnknown(RAD_ATTR_STATE);
    const Decoded decoded = decode(packetOf(Attributes().add(24, "0102"_hex).addText(1, "nemo")));
    ASSERT_EQ(0, decoded.status);
    EXPECT_THAT(attributesOf(decoded.list.get()), ElementsAre(Attribute{1, fromText("nemo")}));
    EXPECT_LOG(log_, "trace radPairGen> Receiving attribute: State",
               "warning radPairGen: State has unknown type",
               "trace radPairGen> Receiving attribute: User-Name");
}

TEST_F(DecodeTest, EapFragmentsStayPairsOfTheirOwn) {
    const Decoded decoded =
        decode(packetOf(Attributes().add(79, Bytes(253, 1)).addText(1, "x").add(79, Bytes(9, 2))));
    ASSERT_EQ(0, decoded.status);
    EXPECT_THAT(attributesOf(decoded.list.get()),
                ElementsAre(Attribute{79, Bytes(253, 1)}, Attribute{1, fromText("x")},
                            Attribute{79, Bytes(9, 2)}));
}

TEST_F(DecodeTest, StringsKeepTheirNulsAndTheirLength) {
    const Decoded decoded = decode(packetOf(Attributes().add(24, "00410000"_hex)));
    ASSERT_EQ(0, decoded.status);
    EXPECT_EQ(4, radPairValueLen(decoded.list.get()));
    EXPECT_BYTES_EQ("00410000"_hex, valueOf(*decoded.list));
}

// An empty string is the text that follows it in the packet, its neighbours' headers included.

TEST_F(DecodeTest, EmptyStringAtTheEndIsTheEmptyText) {
    const Decoded decoded = decode(packetOf("1802"_hex));
    ASSERT_EQ(0, decoded.status);
    EXPECT_THAT(attributesOf(decoded.list.get()), ElementsAre(Attribute{24, {}}));
}

TEST_F(DecodeTest, EmptyStringRunsToTheNextNul) {
    const Decoded decoded = decode(packetOf("1802 060600000001"_hex));
    ASSERT_EQ(0, decoded.status);
    EXPECT_THAT(attributesOf(decoded.list.get()),
                ElementsAre(Attribute{24, "0606"_hex}, Attribute{6, "00000001"_hex}));
}

TEST_F(DecodeTest, EmptyStringRunsToTheEndOfThePacket) {
    const Decoded decoded = decode(packetOf("1802 01066e656d6f"_hex));
    ASSERT_EQ(0, decoded.status);
    EXPECT_THAT(attributesOf(decoded.list.get()),
                ElementsAre(Attribute{24, "01066e656d6f"_hex}, Attribute{1, fromText("nemo")}));
}

TEST_F(DecodeTest, EmptyStringBeforeAttribute0IsEmpty) {
    const Decoded decoded = decode(packetOf("1802 0003 41"_hex));
    ASSERT_EQ(0, decoded.status);
    EXPECT_THAT(attributesOf(decoded.list.get()), ElementsAre(Attribute{24, {}}));
}

TEST_F(DecodeTest, EmptyStringBeforeTooMuchTextIsRefused) {
    // 251 bytes of value and a header of two make 253, which a pair takes.
    const Decoded decoded = decode(packetOf(concatenate({"1802 01fd"_hex, Bytes(251, 'a')})));
    ASSERT_EQ(0, decoded.status);
    EXPECT_EQ(253, radPairValueLen(decoded.list.get()));
    expectRefused(packetOf(concatenate({"1802 01fe"_hex, Bytes(252, 'a')})));
    EXPECT_LOG(log_, "trace radPairGen> Receiving attribute: State",
               "error radPairAssign: bad attribute value length");
}

// Attributes that run past the length of the packet.

TEST_F(DecodeTest, StringThatRunsPastTheEndIsAnnouncedThenRefused) {
    Bytes packet = packetOf(Attributes().addInteger(6, 1).addText(1, "nemo"));
    setLengthField(packet, packet.size() - 3);
    // Neither when the rest of it is there ...
    expectRefused(packet);
    const std::vector<std::string> expected = {
        "trace radPairGen> Receiving attribute: Service-Type",
        "trace radPairGen> Receiving attribute: User-Name", kLengthMismatch};
    EXPECT_EQ(expected, log_.log());
    // ... nor when it is not.
    packet.resize(packet.size() - 3);
    expectRefused(packet);
    EXPECT_EQ(expected, log_.log());
}

TEST_F(DecodeTest, NumberThatRunsPastTheEndIsAnnouncedThenRefused) {
    expectRefused(packetOf("060600"_hex));
    EXPECT_LOG(log_, "trace radPairGen> Receiving attribute: Service-Type", kLengthMismatch);
    // Its own length comes first.
    expectRefused(packetOf("060700"_hex));
    EXPECT_LOG(log_, "trace radPairGen> Receiving attribute: Service-Type",
               "error radPairGen: received attrbute 6 with invalid length 5");
}

TEST_F(DecodeTest, UnknownAttributeThatRunsPastTheEndIsAnnouncedThenRefused) {
    expectRefused(packetOf("11ff00"_hex));
    EXPECT_LOG(log_, "warning radPairGen: received unknown attribute 17 of length 253",
               kLengthMismatch);
}

TEST_F(DecodeTest, TypeByteAloneIsRefused) {
    expectRefused(packetOf("1203 41 01"_hex));
    EXPECT_LOG(log_, "trace radPairGen> Receiving attribute: Reply-Message", kLengthMismatch);
}

// What the decoder is to make of an attribute area, worked out on its own.
struct Expectation {
    std::vector<Attribute> pairs;
    std::string problem;  // empty: the packet is accepted
};

Bytes textAt(ByteView area) {
    return {area.begin(), std::find(area.begin(), area.end(), uint8_t{0})};
}

Expectation expectationFor(ByteView area) {
    Expectation expected;
    size_t at = 0;
    while (at < area.size()) {
        if (area.size() - at < 2) {
            expected.problem = kLengthMismatch;
            break;
        }
        const uint8_t type = area[at];
        const size_t length = area[at + 1];
        const RadDictAttr *attribute = radDictGetAttr(type);
        if (length < 2) {
            expected.problem =
                "error radPairGen: Attribute(" + std::to_string(type) + ") has invalid length";
            break;
        }
        if (attribute != nullptr && attribute->type != RAD_TYPE_STRING && length != 6) {
            expected.problem = "error radPairGen: received attrbute " + std::to_string(type) +
                               " with invalid length " + std::to_string(length - 2);
            break;
        }
        if (length > area.size() - at) {
            expected.problem = kLengthMismatch;
            break;
        }
        if (attribute != nullptr) {
            const ByteView value = area.subspan(at + 2, length - 2);
            const Bytes taken =
                length == 2 ? textAt(area.subspan(at + 2)) : Bytes(value.begin(), value.end());
            if (taken.size() > RAD_VALUE_MAX) {
                expected.problem = "error radPairAssign: bad attribute value length";
                break;
            }
            expected.pairs.push_back({type, taken});
        }
        at += length;
    }
    return expected;
}

// Two strings, a number, an unknown attribute, an empty string, a string and an unknown one.
Bytes sampleAttributes() {
    return "01066e656d6f 1805010203 060600000001 11040102 1802 12054f4b21 ff03aa"_hex;
}

class HostilePacketTest : public DecodeTest {
  protected:
    void expectAsWorkedOut(ByteView area) {
        const Expectation expected = expectationFor(area);
        log_.clear();
        const Decoded decoded = decode(packetOf(area));
        if (expected.problem.empty()) {
            EXPECT_EQ(0, decoded.status);
            EXPECT_EQ(expected.pairs, attributesOf(decoded.list.get()));
            EXPECT_THAT(log_.lines(8), IsEmpty());
        } else {
            EXPECT_EQ(-1, decoded.status);
            EXPECT_EQ(nullptr, decoded.list);
            EXPECT_THAT(log_.log(8), ElementsAre(expected.problem));
        }
    }
};

TEST_F(HostilePacketTest, EveryTruncation) {
    const Bytes area = sampleAttributes();
    size_t accepted = 0;
    for (size_t size = 0; size <= area.size(); ++size) {
        const testing::ScopedTrace trace(__FILE__, __LINE__, size);
        const ByteView truncated = ByteView(area).first(size);
        accepted += expectationFor(truncated).problem.empty() ? 1 : 0;
        expectAsWorkedOut(truncated);
    }
    EXPECT_EQ(8U, accepted);  // at the ends of the seven attributes and before them
}

TEST_F(HostilePacketTest, EveryLengthByteAtEveryPlace) {
    const Bytes area = sampleAttributes();
    for (size_t at = 0; at < area.size(); at += area[at + 1]) {
        for (unsigned length = 0; length < 256; ++length) {
            const testing::ScopedTrace trace(
                __FILE__, __LINE__, std::to_string(length) + " at " + std::to_string(at + 1));
            Bytes changed = area;
            changed[at + 1] = static_cast<uint8_t>(length);
            expectAsWorkedOut(changed);
        }
    }
}

TEST_F(HostilePacketTest, EveryTypeByteAtEveryPlace) {
    const Bytes area = sampleAttributes();
    for (size_t at = 0; at < area.size(); at += area[at + 1]) {
        for (unsigned type = 0; type < 256; ++type) {
            Bytes changed = area;
            changed[at] = static_cast<uint8_t>(type);
            expectAsWorkedOut(changed);
        }
    }
}

// The length field announces more or less than is there; it never reaches beyond what is there, as
// the receiver of a packet sees to.
TEST_F(HostilePacketTest, EveryLengthFieldUpToTheSize) {
    const Bytes whole = packetOf(sampleAttributes());
    for (size_t length = kHeaderSize; length <= whole.size(); ++length) {
        Bytes packet = whole;
        setLengthField(packet, length);
        const Expectation expected =
            expectationFor(ByteView(packet).subspan(kHeaderSize, length - kHeaderSize));
        const Decoded decoded = decode(packet);
        EXPECT_EQ(expected.problem.empty() ? 0 : -1, decoded.status) << length;
        if (expected.problem.empty()) {
            EXPECT_EQ(expected.pairs, attributesOf(decoded.list.get())) << length;
        }
    }
}

TEST_F(DecodeTest, PacketOfTheGreatestLength) {
    Attributes attributes;
    for (int i = 0; i < 256; ++i) {
        attributes.add(79, Bytes(253, static_cast<uint8_t>(i)));
    }
    attributes.add(24, Bytes(65535 - 20 - 256 * 255 - 2, 1));
    Bytes packet = concatenate({Bytes(20), attributes.bytes()});
    ASSERT_EQ(65535U, packet.size());
    setLengthField(packet, packet.size());
    const Decoded decoded = decode(packet);
    EXPECT_EQ(0, decoded.status);
    EXPECT_THAT(attributesOf(decoded.list.get()), SizeIs(257));
}

TEST_F(DecodeTest, MorePairsThanThePartitionHoldsAreRefused) {
    Attributes attributes;
    for (int i = 0; i < 1000; ++i) {
        attributes.addText(1, "x");
    }
    expectRefused(packetOf(attributes));
    EXPECT_PROBLEMS(log_, "critical radPairNew: out of memory");
}

TEST_F(DecodeTest, EveryFailingAllocationRefusesThePacket) {
    const Bytes packet = packetOf(sampleAttributes());
    const unsigned failures = forEachFailingAllocation([&] {
        log_.clear();
        const Decoded decoded = decode(packet);
        EXPECT_EQ(allocationFailed() ? -1 : 0, decoded.status);
        EXPECT_EQ(allocationFailed(), decoded.list == nullptr);
        if (allocationFailed()) {
            EXPECT_THAT(log_.log(4), ElementsAre("critical radPairNew: out of memory"));
            EXPECT_THAT(log_.lines(8), IsEmpty());
        }
    });
    EXPECT_EQ(5U, failures);  // one for each pair
}

}  // namespace
}  // namespace lanyard::test::decode_test
