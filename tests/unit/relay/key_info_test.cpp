// The key-information block, byte by byte.
#include <memory>

#include <lanyard/radius/attr.h>
#include <lanyard/radius/engine.h>
#include <lanyard/radius/frame.h>

#include "tests/support/test.h"
#include "tests/unit/relay/fixture.h"

namespace lanyard::test::key_info_test {
namespace {

constexpr int kRecvKey = 17;
constexpr int kSendKey = 16;

// A reply, as the library has it after its checks: keys are decrypted.
class Reply {
  public:
    Reply &number(int attrNum, uint32_t value) {
        EXPECT_NE(nullptr, radPairAdd(&head_, attrNum, &value, sizeof(value)));
        return *this;
    }
    Reply &vendor(ByteView value) {
        EXPECT_NE(nullptr, radPairAdd(&head_, 26, value.data(), static_cast<int>(value.size())));
        return *this;
    }
    // A key after its length byte, with padding.
    Reply &key(int vendorType, ByteView data, uint32_t vendorId = 311) {
        const Attributes attribute =
            Attributes().addVendor(vendorId, static_cast<uint8_t>(vendorType), data);
        return vendor(ByteView(attribute.bytes()).subspan(2));
    }

    Reply() = default;
    Reply(const Reply &) = delete;
    Reply &operator=(const Reply &) = delete;
    ~Reply() { radPairListFree(head_); }

    [[nodiscard]] RadPair *list() const { return head_; }

  private:
    RadPair *head_ = nullptr;
};

class KeyInfo : public EapTest {
  protected:
    // The block of a reply; none is as good as no bytes.
    static Bytes blockOf(RadPair *reply, int code = RAD_CODE_ACCESS_ACCEPT) {
        uint8_t *block = nullptr;
        uint32_t size = 0;
        const size_t blocks = liveBlocks();
        EXPECT_EQ(0, radEapKeyInfoBuild(reply, &block, &size, code));
        EXPECT_EQ(block == nullptr, size == 0);
        EXPECT_EQ(blocks + (block != nullptr ? 1 : 0), liveBlocks()) << "scratch memory is left";
        Bytes bytes(block, block + size);
        EXPECT_EQ(0, palMemPartFree(radMemPartId, block));
        return bytes;
    }
    static Bytes blockOf(const Reply &reply, int code = RAD_CODE_ACCESS_ACCEPT) {
        return blockOf(reply.list(), code);
    }
};

TEST_F(KeyInfo, NeedsItsOutPointers) {
    uint8_t *block = nullptr;
    uint32_t size = 0;
    EXPECT_EQ(-1, radEapKeyInfoBuild(nullptr, nullptr, &size, RAD_CODE_ACCESS_ACCEPT));
    EXPECT_EQ(-1, radEapKeyInfoBuild(nullptr, &block, nullptr, RAD_CODE_ACCESS_ACCEPT));
}

TEST_F(KeyInfo, OfNothingIsNone) {
    uint8_t byte = 0;
    uint8_t *block = &byte;
    uint32_t size = 17;
    EXPECT_EQ(0, radEapKeyInfoBuild(nullptr, &block, &size, RAD_CODE_ACCESS_ACCEPT));
    EXPECT_EQ(nullptr, block);
    EXPECT_EQ(0U, size);
    EXPECT_BYTES_EQ(Bytes(), blockOf(Reply().number(28, 60).number(29, 1)));
}

TEST_F(KeyInfo, HasTheSessionTimeout) {
    EXPECT_BYTES_EQ("0008 0506 01020304"_hex, blockOf(Reply().number(27, 0x01020304)));
    EXPECT_BYTES_EQ("0008 0206 00000e10"_hex, blockOf(Reply().number(27, 3600).number(29, 1)));
    EXPECT_BYTES_EQ("0008 0506 00000e10"_hex, blockOf(Reply().number(27, 3600).number(29, 0)));
    EXPECT_BYTES_EQ("0008 0506 00000e10"_hex, blockOf(Reply().number(27, 3600).number(29, 2)));
    EXPECT_BYTES_EQ("0008 0506 ffffffff"_hex, blockOf(Reply().number(27, 0xffffffff)));
    EXPECT_BYTES_EQ("0008 0506 00000000"_hex, blockOf(Reply().number(27, 0)));
    EXPECT_BYTES_EQ("0008 0506 00000001"_hex, blockOf(Reply().number(27, 1).number(27, 2)));
}

TEST_F(KeyInfo, OfAChallengeHasTheSessionTimeoutOfAChallenge) {
    EXPECT_BYTES_EQ("0008 0306 00000e10"_hex,
                    blockOf(Reply().number(27, 3600), RAD_CODE_ACCESS_CHALLENGE));
    EXPECT_BYTES_EQ("0008 0306 00000e10"_hex,
                    blockOf(Reply().number(27, 3600).number(29, 1), RAD_CODE_ACCESS_CHALLENGE));
}

TEST_F(KeyInfo, HasTheKeysWithoutTheirPadding) {
    const Bytes data = "03 aabbcc 0000000000000000 00000000 5a5a"_hex;
    EXPECT_BYTES_EQ("0008 0106 03 aabbcc"_hex, blockOf(Reply().key(kRecvKey, data)));
    EXPECT_BYTES_EQ("0008 0406 03 aabbcc"_hex, blockOf(Reply().key(kSendKey, data)));
}

TEST_F(KeyInfo, HasItsElementsInOneOrder) {
    Reply reply;
    reply.key(kSendKey, "02 5e5e 00"_hex)
        .key(kRecvKey, "01 4e 00"_hex)
        .number(27, 60)
        .number(29, 1);
    EXPECT_BYTES_EQ("0011 0206 0000003c 0104 01 4e 0405 02 5e5e"_hex, blockOf(reply));
    EXPECT_BYTES_EQ("0011 0306 0000003c 0104 01 4e 0405 02 5e5e"_hex,
                    blockOf(reply, RAD_CODE_ACCESS_CHALLENGE));
}

TEST_F(KeyInfo, HasAKeyOfNothing) {
    EXPECT_BYTES_EQ("0005 0103 00"_hex, blockOf(Reply().key(kRecvKey, "00"_hex)));
}

TEST_F(KeyInfo, HasTheLongestKeys) {
    constexpr uint8_t kLongest = 246;  // of an attribute, after vendor header and length byte
    const Bytes recvKey = concatenate({Bytes{kLongest}, Bytes(kLongest, 0x11)});
    const Bytes sendKey = concatenate({Bytes{kLongest}, Bytes(kLongest, 0x22)});
    EXPECT_BYTES_EQ(concatenate({"01fa 0506 0000003c 01f9"_hex, recvKey, "04f9"_hex, sendKey}),
                    blockOf(Reply().key(kRecvKey, recvKey).key(kSendKey, sendKey).number(27, 60)));
}

TEST_F(KeyInfo, HasTheLastKeyOfAType) {
    EXPECT_BYTES_EQ("0007 0105 02 bbbb"_hex, blockOf(Reply()
                                                         .key(kRecvKey, "04 aaaaaaaa"_hex)
                                                         .key(kRecvKey, "01 cc"_hex)
                                                         .key(kRecvKey, "02 bbbb"_hex)));
    EXPECT_BYTES_EQ("000b 0104 01 cc 0405 02 dddd"_hex, blockOf(Reply()
                                                                    .key(kSendKey, "01 aa"_hex)
                                                                    .key(kRecvKey, "02 bbbb"_hex)
                                                                    .key(kSendKey, "02 dddd"_hex)
                                                                    .key(kRecvKey, "01 cc"_hex)));
}

TEST_F(KeyInfo, HasNoKeyThatClaimsMoreThanThereIs) {
    EXPECT_BYTES_EQ("0005 0103 00"_hex, blockOf(Reply().key(kRecvKey, "00"_hex)));
    EXPECT_BYTES_EQ("0006 0104 01 aa"_hex, blockOf(Reply().key(kRecvKey, "01aa"_hex)));
    EXPECT_BYTES_EQ(Bytes(), blockOf(Reply().key(kRecvKey, "02aa"_hex)));
    EXPECT_BYTES_EQ(Bytes(), blockOf(Reply().key(kSendKey, "ffaa"_hex)));
    EXPECT_BYTES_EQ(Bytes(), blockOf(Reply().key(kSendKey, "01"_hex)));
    EXPECT_BYTES_EQ(Bytes(), blockOf(Reply().key(kSendKey, {})));
    EXPECT_BYTES_EQ("0008 0506 0000003c"_hex,
                    blockOf(Reply().key(kRecvKey, "10aa"_hex).number(27, 60)));
    EXPECT_BYTES_EQ("0006 0104 01 aa"_hex,
                    blockOf(Reply().key(kRecvKey, "01aa"_hex).key(kRecvKey, "05bb"_hex)))
        << "it does not take the place of one that is there";
}

TEST_F(KeyInfo, HasNothingOfOtherVendorAttributes) {
    EXPECT_BYTES_EQ(Bytes(), blockOf(Reply().key(26, "02aabb"_hex).key(15, "02aabb"_hex)));
    EXPECT_BYTES_EQ(Bytes(), blockOf(Reply().key(kRecvKey, "02aabb"_hex, 9)));
    // A vendor length that does not agree, and values without room for a vendor header.
    for (const char *value : {"00000137 11 06 02aabb", "00000137 11 04 02aabb", "00000137 11 00 02",
                              "00000137 11", "00000137", "000001"}) {
        EXPECT_BYTES_EQ(Bytes(), blockOf(Reply().vendor(fromHex(value)))) << value;
    }
    EXPECT_BYTES_EQ("0006 0104 01 aa"_hex,
                    blockOf(Reply().vendor("000001"_hex).key(kRecvKey, "01aa"_hex)));
}

TEST_F(KeyInfo, HasNothingOfAPairThatRecordsMoreThanItHolds) {
    Reply reply;
    reply.key(kRecvKey, "01aa"_hex);
    reply.list()->numValue = 254;
    EXPECT_BYTES_EQ(Bytes(), blockOf(reply));
    reply.list()->numValue = 0xffffffff;
    EXPECT_BYTES_EQ(Bytes(), blockOf(reply));
}

TEST_F(KeyInfo, NeedsMemory) {
    Reply reply;
    reply.number(27, 60);
    uint8_t *block = nullptr;
    uint32_t size = 17;
    failAllocation(1);
    EXPECT_EQ(-1, radEapKeyInfoBuild(reply.list(), &block, &size, RAD_CODE_ACCESS_ACCEPT));
    EXPECT_TRUE(allocationFailed());
    EXPECT_EQ(nullptr, block);
    EXPECT_EQ(0U, size);
}

TEST_F(KeyInfo, LeavesNothingBehindWhateverAllocationFails) {
    Reply reply;
    reply.key(kRecvKey, "01aa"_hex).key(kSendKey, "01bb"_hex).key(kRecvKey, "01cc"_hex);
    const unsigned failures = forEachFailingAllocation([&reply] {
        uint8_t *block = nullptr;
        uint32_t size = 0;
        const int status = radEapKeyInfoBuild(reply.list(), &block, &size, RAD_CODE_ACCESS_ACCEPT);
        EXPECT_EQ(status != 0, block == nullptr);
        EXPECT_EQ(0, palMemPartFree(radMemPartId, block));
    });
    EXPECT_EQ(4U, failures) << "three keys and the block";
}

}  // namespace
}  // namespace lanyard::test::key_info_test
