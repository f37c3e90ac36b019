// Vendor-Specific attributes.
#include <climits>
#include <cstring>
#include <string>

#include <lanyard/radius/attr.h>
#include <lanyard/radius/frame.h>
#include <palcore.h>

#include "tests/support/test.h"
#include "tests/unit/attr/attr_test.h"

namespace lanyard::test::vendor_test {
namespace {

using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char *kSecret = "xyzzy5461";
constexpr uint32_t kMicrosoft = RAD_VENDOR_MICROSOFT;

const Bytes &requestAuthenticator() {
    static const Bytes authenticator = "0f403f9473978057bd83d5cb98f4227a"_hex;
    return authenticator;
}

// The value of a Vendor-Specific attribute; its vendor length is the true one.
Bytes vendorSpecific(uint32_t vendor, uint8_t type, ByteView data) {
    const Bytes attribute = Attributes().addVendor(vendor, type, data).bytes();
    return {attribute.begin() + 2, attribute.end()};
}

Bytes encryptedKey(uint8_t type, ByteView key, uint16_t salt = 0x8001) {
    return vendorSpecific(kMicrosoft, type,
                          encryptMppeKey(key, kSecret, requestAuthenticator(), salt));
}

// A key attribute with that many encrypted bytes, of whatever content.
Bytes keyOfEncryptedLength(size_t length, std::string_view salt = "8001") {
    return vendorSpecific(kMicrosoft, RAD_MS_MPPE_RECV_KEY,
                          concatenate({fromHex(salt), Bytes(length, 0x5a)}));
}

// Key length byte, key and padding to whole blocks.
Bytes plainKey(ByteView key) {
    Bytes plain = concatenate({Bytes{static_cast<uint8_t>(key.size())}, key});
    plain.resize((plain.size() + 15) / 16 * 16);
    return plain;
}

// Vendor ids.

TEST(VendorIdTest, IsReadMostSignificantByteFirst) {
    GuardedBuffer id("81020304"_hex);
    id.makeReadOnly();
    EXPECT_EQ(0x81020304U, venID(id.data(), 0));
    GuardedBuffer zero("00000000"_hex, GuardedBuffer::Edge::start);
    EXPECT_EQ(0U, venID(zero.data(), 0));
}

TEST(VendorIdTest, IsWrittenMostSignificantByteFirst) {
    for (const uint32_t id : {1U, 311U, 0x81020304U, 0xffffffffU}) {
        GuardedBuffer place(4);
        EXPECT_EQ(id, venID(place.data(), id));
        EXPECT_EQ(id, venID(place.data(), 0));
    }
    GuardedBuffer place(4);
    venID(place.data(), 0x81020304U);
    EXPECT_BYTES_EQ("81020304"_hex, place.bytes());
}

TEST(VendorIdTest, NothingHasNone) {
    EXPECT_EQ(0U, venID(nullptr, 0));
    EXPECT_EQ(0U, venID(nullptr, 311));
}

// Values of a reply.

class VendorMessageTest : public AttrTest {
  protected:
    // The result for a value that must stay as it is.
    static int processUnchanged(ByteView value, const char *secret = kSecret,
                                const uint8_t *authenticator = requestAuthenticator().data()) {
        GuardedBuffer buffer(value);
        buffer.makeReadOnly();
        return radVendorMessage(buffer.data(), static_cast<int>(value.size()), secret,
                                authenticator);
    }

    void expectInvalidLength(ByteView value) {
        log_.clear();
        EXPECT_EQ(-1, processUnchanged(value));
        EXPECT_LOG(log_, "error radVendorMessage: Invalid Length in Vendor Message");
    }
};

TEST_F(VendorMessageTest, NothingIsNoValue) {
    EXPECT_EQ(-1, radVendorMessage(nullptr, 10, kSecret, requestAuthenticator().data()));
    EXPECT_LOG(log_);
}

TEST_F(VendorMessageTest, VendorLengthMustBeThatOfTheValue) {
    for (size_t size = 6; size <= 253; size += 13) {
        for (unsigned vendorLength = 0; vendorLength < 256; ++vendorLength) {
            for (const uint32_t vendor : {kMicrosoft, 9U}) {
                Bytes value = vendorSpecific(vendor, 7, Bytes(size - 6));
                value[5] = static_cast<uint8_t>(vendorLength);
                if (vendorLength + 4 == size) {
                    EXPECT_EQ(0, processUnchanged(value));
                } else {
                    expectInvalidLength(value);
                }
            }
        }
    }
}

TEST_F(VendorMessageTest, ValueWithoutAWholeHeaderIsOfInvalidLength) {
    const Bytes value = "00000137 11 02"_hex;
    for (size_t size = 0; size < value.size(); ++size) {
        expectInvalidLength(ByteView(value).first(size));
    }
    // Neither does a byte 0 or 1 that agrees with four or five bytes make it valid.
    expectInvalidLength("00000137"_hex);
    expectInvalidLength("0000013701"_hex);
}

TEST_F(VendorMessageTest, NegativeLengthIsInvalid) {
    const Bytes value = "00000137 07 02"_hex;
    for (const int len : {-1, INT_MIN, -250}) {
        log_.clear();
        GuardedBuffer buffer(value);
        EXPECT_EQ(-1, radVendorMessage(buffer.data(), len, kSecret, nullptr));
        EXPECT_PROBLEMS(log_, "error radVendorMessage: Invalid Length in Vendor Message");
    }
}

TEST_F(VendorMessageTest, OtherVendorsAreAcceptedAsTheyAre) {
    for (const auto &[vendor, shown] :
         {std::pair(9U, "9"), std::pair(0U, "0"), std::pair(312U, "312"),
          std::pair(0x01000137U, "16777527"), std::pair(0xffffffffU, "-1")}) {
        // Also one that looks like a key.
        for (const uint8_t type : {uint8_t{1}, uint8_t{RAD_MS_MPPE_RECV_KEY}}) {
            log_.clear();
            EXPECT_EQ(0, processUnchanged(vendorSpecific(vendor, type, Bytes(34, 0x80))));
            EXPECT_LOG(log_,
                       std::string("error radVendorMessage: Unknown Vendor ID received:") + shown);
        }
    }
}

TEST_F(VendorMessageTest, OtherSubAttributesPassUntouched) {
    const size_t allocations = allocationCount();
    for (unsigned type = 0; type < 256; ++type) {
        if (type == RAD_MS_MPPE_SEND_KEY || type == RAD_MS_MPPE_RECV_KEY) {
            continue;
        }
        const Bytes value = vendorSpecific(kMicrosoft, static_cast<uint8_t>(type), Bytes(34, 0x80));
        EXPECT_EQ(0, processUnchanged(value));
        EXPECT_EQ(0, processUnchanged(value, nullptr, nullptr));
    }
    EXPECT_EQ(allocations, allocationCount());
    EXPECT_LOG(log_);
}

TEST_F(VendorMessageTest, KeysAreDecryptedWhereTheyStand) {
    for (const uint8_t type : {uint8_t{RAD_MS_MPPE_SEND_KEY}, uint8_t{RAD_MS_MPPE_RECV_KEY}}) {
        for (const size_t length : {0U, 1U, 15U, 16U, 31U, 32U, 239U}) {
            log_.clear();
            const Bytes key(length, 0xc3);
            const Bytes plain = plainKey(key);
            const Bytes received = encryptedKey(type, key);
            GuardedBuffer value(received);
            ASSERT_EQ(0, radVendorMessage(value.data(), static_cast<int>(value.size()), kSecret,
                                          requestAuthenticator().data()));
            EXPECT_BYTES_EQ(ByteView(received).first(6), value.bytes().first(6));
            EXPECT_BYTES_EQ(plain, value.bytes().subspan(6, plain.size()));
            EXPECT_EQ(6 + plain.size() + 2, value.size());
            EXPECT_LOG(log_);
            EXPECT_THAT(log_.dumps(), ElementsAre(Dumped(7, 256, "MS-MPPE-Key", plain)));
        }
    }
}

TEST_F(VendorMessageTest, EverySaltWithItsTopBitDecrypts) {
    const Bytes key = fromText("0123456789abcdef");
    for (const uint16_t salt : {uint16_t{0x8000}, uint16_t{0x8001}, uint16_t{0xffff}}) {
        GuardedBuffer value(encryptedKey(RAD_MS_MPPE_RECV_KEY, key, salt));
        EXPECT_EQ(0, radVendorMessage(value.data(), static_cast<int>(value.size()), kSecret,
                                      requestAuthenticator().data()));
        EXPECT_BYTES_EQ(plainKey(key), value.bytes().subspan(6, 32));
    }
}

TEST_F(VendorMessageTest, AnotherSecretOrRequestYieldsAnotherKey) {
    const Bytes key = fromText("0123456789abcdef");
    const Bytes received = encryptedKey(RAD_MS_MPPE_RECV_KEY, key);
    GuardedBuffer value(received);
    EXPECT_EQ(0, radVendorMessage(value.data(), static_cast<int>(value.size()), "other",
                                  requestAuthenticator().data()));
    EXPECT_NE(toHex(plainKey(key)), toHex(value.bytes().subspan(6, 32)));
    GuardedBuffer again(received);
    EXPECT_EQ(0, radVendorMessage(again.data(), static_cast<int>(again.size()), kSecret,
                                  Bytes(16).data()));
    EXPECT_NE(toHex(plainKey(key)), toHex(again.bytes().subspan(6, 32)));
}

TEST_F(VendorMessageTest, KeysAreWholeBlocks) {
    for (size_t length = 0; length <= 245; ++length) {
        if (length > 0 && length % 16 == 0) {
            continue;
        }
        log_.clear();
        EXPECT_EQ(-1, processUnchanged(keyOfEncryptedLength(length)));
        EXPECT_LOG(log_, "error radExtractMppeKey: Invalid MS-MPPE-Key Length");
        EXPECT_THAT(log_.dumps(), IsEmpty());
    }
}

TEST_F(VendorMessageTest, UnusableKeysAreRefusedSilently) {
    // The salt without its top bit, before the length is looked at.
    for (const char *salt : {"0001", "7fff", "0080"}) {
        EXPECT_EQ(-1, processUnchanged(keyOfEncryptedLength(32, salt)));
        EXPECT_EQ(-1, processUnchanged(keyOfEncryptedLength(31, salt)));
        EXPECT_EQ(-1, processUnchanged(keyOfEncryptedLength(0, salt)));
    }
    // No room for a salt.
    EXPECT_EQ(-1, processUnchanged("00000137 11 02"_hex));
    EXPECT_EQ(-1, processUnchanged("00000137 11 03 80"_hex));
    // Without the request's authenticator, also before the length; without a secret.
    EXPECT_EQ(-1, processUnchanged(keyOfEncryptedLength(32), kSecret, nullptr));
    EXPECT_EQ(-1, processUnchanged(keyOfEncryptedLength(31), kSecret, nullptr));
    EXPECT_EQ(-1, processUnchanged(keyOfEncryptedLength(32), nullptr));
    EXPECT_LOG(log_);
    EXPECT_THAT(log_.dumps(), IsEmpty());
}

TEST_F(VendorMessageTest, EveryFailingAllocationIsASilentRefusal) {
    const Bytes received = encryptedKey(RAD_MS_MPPE_SEND_KEY, Bytes(16, 1));
    const unsigned failures = forEachFailingAllocation([&] {
        GuardedBuffer value(received);
        const int status = radVendorMessage(value.data(), static_cast<int>(value.size()), kSecret,
                                            requestAuthenticator().data());
        EXPECT_EQ(allocationFailed() ? -1 : 0, status);
        EXPECT_EQ(allocationFailed(), toHex(received) == toHex(value.bytes()));
        EXPECT_LOG(log_);
    });
    EXPECT_EQ(2U, failures);  // the work buffer, and the cipher's own
}

// Extraction.

class VendorAttrGetTest : public AttrTest {
  protected:
    ~VendorAttrGetTest() override { release(); }

    // Whatever was there before goes first; the library has to set it itself.
    int get(const RadPair *pair, uint32_t vendor, int type) {
        release();
        data_ = &filler_;
        const int status = radVendorAttrGet(pair, vendor, type, &data_);
        EXPECT_NE(&filler_, data_);
        if (data_ == &filler_) {
            data_ = nullptr;
        }
        return status;
    }

    [[nodiscard]] ByteView data(size_t size) const { return {data_, size}; }

    static PairList pairOf(ByteView value) {
        return PairList(
            radPairNew(RAD_ATTR_VENDOR_SPECIFIC, value.data(), static_cast<int>(value.size())));
    }

    void release() {
        palMemPartFree(radMemPartId, data_);
        data_ = nullptr;
    }

    uint8_t filler_ = 0;
    uint8_t *data_ = nullptr;
};

TEST_F(VendorAttrGetTest, CopiesTheDataOfTheSubAttribute) {
    const size_t blocks = liveBlocks(radMemPartId);
    for (const size_t length : {1U, 8U, 247U}) {
        const Bytes expected(length, 0x42);
        const PairList pair = pairOf(vendorSpecific(kMicrosoft, 17, expected));
        ASSERT_EQ(0, get(pair.get(), kMicrosoft, 17));
        ASSERT_NE(nullptr, data_);
        EXPECT_BYTES_EQ(expected, data(length));
        EXPECT_EQ(blocks + 2, liveBlocks(radMemPartId));
    }
    EXPECT_LOG(log_);
}

TEST_F(VendorAttrGetTest, EmptySubAttributeHasABlockOfItsOwn) {
    const PairList pair = pairOf(vendorSpecific(kMicrosoft, 17, {}));
    EXPECT_EQ(0, get(pair.get(), kMicrosoft, 17));
    EXPECT_NE(nullptr, data_);
}

TEST_F(VendorAttrGetTest, OtherVendorsAndTypesAreNotFound) {
    const PairList pair = pairOf(vendorSpecific(kMicrosoft, 16, "0102"_hex));
    for (const int type : {17, 0, 15, 16 + 256, -1, INT_MIN, INT_MAX}) {
        EXPECT_EQ(-1, get(pair.get(), kMicrosoft, type)) << type;
        EXPECT_EQ(nullptr, data_);
    }
    for (const uint32_t vendor : {0U, 9U, 310U, 0x01000137U}) {
        EXPECT_EQ(-1, get(pair.get(), vendor, 16)) << vendor;
        EXPECT_EQ(nullptr, data_);
    }
    const PairList cisco = pairOf(vendorSpecific(9, 16, "0102"_hex));
    EXPECT_EQ(-1, get(cisco.get(), kMicrosoft, 16));
    EXPECT_EQ(nullptr, data_);
    EXPECT_LOG(log_);
}

TEST_F(VendorAttrGetTest, AnotherVendorsValueIsCopiedWhole) {
    const Bytes value = vendorSpecific(9, 1, "aabbcc"_hex);
    const PairList pair = pairOf(value);
    for (const int type : {1, 2, -1}) {
        log_.clear();
        ASSERT_EQ(0, get(pair.get(), 9, type));
        EXPECT_BYTES_EQ("0105 aabbcc"_hex, data(value.size() - 4));
        EXPECT_LOG(log_, "error radVendorAttrGet: Unknown Vendor ID:9");
    }
    const PairList negative = pairOf(vendorSpecific(0xffffffffU, 1, "aa"_hex));
    log_.clear();
    EXPECT_EQ(0, get(negative.get(), 0xffffffffU, 1));
    EXPECT_LOG(log_, "error radVendorAttrGet: Unknown Vendor ID:-1");
}

TEST_F(VendorAttrGetTest, VendorLengthMustBeThatOfThePair) {
    const auto message = ElementsAre(
        Logged(7, 8, "radVendorAttrGet", "radVendorAttrGet: Invalid Length in Vendor Message\n"));
    for (size_t size = 6; size <= 253; size += 13) {
        for (unsigned vendorLength = 0; vendorLength < 256; ++vendorLength) {
            Bytes value = vendorSpecific(kMicrosoft, 17, Bytes(size - 6));
            value[5] = static_cast<uint8_t>(vendorLength);
            const PairList pair = pairOf(value);
            log_.clear();
            // The length comes first: whatever is asked for.
            for (const uint32_t vendor : {kMicrosoft, 9U}) {
                log_.clear();
                const int status = get(pair.get(), vendor, 17);
                if (vendorLength + 4 == size) {
                    EXPECT_EQ(vendor == kMicrosoft ? 0 : -1, status);
                } else {
                    EXPECT_EQ(-1, status);
                    EXPECT_EQ(nullptr, data_);
                    EXPECT_THAT(log_.lines(), message);
                }
            }
        }
    }
}

TEST_F(VendorAttrGetTest, PairsThatHoldNoWholeValueAreOfInvalidLength) {
    const PairList pair = pairOf("00000137 11 02"_hex);
    for (const uint32_t length : {0U, 4U, 5U, 254U, 300U, 0x80000006U, 0xffffffffU}) {
        pair->numValue = length;
        // What would agree if only the low byte counted.
        pair->strValue[5] = static_cast<char>(length - 4);
        log_.clear();
        EXPECT_EQ(-1, get(pair.get(), kMicrosoft, 17)) << length;
        EXPECT_EQ(nullptr, data_);
        EXPECT_PROBLEMS(log_, "error radVendorAttrGet: Invalid Length in Vendor Message");
    }
}

TEST_F(VendorAttrGetTest, NothingIsNoPairAndNoPlace) {
    const PairList pair = pairOf(vendorSpecific(kMicrosoft, 17, "01"_hex));
    EXPECT_EQ(-1, radVendorAttrGet(pair.get(), kMicrosoft, 17, nullptr));
    uint8_t *data = &filler_;
    EXPECT_EQ(-1, radVendorAttrGet(nullptr, kMicrosoft, 17, &data));
    EXPECT_EQ(&filler_, data);
    EXPECT_LOG(log_);
}

TEST_F(VendorAttrGetTest, EveryFailingAllocationIsAResult) {
    for (const uint32_t vendor : {kMicrosoft, 9U}) {
        const PairList pair = pairOf(vendorSpecific(vendor, 17, "0102"_hex));
        const unsigned failures = forEachFailingAllocation([&] {
            const bool failed = get(pair.get(), vendor, 17) == -1 && data_ == nullptr;
            EXPECT_EQ(allocationFailed(), failed);
            release();
        });
        EXPECT_EQ(1U, failures);
    }
    EXPECT_TRUE(log_.nothingLogged(4));
}

TEST_F(VendorAttrGetTest, ReadsTheKeyThatWasDecrypted) {
    const Bytes key = fromText("0123456789abcdef");
    const Bytes value = encryptedKey(RAD_MS_MPPE_RECV_KEY, key);
    const PairList pair = pairOf(value);
    ASSERT_EQ(
        0, radVendorMessage(reinterpret_cast<uint8_t *>(pair->strValue),
                            radPairValueLen(pair.get()), kSecret, requestAuthenticator().data()));
    ASSERT_EQ(0, get(pair.get(), kMicrosoft, RAD_MS_MPPE_RECV_KEY));
    EXPECT_EQ(16, data(1)[0]);
    EXPECT_BYTES_EQ(key, data(17).subspan(1));
}

// Packing.

class VendorPackTest : public AttrTest {};

TEST_F(VendorPackTest, PacksASubAttribute) {
    GuardedBuffer room(14);
    const GuardedBuffer data("0102030405060708"_hex);
    EXPECT_EQ(14, radVendorMessagePack(room.data(), kMicrosoft, 11, data.data(), 8));
    EXPECT_BYTES_EQ("00000137 0b0a 0102030405060708"_hex, room.bytes());
    EXPECT_LOG(log_);
}

TEST_F(VendorPackTest, PacksEveryLengthThatFitsAnAttribute) {
    for (size_t length = 0; length <= 247; ++length) {
        const Bytes content(length, 0x42);
        const GuardedBuffer data(content);
        GuardedBuffer room(length + 6);
        EXPECT_EQ(static_cast<int>(length) + 6,
                  radVendorMessagePack(room.data(), kMicrosoft, 25, data.data(),
                                       static_cast<int>(length)));
        EXPECT_BYTES_EQ(vendorSpecific(kMicrosoft, 25, content), room.bytes());
    }
}

TEST_F(VendorPackTest, VendorLengthIsKeptTo8Bits) {
    for (const auto &[length, packed] :
         {std::pair(253U, 259), std::pair(254U, 4), std::pair(300U, 50)}) {
        const GuardedBuffer data(Bytes(length, 0x42));
        GuardedBuffer room(length + 6);
        EXPECT_EQ(packed, radVendorMessagePack(room.data(), kMicrosoft, 1, data.data(),
                                               static_cast<int>(length)));
        EXPECT_EQ(packed - 4, room.data()[5]);
        EXPECT_THAT(room.bytes().subspan(6), Each(0x42));
    }
}

TEST_F(VendorPackTest, AnotherVendorIsWrittenAndRefused) {
    for (const auto &[vendor, shown, bytes] :
         {std::tuple(9U, "9", "00000009"), std::tuple(0U, "0", "00000000"),
          std::tuple(0xffffffffU, "-1", "ffffffff")}) {
        log_.clear();
        GuardedBuffer room(7);
        EXPECT_EQ(-1, radVendorMessagePack(room.data(), vendor, 11, "010203"_hex.data(), 3));
        EXPECT_BYTES_EQ(concatenate({fromHex(bytes), "010203"_hex}), room.bytes());
        EXPECT_LOG(log_, std::string("error radVendorMessagePack: Unknown Vendor ID:") + shown);
    }
}

TEST_F(VendorPackTest, NothingIsNoRoomAndNoData) {
    GuardedBuffer room(14);
    const Bytes data(8);
    EXPECT_EQ(-1, radVendorMessagePack(nullptr, kMicrosoft, 11, data.data(), 8));
    EXPECT_EQ(-1, radVendorMessagePack(room.data(), kMicrosoft, 11, nullptr, 8));
    EXPECT_EQ(-1, radVendorMessagePack(room.data(), 9, 11, nullptr, 0));
    EXPECT_THAT(room.bytes(), Each(0xa5));
    EXPECT_LOG(log_);
}

TEST_F(VendorPackTest, NegativeLengthIsRefused) {
    GuardedBuffer room(4);
    room.makeReadOnly();
    for (const int length : {-1, -2, -6, INT_MIN}) {
        EXPECT_EQ(-1, radVendorMessagePack(room.data(), kMicrosoft, 11, room.data(), length));
    }
}

}  // namespace
}  // namespace lanyard::test::vendor_test
