// What CHAP logins have alone: response and challenge, which are the caller's.
#include <climits>
#include <ostream>

#include <lanyard/radius/methods.h>

#include "tests/unit/login/outcome.h"

namespace lanyard::test::chap_test {
namespace {

const Bytes kChallenge = "000102030405060708090a0b0c0d0e0f"_hex;
// It has a byte 0 in it, as a response may.
const Bytes kResponse = "2a 00112233445566778899aabbccddeeff"_hex;

Attributes request(ByteView response, ByteView challenge) {
    return Attributes()
        .addText(1, "nemo")
        .addInteger(6, 8)
        .add(3, response)
        .add(60, challenge)
        .addAddress(4, kDeviceAddress);
}

struct EntryPoint {
    const char *name;
    int (*login)(const char *userName, const uint8_t *response, int responseLength,
                 const uint8_t *challenge, int challengeLength);
    const char *refusal;
};

void PrintTo(const EntryPoint &entryPoint, std::ostream *stream) {
    *stream << entryPoint.name;
}

int loginForLimits(const char *userName, const uint8_t *response, int responseLength,
                   const uint8_t *challenge, int challengeLength) {
    int idle = 0;
    int session = 0;
    return radChapAuthAndGetAttributes(userName, response, responseLength, challenge,
                                       challengeLength, &idle, &session);
}

class ChapLogin : public testing::TestWithParam<EntryPoint> {
  protected:
    static Outcome login(const char *userName, const uint8_t *response, int responseLength,
                         const uint8_t *challenge, int challengeLength) {
        return runAs(GetParam().name, [=] {
            return GetParam().login(userName, response, responseLength, challenge, challengeLength);
        });
    }

    static Outcome login(ByteView response, ByteView challenge) {
        return login("nemo", response.data(), static_cast<int>(response.size()), challenge.data(),
                     static_cast<int>(challenge.size()));
    }

    // Both arrive at the server as they are.
    void expectSent(ByteView response, ByteView challenge) {
        EXPECT_EQ(0, login(response, challenge).result);
        expectAccessRequest(far_.server.request(far_.server.requestCount() - 1), kSecret,
                            request(response, challenge));
    }

    static auto refused() { return EndedWithLog(-1, "", {GetParam().refusal}); }

    OneAuthServer far_{std::vector<Action>(3, accept())};
};

INSTANTIATE_TEST_SUITE_P(
    EntryPoints, ChapLogin,
    testing::Values(
        EntryPoint{"radChapAuth", radChapAuth,
                   "error radChapAuth> Invalid username, challenge or response"},
        EntryPoint{"radChapAuthAndGetAttributes", loginForLimits,
                   "trace radChapAuthAndGetAttributes> Invalid username, challenge or response"}),
    [](const auto &instance) { return std::string(instance.param.name); });

TEST_P(ChapLogin, ResponseAndChallengeAreSentAsTheyAre) {
    Bytes nulAt17(60, 0x5a);
    nulAt17[17] = 0;
    expectSent("00"_hex, "ff"_hex);
    expectSent(kResponse, Bytes(253, 0xc3));
    expectSent(nulAt17, kChallenge);
}

TEST_P(ChapLogin, ResponseOf48BytesIsSentAndOf49Refused) {
    const Bytes bytes(49, 0x5a);
    expectSent(ByteView(bytes).first(48), kChallenge);
    EXPECT_THAT(login(bytes, kChallenge), refused());
    EXPECT_THAT(login(Bytes(200, 0x5a), kChallenge), refused());
    EXPECT_EQ(1U, far_.server.requestCount());
}

TEST_P(ChapLogin, MissingAndEmptyInputsAreRefused) {
    const uint8_t *response = kResponse.data();
    const uint8_t *challenge = kChallenge.data();
    EXPECT_THAT(login(nullptr, response, 17, challenge, 16), refused());
    EXPECT_THAT(login("nemo", nullptr, 17, challenge, 16), refused());
    EXPECT_THAT(login("nemo", response, 17, nullptr, 16), refused());
    for (const int length : {0, -1, INT_MIN}) {
        SCOPED_TRACE(length);
        EXPECT_THAT(login("nemo", response, length, challenge, 16), refused());
        EXPECT_THAT(login("nemo", response, 17, challenge, length), refused());
    }
    EXPECT_EQ(0U, far_.server.requestCount());
}

TEST_P(ChapLogin, StaysWithinItsInputs) {
    const Bytes withoutNul(17, 0x5a);
    for (const GuardedBuffer::Edge edge : {GuardedBuffer::Edge::start, GuardedBuffer::Edge::end}) {
        GuardedBuffer response(withoutNul, edge);
        response.makeReadOnly();
        GuardedBuffer challenge(kChallenge, edge);
        challenge.makeReadOnly();
        expectSent(response.bytes(), challenge.bytes());
    }
}

TEST_P(ChapLogin, ValueThatNoAttributeHoldsFailsWithTheMessageOfThePair) {
    const Bytes response(254, 0);
    const Bytes challenge(254, 1);
    for (const Outcome &run : {login(response, kChallenge), login(kResponse, challenge)}) {
        EXPECT_THAT(run, EndedWithLog(-1, "", {"error radPairAssign: bad attribute value length"}));
    }
    EXPECT_EQ(0U, far_.server.requestCount());
}

}  // namespace
}  // namespace lanyard::test::chap_test
