// MS-CHAPv2: the challenge hash, and the Peer-Challenge that is drawn for it.
#include <algorithm>
#include <array>
#include <openssl/sha.h>

#include <lanyard/radius/methods.h>

#include "tests/unit/login/mschapv2_challenge.h"
#include "tests/unit/login/nt_response_program.h"
#include "tests/unit/login/outcome.h"

namespace lanyard::test::mschapv2_response_test {
namespace {

constexpr size_t kNtResponseSize = 24;
constexpr size_t kRedrawsMax = 16;
constexpr const char *kPassword = "arctangent";

Bytes publishedHash(ByteView peerChallenge, std::string_view userName) {
    const Bytes hashed = concatenate({peerChallenge, kAuthenticatorChallenge, fromText(userName)});
    Bytes digest(RAD_SHA1_SIZE);
    SHA1(hashed.data(), hashed.size(), digest.data());
    digest.resize(kHashSize);
    return digest;
}

using Hash = Bytes (*)(ByteView peerChallenge, std::string_view userName);

// The first of 16 equal bytes and a count whose hash has a byte 0 in it, or has none.
Bytes challengeWhoseHash(bool holdsNul, Hash hash, std::string_view userName, uint8_t filler) {
    Bytes challenge(kChallengeSize, filler);
    for (unsigned count = 0; count < 100000; ++count) {
        challenge[0] = static_cast<uint8_t>(count);
        challenge[1] = static_cast<uint8_t>(count >> 8);
        const Bytes digest = hash(challenge, userName);
        if ((std::find(digest.begin(), digest.end(), 0) != digest.end()) == holdsNul) {
            return challenge;
        }
    }
    ADD_FAILURE() << "no such challenge";
    return challenge;
}

struct Response {
    int result = 0;
    Bytes ntResponse = Bytes(kNtResponseSize, 0x77);
    Bytes peerChallenge = Bytes(kChallengeSize, 0x55);
};

Response generate(const char *userName = "User",
                  const Bytes &authChallenge = kAuthenticatorChallenge) {
    Response response;
    response.result =
        generateMschapv2Response(response.ntResponse.data(), response.peerChallenge.data(),
                                 userName, "clientPass", authChallenge.data());
    return response;
}

class GenerateMschapv2Response : public testing::Test {
  protected:
    GenerateMschapv2Response() { root_.makeFolder("/tmp"); }

    TemporaryRoot root_;
    StandInProgram program_{root_, answering(ntResponse())};
};

TEST_F(GenerateMschapv2Response, HashIsTakenWithTheOwnSha1) {
    const StandInRandom random({kPeerChallenge});
    const Response response = generate();
    EXPECT_EQ(0, response.result);
    EXPECT_BYTES_EQ(kPeerChallenge, response.peerChallenge);
    EXPECT_BYTES_EQ(ntResponse(), response.ntResponse);
    ASSERT_EQ(1U, program_.callCount());
    EXPECT_EQ("clientPass", program_.call(0).password);
    EXPECT_EQ("d771376ae7c0d8ee", toHex(program_.call(0).challenge));
    EXPECT_EQ("/tmp/mschap_User", program_.call(0).file);
    EXPECT_EQ(1U, random.draws());
}

TEST_F(GenerateMschapv2Response, HashIsTakenWithThePublishedSha1OnRequest) {
    const StandInRandom random(std::vector<Bytes>(4, kPeerChallenge));
    {
        const StandardSha1 option;
        generate();
        generate("User", "5b5d7c7d7b3f2f3e3c2c602132262628"_hex);
    }
    {
        const StandardSha1 option(-1);
        generate();
    }
    generate();
    EXPECT_EQ("423ce53c39f8459e", toHex(program_.call(0).challenge));
    EXPECT_EQ("d02e4386bce91226", toHex(program_.call(1).challenge));
    EXPECT_EQ("423ce53c39f8459e", toHex(program_.call(2).challenge));
    EXPECT_EQ("d771376ae7c0d8ee", toHex(program_.call(3).challenge)) << "the option is off again";
}

TEST_F(GenerateMschapv2Response, WholeNameIsHashedWithoutItsEnd) {
    const std::string longName(200, 'n');
    for (const char *userName : {"", "a", "nemo", longName.c_str()}) {
        SCOPED_TRACE(userName);
        const Bytes challenge = challengeWhoseHash(false, ownHash, userName, 3);
        const StandInRandom random({challenge});
        EXPECT_EQ(0, generate(userName).result);
        EXPECT_BYTES_EQ(ownHash(challenge, userName),
                        program_.call(program_.callCount() - 1).challenge);
    }
}

TEST_F(GenerateMschapv2Response, AuthenticatorChallengeIsThatOfTheCaller) {
    const StandInRandom random(std::vector<Bytes>(2, kPeerChallenge));
    generate("User", Bytes(kChallengeSize, 1));
    generate("User", Bytes(kChallengeSize, 2));
    EXPECT_NE(program_.call(0).challenge, program_.call(1).challenge);
}

TEST_F(GenerateMschapv2Response, PeerChallengesDiffer) {
    const Response first = generate();
    const Response second = generate();
    EXPECT_NE(first.peerChallenge, second.peerChallenge);
    EXPECT_NE(program_.call(0).challenge, program_.call(1).challenge);
}

TEST_F(GenerateMschapv2Response, RandomSourceIsClosedAgain) {
    const auto before = openDescriptors();
    generate();
    generate();
    EXPECT_EQ(before, openDescriptors());
}

// One in 32 would have one.
TEST_F(GenerateMschapv2Response, TenThousandResponsesHaveNoNulInTheirChallenge) {
    unsigned lengths = 0;
    program_.replace([&lengths](const TemporaryRoot &, const StandInProgram::Call &call) {
        lengths += static_cast<unsigned>(call.challenge.size());
        return 0;
    });
    for (const int standard : {0, 1}) {
        const StandardSha1 option(standard);
        for (int calls = 0; calls < 5000; ++calls) {
            Response response;
            ASSERT_EQ(0, generateMschapv2Response(response.ntResponse.data(),
                                                  response.peerChallenge.data(), "nemo", kPassword,
                                                  kAuthenticatorChallenge.data()));
        }
    }
    EXPECT_EQ(10000U, program_.callCount());
    EXPECT_EQ(10000U * kHashSize, lengths);
}

TEST_F(GenerateMschapv2Response, PeerChallengeIsDrawnAnewWhileTheHashHasANul) {
    for (const bool standard : {false, true}) {
        const StandardSha1 option(standard ? 1 : 0);
        const Hash hash = standard ? publishedHash : ownHash;
        const Bytes first = challengeWhoseHash(true, hash, "User", 1);
        const Bytes second = challengeWhoseHash(true, hash, "User", 2);
        const Bytes third = challengeWhoseHash(false, hash, "User", 3);
        const StandInRandom random({first, second, third, third});
        const Response response = generate();
        EXPECT_EQ(3U, random.draws());
        EXPECT_BYTES_EQ(third, response.peerChallenge);
        EXPECT_BYTES_EQ(hash(third, "User"), program_.call(program_.callCount() - 1).challenge);
    }
}

// RFC 2759 section 9.2.
TEST_F(GenerateMschapv2Response, PublishedExampleIsComputedInTheProcess) {
    const BuiltinNtResponse builtin;
    const StandardSha1 standard;
    const StandInRandom random({kPeerChallenge});
    const Response response = generate("User", "5b5d7c7d7b3f2f3e3c2c602132262628"_hex);
    EXPECT_EQ(0, response.result);
    EXPECT_EQ("82309ecd8d708b5ea08faa3981cd83544233114a3d85d6df", toHex(response.ntResponse));
    EXPECT_EQ(0U, program_.callCount());
}

TEST_F(GenerateMschapv2Response, HashWithANulIsAnsweredInTheProcess) {
    const BuiltinNtResponse builtin;
    const Bytes challenge = challengeWhoseHash(true, ownHash, "User", 1);
    const StandInRandom random({challenge, kPeerChallenge});
    const Response response = generate();
    EXPECT_EQ(1U, random.draws());
    EXPECT_BYTES_EQ(challenge, response.peerChallenge);
    Bytes expected(kNtResponseSize);
    EXPECT_EQ(0, radMschapNtResponse("clientPass", expected.data(),
                                     ownHash(challenge, "User").data(), "User"));
    EXPECT_BYTES_EQ(expected, response.ntResponse);
}

TEST_F(GenerateMschapv2Response, ChallengesOfANulInEveryPlaceAreDrawnAnew) {
    const Bytes good = challengeWhoseHash(false, ownHash, "User", 9);
    std::array<bool, kHashSize> seen{};
    Bytes challenge(kChallengeSize, 4);
    for (unsigned count = 0;
         count < 65536 && !std::all_of(seen.begin(), seen.end(), [](bool place) { return place; });
         ++count) {
        challenge[0] = static_cast<uint8_t>(count);
        challenge[1] = static_cast<uint8_t>(count >> 8);
        const Bytes digest = ownHash(challenge, "User");
        if (std::count(digest.begin(), digest.end(), 0) != 1) {
            continue;
        }
        const auto place = std::find(digest.begin(), digest.end(), 0) - digest.begin();
        if (seen.at(static_cast<size_t>(place))) {
            continue;
        }
        seen.at(static_cast<size_t>(place)) = true;
        const StandInRandom random({challenge, good});
        EXPECT_BYTES_EQ(good, generate().peerChallenge) << place;
    }
    EXPECT_THAT(seen, testing::Each(true));
}

TEST_F(GenerateMschapv2Response, PeerChallengeIsDrawnAnew16TimesAtMost) {
    std::vector<Bytes> draws(1 + kRedrawsMax + 4, challengeWhoseHash(true, ownHash, "User", 1));
    const Bytes last = challengeWhoseHash(true, ownHash, "User", 2);
    draws[kRedrawsMax] = last;
    const StandInRandom random(draws);
    const Response response = generate();
    EXPECT_EQ(1 + kRedrawsMax, random.draws());
    EXPECT_BYTES_EQ(last, response.peerChallenge);
    ASSERT_EQ(1U, program_.callCount()) << "the exchange goes on";
    EXPECT_LT(program_.call(0).challenge.size(), kHashSize);
}

TEST_F(GenerateMschapv2Response, WithoutARandomSourcePeerChallengeStaysAndTheExchangeGoesOn) {
    const StandInRandom random({});
    Response response;
    response.peerChallenge = challengeWhoseHash(false, ownHash, "User", 6);
    const Bytes before = response.peerChallenge;
    EXPECT_EQ(0, generateMschapv2Response(response.ntResponse.data(), response.peerChallenge.data(),
                                          "User", kPassword, kAuthenticatorChallenge.data()));
    EXPECT_BYTES_EQ(before, response.peerChallenge);
    EXPECT_BYTES_EQ(ownHash(before, "User"), program_.call(0).challenge);
    EXPECT_EQ(1U, random.draws());
}

TEST_F(GenerateMschapv2Response, WithoutARandomSourceAHashWithANulEndsAsWell) {
    const StandInRandom random({});
    Response response;
    response.peerChallenge = challengeWhoseHash(true, ownHash, "User", 6);
    EXPECT_EQ(0, generateMschapv2Response(response.ntResponse.data(), response.peerChallenge.data(),
                                          "User", kPassword, kAuthenticatorChallenge.data()));
    EXPECT_EQ(1 + kRedrawsMax, random.draws());
    EXPECT_EQ(1U, program_.callCount());
}

TEST_F(GenerateMschapv2Response, ResultIsThatOfTheNtResponse) {
    program_.replace(endingWith(-1));
    EXPECT_EQ(-1, generate().result);
    program_.replace(endingWith(0));
    const Response silent = generate();
    EXPECT_EQ(0, silent.result);
    EXPECT_BYTES_EQ(Bytes(kNtResponseSize, 0x77), silent.ntResponse);
    EXPECT_EQ(-1, generate("a/b").result);
    EXPECT_EQ(2U, program_.callCount());
}

TEST_F(GenerateMschapv2Response, MissingArgumentsAreRefused) {
    Response room;
    uint8_t *nt = room.ntResponse.data();
    uint8_t *peer = room.peerChallenge.data();
    const uint8_t *auth = kAuthenticatorChallenge.data();
    EXPECT_EQ(-1, generateMschapv2Response(nullptr, peer, "User", kPassword, auth));
    EXPECT_EQ(-1, generateMschapv2Response(nt, nullptr, "User", kPassword, auth));
    EXPECT_EQ(-1, generateMschapv2Response(nt, peer, nullptr, kPassword, auth));
    EXPECT_EQ(-1, generateMschapv2Response(nt, peer, "User", nullptr, auth));
    EXPECT_EQ(-1, generateMschapv2Response(nt, peer, "User", kPassword, nullptr));
    EXPECT_EQ(0U, program_.callCount());
    EXPECT_BYTES_EQ(Bytes(kChallengeSize, 0x55), room.peerChallenge);
}

TEST_F(GenerateMschapv2Response, StaysWithinItsArguments) {
    for (const GuardedBuffer::Edge edge : {GuardedBuffer::Edge::start, GuardedBuffer::Edge::end}) {
        GuardedBuffer nt(kNtResponseSize, edge);
        GuardedBuffer peer(kChallengeSize, edge);
        GuardedBuffer auth(kAuthenticatorChallenge, edge);
        auth.makeReadOnly();
        EXPECT_EQ(0,
                  generateMschapv2Response(nt.data(), peer.data(), "User", kPassword, auth.data()));
        EXPECT_BYTES_EQ(ntResponse(), nt.bytes());
    }
}

}  // namespace
}  // namespace lanyard::test::mschapv2_response_test
