// CHAP: the response that is made of identifier, password and challenge.
#include <algorithm>
#include <climits>
#include <set>

#include <lanyard/radius/methods.h>
#include <palcore.h>

#include "tests/unit/login/outcome.h"

namespace lanyard::test::chap_response_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const Bytes kChallenge = "000102030405060708090a0b0c0d0e0f"_hex;

// The random source of palRandGen(), as a test has it.
class RandomSource {
  public:
    // What it returns, byte after byte; then it fails.
    explicit RandomSource(Bytes bytes) : bytes_(std::move(bytes)) {
        EXPECT_EQ(0, palRandLibInit(draw, this));
    }
    RandomSource(const RandomSource &) = delete;
    RandomSource &operator=(const RandomSource &) = delete;
    ~RandomSource() { EXPECT_EQ(0, palRandLibInit(nullptr, nullptr)); }

    [[nodiscard]] const std::vector<uint32_t> &lengths() const { return lengths_; }

  private:
    static int draw(void *context, uint8_t *out, uint32_t length) {
        auto &self = *static_cast<RandomSource *>(context);
        self.lengths_.push_back(length);
        if (length > self.bytes_.size()) {
            return -1;
        }
        std::copy_n(self.bytes_.begin(), length, out);
        self.bytes_.erase(self.bytes_.begin(), self.bytes_.begin() + length);
        return 0;
    }

    Bytes bytes_;
    std::vector<uint32_t> lengths_;
};

Bytes expectedResponse(uint8_t identifier, ByteView password, ByteView challenge) {
    const Bytes first = {identifier};
    const Digest digest = md5({first, password, challenge});
    return concatenate({first, digest});
}

TEST(RadChapRespMake, IsTheDigestOfIdentifierPasswordAndChallenge) {
    RandomSource random({0x2a, 0x00, 0xff});
    const Bytes password = fromText("arctangent");
    for (const uint8_t identifier : Bytes{0x2a, 0x00, 0xff}) {
        GuardedBuffer response(RAD_CHAP_RESPONSE_SIZE);
        EXPECT_EQ(17, radChapRespMake(response.data(), password.data(), 10, kChallenge.data()));
        EXPECT_BYTES_EQ(expectedResponse(identifier, password, kChallenge), response.bytes());
    }
    EXPECT_THAT(random.lengths(), ElementsAre(1, 1, 1));
}

// RFC 1994 leaves no test vectors; this one was computed with a different program.
TEST(RadChapRespMake, GivesTheKnownAnswer) {
    RandomSource random({0x01});
    const Bytes password = fromText("wonderland");
    Bytes response(RAD_CHAP_RESPONSE_SIZE);
    EXPECT_EQ(17, radChapRespMake(response.data(), password.data(), 10, kChallenge.data()));
    EXPECT_EQ("01d0746cfec3b68995b2f59f07ab80adfd", toHex(response));
}

TEST(RadChapRespMake, IdentifierVaries) {
    const Bytes password = fromText("arctangent");
    std::set<Bytes> responses;
    std::set<uint8_t> identifiers;
    for (int calls = 0; calls < 64; ++calls) {
        Bytes response(RAD_CHAP_RESPONSE_SIZE);
        EXPECT_EQ(17, radChapRespMake(response.data(), password.data(), 10, kChallenge.data()));
        EXPECT_BYTES_EQ(expectedResponse(response[0], password, kChallenge), response);
        identifiers.insert(response[0]);
        responses.insert(response);
    }
    EXPECT_GT(identifiers.size(), 8U);
    EXPECT_EQ(identifiers.size(), responses.size());
}

TEST(RadChapRespMake, PasswordIsBytesOfTheGivenLength) {
    for (const Bytes &password :
         {Bytes(), "00"_hex, "6100620063"_hex, Bytes(64, 'x'), Bytes(237, 0xff)}) {
        SCOPED_TRACE(password.size());
        for (const GuardedBuffer::Edge edge :
             {GuardedBuffer::Edge::start, GuardedBuffer::Edge::end}) {
            GuardedBuffer text(password, edge);
            text.makeReadOnly();
            GuardedBuffer challenge(kChallenge, edge);
            challenge.makeReadOnly();
            GuardedBuffer response(RAD_CHAP_RESPONSE_SIZE, edge);
            EXPECT_EQ(17, radChapRespMake(response.data(), text.data(),
                                          static_cast<int>(password.size()), challenge.data()));
            EXPECT_BYTES_EQ(expectedResponse(response.data()[0], password, kChallenge),
                            response.bytes());
        }
    }
}

TEST(RadChapRespMake, RefusesAPasswordOf238BytesAndMore) {
    RandomSource random({});
    const Bytes untouched(RAD_CHAP_RESPONSE_SIZE, 0x77);
    Bytes response = untouched;
    const Bytes password(238, 'x');
    EXPECT_EQ(0, radChapRespMake(response.data(), password.data(), 238, kChallenge.data()));
    for (const int length : {239, 254, 255, 256, 65536, INT_MAX - 17, INT_MAX, -1, INT_MIN}) {
        SCOPED_TRACE(length);
        GuardedBuffer none(Bytes{});
        EXPECT_EQ(0, radChapRespMake(response.data(), none.data(), length, kChallenge.data()));
    }
    EXPECT_BYTES_EQ(untouched, response);
    EXPECT_THAT(random.lengths(), IsEmpty());
}

TEST(RadChapRespMake, FailsWithoutARandomByte) {
    RandomSource random({});
    const Bytes untouched(RAD_CHAP_RESPONSE_SIZE, 0x77);
    Bytes response = untouched;
    const Bytes password = fromText("arctangent");
    EXPECT_EQ(0, radChapRespMake(response.data(), password.data(), 10, kChallenge.data()));
    EXPECT_BYTES_EQ(untouched, response);
    EXPECT_THAT(random.lengths(), ElementsAre(1));
}

TEST(RadChapRespMake, MissingArgumentsAreRefused) {
    const Bytes untouched(RAD_CHAP_RESPONSE_SIZE, 0x77);
    Bytes response = untouched;
    const Bytes password = fromText("arctangent");
    EXPECT_EQ(0, radChapRespMake(nullptr, password.data(), 10, kChallenge.data()));
    EXPECT_EQ(0, radChapRespMake(response.data(), nullptr, 10, kChallenge.data()));
    EXPECT_EQ(0, radChapRespMake(response.data(), password.data(), 10, nullptr));
    EXPECT_BYTES_EQ(untouched, response);
}

}  // namespace
}  // namespace lanyard::test::chap_response_test
