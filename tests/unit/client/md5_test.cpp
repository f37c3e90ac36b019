// MD5, HMAC-MD5 and the MD5 stream cipher.
#include <algorithm>
#include <array>
#include <numeric>
#include <string>

#include <lanyard/radius/engine.h>

#include "tests/support/test.h"
#include "tests/unit/client/fixture.h"

namespace lanyard::test::md5_test {
namespace {

Bytes digestOf(std::string_view text) {
    const Bytes data = fromText(text);
    Bytes digest(16);
    EXPECT_EQ(1, rc_md5_calc(digest.data(), data.data(), static_cast<uint32_t>(data.size())));
    return digest;
}

Bytes hmacOf(ByteView key, ByteView data) {
    GuardedBuffer digest(16);
    const GuardedBuffer guardedKey(key);
    const GuardedBuffer guardedData(data);
    radHmacMd5Calc(digest.data(), guardedData.data(), static_cast<uint32_t>(data.size()),
                   guardedKey.data(), static_cast<uint32_t>(key.size()));
    return {digest.bytes().begin(), digest.bytes().end()};
}

// 0, 1, 2, ...
Bytes counting(size_t size) {
    Bytes bytes(size);
    std::iota(bytes.begin(), bytes.end(), uint8_t{0});
    return bytes;
}

TEST(Md5, GivesThePublishedDigests) {
    EXPECT_EQ("d41d8cd98f00b204e9800998ecf8427e", toHex(digestOf("")));
    EXPECT_EQ("900150983cd24fb0d6963f7d28e17f72", toHex(digestOf("abc")));
    EXPECT_EQ("57edf4a22be3c955ac49da2e2107b67a",
              toHex(digestOf("1234567890123456789012345678901234567890"
                             "1234567890123456789012345678901234567890")));
}

TEST(Md5, FailsWithoutItsArguments) {
    const Bytes data = fromText("abc");
    Bytes digest(16, 0xa5);
    EXPECT_EQ(0, rc_md5_calc(nullptr, data.data(), 3));
    EXPECT_EQ(0, rc_md5_calc(digest.data(), nullptr, 3));
    EXPECT_BYTES_EQ(Bytes(16, 0xa5), digest);
    EXPECT_EQ(1, rc_md5_calc(digest.data(), nullptr, 0));
    EXPECT_EQ("d41d8cd98f00b204e9800998ecf8427e", toHex(digest));
}

TEST(HmacMd5, WritesNothingWithoutItsArguments) {
    const Bytes data = fromText("abc");
    Bytes digest(16, 0xa5);
    radHmacMd5Calc(nullptr, data.data(), 3, data.data(), 3);
    radHmacMd5Calc(digest.data(), nullptr, 3, data.data(), 3);
    radHmacMd5Calc(digest.data(), data.data(), 3, nullptr, 3);
    EXPECT_BYTES_EQ(Bytes(16, 0xa5), digest);
}

TEST(HmacMd5, GivesThePublishedDigests) {
    EXPECT_EQ("9294727a3638bb1c13f48ef8158bfc9d",
              toHex(hmacOf(Bytes(16, 0x0b), fromText("Hi There"))));
    EXPECT_EQ("750c783e6ab0b503eaa86e310a5db738",
              toHex(hmacOf(fromText("Jefe"), fromText("what do ya want for nothing?"))));
    EXPECT_EQ("6b1ab7fe4bd7bf8f0b62e6ce61b9d0cd",
              toHex(hmacOf(Bytes(80, 0xaa),
                           fromText("Test Using Larger Than Block-Size Key - Hash Key First"))));
}

TEST(HmacMd5, TakesAKeyOf64BytesAsItIsAndDigestsALongerOne) {
    const Bytes data = fromText("lanyard");
    EXPECT_EQ("168cc95180e502fa2d8963d0d39f3be1", toHex(hmacOf(counting(64), data)));
    EXPECT_EQ("f11aaee1b6cbe513c09b56feed6260dc", toHex(hmacOf(counting(65), data)));

    const Digest digestOfKey = md5({counting(65)});
    EXPECT_BYTES_EQ(hmacOf(digestOfKey, data), hmacOf(counting(65), data));
}

TEST(HmacMd5, PadsAShortKeyWithZeros) {
    const Bytes data = fromText("lanyard");
    Bytes padded = counting(20);
    padded.resize(64);
    EXPECT_BYTES_EQ(hmacOf(padded, data), hmacOf(counting(20), data));
    EXPECT_BYTES_EQ(hmacOf(Bytes(64, 0), data), hmacOf(Bytes{}, data));
}

class Md5Crypt : public EngineTest {
  protected:
    // The cipher over guarded buffers; `room` bytes of output hold 0xa5 at the start.
    static Bytes crypt(ByteView input, const Bytes &salt, bool decrypt, size_t room) {
        const Bytes authenticator = fromHex(example::kAuthenticator);
        GuardedBuffer secret = GuardedBuffer::ofText(example::kSecret);
        const GuardedBuffer guardedInput(input);
        const GuardedBuffer guardedSalt(salt);
        GuardedBuffer output(room);
        EXPECT_EQ(0, radMd5Crypt(secret.text(), authenticator.data(),
                                 salt.empty() ? nullptr : guardedSalt.data(),
                                 static_cast<int>(salt.size()), guardedInput.data(),
                                 static_cast<int>(input.size()), output.data(), decrypt ? 1 : 0));
        return {output.bytes().begin(), output.bytes().end()};
    }
    static Bytes hide(ByteView input, const Bytes &salt = {}) {
        return crypt(input, salt, false, input.size());
    }
    static Bytes reveal(ByteView input, const Bytes &salt = {}) {
        return crypt(input, salt, true, input.size());
    }

    ConfiguredLibrary library_;
};

const Bytes kSalt = "8001"_hex;

TEST_F(Md5Crypt, HidesThePasswordOfTheRfc) {
    Bytes password = fromText("arctangent");
    password.resize(16);
    EXPECT_EQ(example::kHiddenPassword, toHex(hide(password)));
    EXPECT_EQ("arctangent", toText(reveal(fromHex(example::kHiddenPassword))).substr(0, 10));
}

TEST_F(Md5Crypt, ChainsTheBlocksOverTheCiphertext) {
    const std::string hidden = "6ccd11faf6bf72ac57ebee34742704e13c3dd9f602c6f64e71c16a4dd84b8237";
    EXPECT_EQ(hidden, toHex(hide(counting(32))));
    EXPECT_BYTES_EQ(counting(32), reveal(fromHex(hidden)));
}

TEST_F(Md5Crypt, TakesTheSaltIntoTheFirstBlockAlone) {
    const std::string hidden = "c74ed47b611499f0cf0f2502ea8e892c7ec0bbe85cc010d9f664de4675895c4e";
    EXPECT_EQ(hidden, toHex(hide(counting(32), kSalt)));
    EXPECT_BYTES_EQ(counting(32), reveal(fromHex(hidden), kSalt));
}

TEST_F(Md5Crypt, RevealsWhatItHid) {
    for (const Bytes &salt : {Bytes{}, kSalt, counting(40)}) {
        for (const size_t size : {16U, 32U, 48U, 240U}) {
            EXPECT_BYTES_EQ(counting(size), reveal(hide(counting(size), salt), salt));
        }
    }
}

TEST_F(Md5Crypt, LeavesBytesAfterTheLastWholeBlockAlone) {
    for (const bool decrypt : {false, true}) {
        for (const Bytes &salt : {Bytes{}, kSalt}) {
            SCOPED_TRACE(decrypt);
            EXPECT_BYTES_EQ(Bytes(15, 0xa5), crypt(counting(15), salt, decrypt, 15));

            const Bytes block = crypt(counting(16), salt, decrypt, 16);
            const Bytes longer = crypt(counting(20), salt, decrypt, 20);
            EXPECT_BYTES_EQ(block, ByteView(longer).first(16));
            EXPECT_BYTES_EQ(Bytes(4, 0xa5), ByteView(longer).subspan(16));
            // And needs no room for them.
            EXPECT_BYTES_EQ(block, crypt(counting(20), salt, decrypt, 16));
        }
    }
}

TEST_F(Md5Crypt, WritesNothingForALengthBelowOneBlock) {
    const Bytes authenticator = fromHex(example::kAuthenticator);
    const Bytes input = counting(16);
    for (const int length : {15, 1, 0, -1, -16, INT32_MIN}) {
        Bytes output(16, 0xa5);
        EXPECT_EQ(0, radMd5Crypt("secret", authenticator.data(), nullptr, 0, input.data(), length,
                                 output.data(), 0));
        EXPECT_BYTES_EQ(Bytes(16, 0xa5), output) << length;
    }
}

TEST_F(Md5Crypt, IgnoresTheLengthOfAMissingSalt) {
    const Bytes authenticator = fromHex(example::kAuthenticator);
    const Bytes input = counting(16);
    for (const int saltLength : {2, 1000, -1}) {
        Bytes output(16);
        EXPECT_EQ(0, radMd5Crypt(example::kSecret, authenticator.data(), nullptr, saltLength,
                                 input.data(), 16, output.data(), 0));
        EXPECT_BYTES_EQ(hide(input), output);
    }
}

TEST_F(Md5Crypt, TakesAnyOtherNumberThanZeroForReveal) {
    const Bytes authenticator = fromHex(example::kAuthenticator);
    const Bytes hidden = hide(counting(32));
    for (const int decrypt : {1, 2, -1}) {
        Bytes output(32);
        EXPECT_EQ(0, radMd5Crypt(example::kSecret, authenticator.data(), nullptr, 0, hidden.data(),
                                 32, output.data(), decrypt));
        EXPECT_BYTES_EQ(counting(32), output);
    }
}

TEST_F(Md5Crypt, WorksWithAnEmptySecret) {
    const Bytes authenticator = fromHex(example::kAuthenticator);
    const Bytes input(16, 0);
    Bytes output(16);
    EXPECT_EQ(
        0, radMd5Crypt("", authenticator.data(), nullptr, 0, input.data(), 16, output.data(), 0));
    EXPECT_BYTES_EQ(md5({authenticator}), output);
}

TEST_F(Md5Crypt, RefusesMissingArguments) {
    const LogRecorder log;
    Bytes bytes(16, 0xa5);
    uint8_t *const some = bytes.data();
    Bytes output(16, 0xa5);
    EXPECT_EQ(-1, radMd5Crypt(nullptr, some, nullptr, 0, some, 16, output.data(), 0));
    EXPECT_EQ(-1, radMd5Crypt("secret", nullptr, nullptr, 0, some, 16, output.data(), 0));
    EXPECT_EQ(-1, radMd5Crypt("secret", some, nullptr, 0, nullptr, 16, output.data(), 0));
    EXPECT_EQ(-1, radMd5Crypt("secret", some, nullptr, 0, some, 16, nullptr, 0));
    EXPECT_BYTES_EQ(Bytes(16, 0xa5), output);
    EXPECT_LOG(log);
}

TEST_F(Md5Crypt, NeedsOneScratchAllocationAndFailsWithoutALogWhenThereIsNone) {
    const Bytes authenticator = fromHex(example::kAuthenticator);
    const Bytes input = counting(32);
    const LogRecorder log;
    const size_t allocationsBefore = allocationCount();
    const size_t blocksBefore = liveBlocks();
    Bytes output(32);
    EXPECT_EQ(0, radMd5Crypt("secret", authenticator.data(), kSalt.data(), 2, input.data(), 32,
                             output.data(), 0));
    EXPECT_EQ(allocationsBefore + 1, allocationCount());
    EXPECT_EQ(blocksBefore, liveBlocks());

    const unsigned failures = forEachFailingAllocation([&] {
        std::fill(output.begin(), output.end(), uint8_t{0xa5});
        const int status = radMd5Crypt("secret", authenticator.data(), kSalt.data(), 2,
                                       input.data(), 32, output.data(), 0);
        EXPECT_EQ(allocationFailed() ? -1 : 0, status);
        EXPECT_EQ(allocationFailed(), output == Bytes(32, 0xa5));
    });
    EXPECT_EQ(1U, failures);
    EXPECT_LOG(log);
}

}  // namespace
}  // namespace lanyard::test::md5_test
