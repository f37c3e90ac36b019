// The library's own SHA-1: known answers, and libcrypto's compression of the same blocks with the
// bytes of each word turned round.
#include <algorithm>
#include <array>
#include <openssl/sha.h>

#include <lanyard/radius/engine.h>

#include "tests/support/test.h"

namespace lanyard::test::sha1_test {
namespace {

using testing::Each;

constexpr size_t kBlock = 64;
constexpr std::array<uint32_t, 5> kInitialState = {0x67452301, 0xEFCDAB89, 0x98BADCFE, 0x10325476,
                                                   0xC3D2E1F0};

Bytes digestOf(ByteView message) {
    Bytes digest(RAD_SHA1_SIZE);
    SHA1_CTX context;
    SHA1Init(&context);
    SHA1Update(&context, message.data(), static_cast<uint32_t>(message.size()));
    SHA1Final(digest.data(), &context);
    return digest;
}

std::string hexDigestOf(std::string_view message) {
    return toHex(digestOf(fromText(message)));
}

// Bytes that differ from their neighbours, and from those a block further.
Bytes message(size_t size) {
    Bytes bytes(size);
    for (size_t i = 0; i < size; ++i) {
        bytes[i] = static_cast<uint8_t>(i * 7 + i / 64 + 1);
    }
    return bytes;
}

// Published SHA-1 from a state on, but for the order of the bytes in each message word.
class Reference {
  public:
    explicit Reference(const std::array<uint32_t, 5> &state) : context_() {
        context_.h0 = state[0];
        context_.h1 = state[1];
        context_.h2 = state[2];
        context_.h3 = state[3];
        context_.h4 = state[4];
    }

    void transform(ByteView block) {
        ASSERT_EQ(kBlock, block.size());
        Bytes turned(block.begin(), block.end());
        for (size_t word = 0; word < kBlock; word += 4) {
            std::reverse(turned.begin() + static_cast<long>(word),
                         turned.begin() + static_cast<long>(word) + 4);
        }
        SHA1_Transform(&context_, turned.data());
    }

    [[nodiscard]] std::array<uint32_t, 5> state() const {
        return {context_.h0, context_.h1, context_.h2, context_.h3, context_.h4};
    }

    [[nodiscard]] Bytes digest() const {
        Bytes bytes;
        for (const uint32_t word : state()) {
            for (const int shift : {24, 16, 8, 0}) {
                bytes.push_back(static_cast<uint8_t>(word >> shift));
            }
        }
        return bytes;
    }

  private:
    SHA_CTX context_;
};

// The message as it is compressed: one byte 0x80, zeros, and `bitCount`, in whole blocks.
Bytes padded(ByteView message, uint64_t bitCount) {
    Bytes bytes(message.begin(), message.end());
    bytes.push_back(0x80);
    while (bytes.size() % kBlock != kBlock - 8) {
        bytes.push_back(0);
    }
    for (int shift = 56; shift >= 0; shift -= 8) {
        bytes.push_back(static_cast<uint8_t>(bitCount >> shift));
    }
    return bytes;
}

Bytes referenceDigest(ByteView message) {
    Reference reference(kInitialState);
    const Bytes blocks = padded(message, message.size() * 8);
    for (size_t at = 0; at < blocks.size(); at += kBlock) {
        reference.transform(ByteView(blocks).subspan(at, kBlock));
    }
    return reference.digest();
}

TEST(Sha1, GivesTheKnownAnswers) {
    EXPECT_EQ("9844f81e1408f6ecb932137d33bed7cfdcf518a3", hexDigestOf(""));
    EXPECT_EQ("14c20690f653fb16396e4f804c9dafb46e513d4f", hexDigestOf("abc"));
    EXPECT_EQ("90cc904e4f3f1e16a4fc0d8dd4641ccb84a539da", hexDigestOf(std::string(55, 'a')));
    EXPECT_EQ("a7627a5c32cb4d697f821b2a8f95532650eb85bf", hexDigestOf(std::string(56, 'a')));
    EXPECT_EQ("600eaf0f330c82d1a74fb01eb9be380d2ebe0413", hexDigestOf(std::string(64, 'a')));
    EXPECT_EQ("ad0b4df3e0062d0738713a9f2b1c6a20b26de35e",
              hexDigestOf("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq"));
}

TEST(Sha1, IsNotThePublishedOne) {
    EXPECT_NE("a9993e364706816aba3e25717850c26c9cd0d89d", hexDigestOf("abc"));
}

TEST(Sha1, EveryLengthIsPaddedRight) {
    for (size_t size = 0; size <= 3 * kBlock; ++size) {
        SCOPED_TRACE(size);
        const Bytes bytes = message(size);
        EXPECT_BYTES_EQ(referenceDigest(bytes), digestOf(bytes));
    }
}

TEST(Sha1, EmptyMessageIsOneBlockOfPadding) {
    std::array<uint32_t, 5> state = kInitialState;
    std::array<uint8_t, kBlock> block = {0x80};
    SHA1Transform(state.data(), block.data());
    Bytes bytes;
    for (const uint32_t word : state) {
        for (const int shift : {24, 16, 8, 0}) {
            bytes.push_back(static_cast<uint8_t>(word >> shift));
        }
    }
    EXPECT_BYTES_EQ(bytes, digestOf({}));
}

TEST(Sha1, PaddingTakesASecondBlockFrom56BytesOn) {
    EXPECT_EQ(kBlock, padded(message(55), 0).size());
    EXPECT_EQ(2 * kBlock, padded(message(56), 0).size());
    EXPECT_BYTES_EQ(referenceDigest(message(55)), digestOf(message(55)));
    EXPECT_BYTES_EQ(referenceDigest(message(56)), digestOf(message(56)));
}

TEST(Sha1, PiecesMakeTheSameDigest) {
    constexpr size_t kSize = 3 * kBlock + 5;
    const Bytes bytes = message(kSize);
    const Bytes whole = digestOf(bytes);
    for (const size_t piece : {1U, 3U, 55U, 56U, 63U, 64U, 65U, 127U, 128U, 129U}) {
        SCOPED_TRACE(piece);
        SHA1_CTX context;
        SHA1Init(&context);
        for (size_t at = 0; at < kSize; at += piece) {
            const size_t count = std::min(piece, kSize - at);
            SHA1Update(&context, bytes.data() + at, static_cast<uint32_t>(count));
            SHA1Update(&context, bytes.data() + at, 0);
        }
        Bytes digest(RAD_SHA1_SIZE);
        SHA1Final(digest.data(), &context);
        EXPECT_BYTES_EQ(whole, digest);
    }
}

TEST(Sha1, EveryCutInTwoMakesTheSameDigest) {
    constexpr size_t kSize = 2 * kBlock + 8;
    const Bytes bytes = message(kSize);
    const Bytes whole = digestOf(bytes);
    for (size_t cut = 0; cut <= kSize; ++cut) {
        SCOPED_TRACE(cut);
        SHA1_CTX context;
        SHA1Init(&context);
        SHA1Update(&context, bytes.data(), static_cast<uint32_t>(cut));
        SHA1Update(&context, bytes.data() + cut, static_cast<uint32_t>(kSize - cut));
        Bytes digest(RAD_SHA1_SIZE);
        SHA1Final(digest.data(), &context);
        EXPECT_BYTES_EQ(whole, digest);
    }
}

TEST(Sha1, StartsFromThePublishedState) {
    SHA1_CTX context;
    std::fill_n(reinterpret_cast<uint8_t *>(&context), sizeof context, 0xa5);
    SHA1Init(&context);
    EXPECT_TRUE(std::equal(kInitialState.begin(), kInitialState.end(), context.state));
    EXPECT_THAT(context.count, Each(0U));
}

TEST(Sha1, ContextShowsWhatItHasTaken) {
    SHA1_CTX context;
    SHA1Init(&context);
    const Bytes bytes = message(kBlock + 3);
    SHA1Update(&context, bytes.data(), static_cast<uint32_t>(bytes.size()));
    EXPECT_EQ((kBlock + 3) * 8, context.count[0]);
    EXPECT_EQ(0U, context.count[1]);
    EXPECT_BYTES_EQ(ByteView(bytes).subspan(kBlock), ByteView(context.buffer).first(3));
    Reference reference(kInitialState);
    reference.transform(ByteView(bytes).first(kBlock));
    const std::array<uint32_t, 5> state = reference.state();
    EXPECT_TRUE(std::equal(state.begin(), state.end(), context.state));
}

TEST(Sha1, BitCountCarriesIntoItsHighWordAndIsDigested) {
    SHA1_CTX context;
    SHA1Init(&context);
    context.count[0] = 0xFFFFFE00;  // whole blocks, the last before the carry
    const Bytes block = message(kBlock);
    SHA1Update(&context, block.data(), kBlock);
    EXPECT_EQ(0U, context.count[0]);
    EXPECT_EQ(1U, context.count[1]);
    SHA1Update(&context, block.data(), 2);

    Reference reference(kInitialState);
    reference.transform(block);
    reference.transform(padded(ByteView(block).first(2), 0x100000010));
    Bytes digest(RAD_SHA1_SIZE);
    SHA1Final(digest.data(), &context);
    EXPECT_BYTES_EQ(reference.digest(), digest);
}

TEST(Sha1, ContextHoldsOnlyZerosAtTheEnd) {
    for (const size_t size : {0U, 1U, 55U, 56U, 64U, 100U}) {
        SCOPED_TRACE(size);
        const Bytes bytes = message(size);
        SHA1_CTX context;
        SHA1Init(&context);
        SHA1Update(&context, bytes.data(), static_cast<uint32_t>(size));
        std::array<uint8_t, RAD_SHA1_SIZE> digest;
        SHA1Final(digest.data(), &context);
        EXPECT_THAT(context.state, Each(0U));
        EXPECT_THAT(context.count, Each(0U));
        EXPECT_THAT(context.buffer, Each(0));
    }
}

TEST(Sha1, TransformAddsToTheStateItIsGiven) {
    const std::array<uint32_t, 5> start = {1, 0xFFFFFFFF, 0x80000000, 3, 0x12345678};
    std::array<uint32_t, 5> state = start;
    const Bytes block = message(kBlock);
    SHA1Transform(state.data(), block.data());
    Reference reference(start);
    reference.transform(block);
    EXPECT_EQ(reference.state(), state);
}

TEST(Sha1, StaysWithinItsArguments) {
    for (const size_t size : {1U, 63U, 64U, 65U, 200U}) {
        for (const GuardedBuffer::Edge edge :
             {GuardedBuffer::Edge::start, GuardedBuffer::Edge::end}) {
            SCOPED_TRACE(size);
            GuardedBuffer bytes(message(size), edge);
            bytes.makeReadOnly();
            GuardedBuffer digest(RAD_SHA1_SIZE, edge);
            SHA1_CTX context;
            SHA1Init(&context);
            SHA1Update(&context, bytes.data(), static_cast<uint32_t>(size));
            SHA1Final(digest.data(), &context);
            EXPECT_BYTES_EQ(referenceDigest(message(size)), digest.bytes());
        }
    }
}

}  // namespace
}  // namespace lanyard::test::sha1_test
