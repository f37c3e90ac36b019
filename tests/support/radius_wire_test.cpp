// Bytes, and packets that are made and read without the library: against the RFCs and the library.
#include <algorithm>
#include <gtest/gtest-spi.h>
#include <stdexcept>

#include <lanyard/radius/attr.h>

#include "tests/support/sample_exchange.h"
#include "tests/support/test.h"

namespace lanyard::test::radius_wire_test {
namespace {

using testing::ElementsAre;
using testing::SizeIs;

TEST(BytesTest, ReadsAndWritesHexadecimal) {
    EXPECT_EQ((Bytes{0x0f, 0x40, 0x3f, 0x94}), "0f40 3F94"_hex);
    EXPECT_EQ("0f403f94", toHex("0f40 3F94"_hex));
    EXPECT_EQ(Bytes{}, ""_hex);
    EXPECT_THROW(fromHex("0f4"), std::invalid_argument);
    EXPECT_THROW(fromHex("0g"), std::invalid_argument);
}

TEST(BytesTest, ShowsWhereBytesDiffer) {
    EXPECT_BYTES_EQ("0102"_hex, "0102"_hex);
    EXPECT_NONFATAL_FAILURE(EXPECT_BYTES_EQ("010203"_hex, "010303"_hex), "01 [03] 03");
    EXPECT_NONFATAL_FAILURE(EXPECT_BYTES_EQ("0102"_hex, "010203"_hex), "from offset 2 on");
}

TEST(RadiusWireTest, AgreesWithKnownDigests) {
    // RFC 1321 appendix A.5 and RFC 2202 section 2.
    EXPECT_EQ("900150983cd24fb0d6963f7d28e17f72", toHex(md5({fromText("a"), fromText("bc")})));
    EXPECT_EQ("750c783e6ab0b503eaa86e310a5db738",
              toHex(hmacMd5("Jefe", {fromText("what do ya want for nothing?")})));
    EXPECT_EQ("6b1ab7fe4bd7bf8f0b62e6ce61b9d0cd",
              toHex(hmacMd5(toText(Bytes(80, 0xaa)),
                            {fromText("Test Using Larger Than Block-Size Key - Hash Key First")})));
}

TEST(RadiusWireTest, MakesTheReplyOfTheStandard) {
    EXPECT_BYTES_EQ(sampleReply(), makeReply(2, sampleRequest(), kSecret, sampleReplyAttributes()));
    EXPECT_TRUE(replyIsValid(sampleReply(), sampleRequest(), kSecret));
    EXPECT_FALSE(replyIsValid(sampleReply(), sampleRequest(), "other"));
}

TEST(RadiusWireTest, HidesAndRevealsThePasswordOfTheStandard) {
    EXPECT_EQ("arctangent", revealPassword(sampleRequest(), kSecret));
    EXPECT_BYTES_EQ(attributeValue(sampleRequest(), 2),
                    hidePassword("arctangent", ByteView(sampleRequest()).subspan(4, 16), kSecret));
    EXPECT_NE("arctangent", revealPassword(sampleRequest(), "other"));
}

TEST(RadiusWireTest, ReadsAttributes) {
    EXPECT_THAT(attributeTypes(sampleRequest()), ElementsAre(1, 2, 4, 5));
    EXPECT_BYTES_EQ(fromText("nemo"), attributeValue(sampleRequest(), 1));
    EXPECT_NONFATAL_FAILURE((void)attributeValue(sampleRequest(), 80), "0 attributes of type 80");
    EXPECT_NONFATAL_FAILURE(
        (void)parseAttributes("01000016 00000000000000000000000000000000 0103"_hex),
        "malformed attribute");
}

TEST(RadiusWireTest, SignsRequestsAndSeesThroughForgedOnes) {
    const Bytes authenticator(16, 7);
    const Bytes request = makeRequest(9, authenticator, kSecret,
                                      Attributes().addMessageAuthenticator().addText(1, "nemo"));
    // By RFC 3579 section 3.2: HMAC-MD5 over the request with the attribute's value zero.
    Bytes zeroed = request;
    std::fill_n(zeroed.begin() + 22, 16, uint8_t{0});
    EXPECT_BYTES_EQ(attributeValue(request, 80), hmacMd5(kSecret, {zeroed}));
    EXPECT_TRUE(messageAuthenticatorIsValid(request, kSecret));
    EXPECT_FALSE(messageAuthenticatorIsValid(request, "other"));
    EXPECT_FALSE(messageAuthenticatorIsValid(sampleRequest(), kSecret));

    Bytes accounting = makePacket(4, 9, Bytes(16), Attributes().addInteger(40, 1));
    EXPECT_FALSE(accountingAuthenticatorIsValid(accounting, kSecret));
    const Digest digest = md5({accounting, fromText(kSecret)});
    std::copy(digest.begin(), digest.end(), accounting.begin() + 4);
    EXPECT_TRUE(accountingAuthenticatorIsValid(accounting, kSecret));
}

TEST(RadiusWireTest, EncryptsMppeKeysAsTheLibraryDecryptsThem) {
    const Bytes authenticator(16, 7);
    const Bytes key = "000102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f"_hex;
    const Bytes data = encryptMppeKey(key, kSecret, authenticator, 0x8123);
    EXPECT_EQ("8123", toHex(ByteView(data).first(2)));
    ASSERT_THAT(data, SizeIs(2 + 48));
    Bytes value(concatenate({"00000137 1034"_hex, data}));
    ASSERT_EQ(0, radVendorMessage(value.data(), static_cast<int>(value.size()), kSecret,
                                  authenticator.data()));
    EXPECT_EQ("20" + toHex(key), toHex(ByteView(value).subspan(6, 33)));
}

}  // namespace
}  // namespace lanyard::test::radius_wire_test
