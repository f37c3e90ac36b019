// MS-CHAPv2: what goes out, what is said of the outcome, and the keys that a refusal may carry.
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <numeric>
#include <ostream>

#include <lanyard/radius/error.h>
#include <lanyard/radius/methods.h>

#include "tests/support/failing_partition.h"
#include "tests/unit/login/mschapv2_challenge.h"
#include "tests/unit/login/nt_response_program.h"
#include "tests/unit/login/outcome.h"

namespace lanyard::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

constexpr const char *kOk = "\"nemo\" RADIUS Authentication OK\n";
constexpr const char *kFailure = "\"nemo\" RADIUS Authentication failure\n";
constexpr const char *kPassword = "arctangent";
constexpr uint32_t kUntouched = 4711;
constexpr uint32_t kMicrosoft = 311;
constexpr uint8_t kSendKey = 16;
constexpr uint8_t kRecvKey = 17;

// The request of every MS-CHAPv2 login, up to Message-Authenticator.
Attributes request(std::string_view userName, ByteView peerChallenge, ByteView ntResponse) {
    return Attributes()
        .addText(1, userName)
        .addVendor(kMicrosoft, 11, kAuthenticatorChallenge)
        .addVendor(kMicrosoft, 25, concatenate({"b900"_hex, peerChallenge, Bytes(8), ntResponse}))
        .addInteger(6, 8)
        .addAddress(4, kDeviceAddress);
}

// The Peer-Challenge of a request, which is random.
Bytes peerChallengeOf(const ReceivedRequest &request) {
    Bytes response = vendorValue(request, kMicrosoft, 25);
    EXPECT_EQ(50U, response.size());
    response.resize(50);
    return {response.begin() + 2, response.begin() + 18};
}

// One of each kind that is shown differently.
Attributes grant() {
    return Attributes().addText(18, "Hello").addInteger(27, 7201).addText(24, "ab");
}

// Attributes of a reply with an encrypted key among others.
using Keys = std::function<void(Attributes &attributes, const ReceivedRequest &request)>;

void addKey(Attributes &attributes, const ReceivedRequest &request, uint8_t type, ByteView key) {
    attributes.addVendor(kMicrosoft, type, encryptMppeKey(key, kSecret, request.authenticator()));
}

Action answerWithKeys(uint8_t code, const Keys &keys) {
    return answer(code, [keys](const ReceivedRequest &request) {
        Attributes attributes;
        keys(attributes, request);
        return attributes;
    });
}

Action rejectWithKeys(const Keys &keys) {
    return answerWithKeys(3, keys);
}

struct EntryPoint {
    const char *name;
    int (*login)(const char *userName, const char *password);
    bool printsSuccess;  // on standard output, else logged at level 128
};

void PrintTo(const EntryPoint &entryPoint, std::ostream *stream) {
    *stream << entryPoint.name;
}

int loginForLimits(const char *userName, const char *password) {
    uint32_t idle = 0;
    uint32_t session = 0;
    return radMschapv2AndGetAttributes(userName, password, &idle, &session);
}

class Mschapv2Login : public testing::TestWithParam<EntryPoint> {
  protected:
    static Outcome login(const char *userName = "nemo", const char *password = kPassword) {
        return runAs(GetParam().name, [=] { return GetParam().login(userName, password); });
    }

    static void expectToldFailure(const Outcome &run) {
        EXPECT_THAT(run.told, ElementsAre(Logged(7, kError, GetParam().name, kFailure)));
    }

    static void expectFailure(const Outcome &run) {
        EXPECT_EQ(-1, run.result);
        EXPECT_EQ("", run.output);
        expectToldFailure(run);
    }
};

INSTANTIATE_TEST_SUITE_P(EntryPoints, Mschapv2Login,
                         testing::Values(EntryPoint{"radMschapv2", radMschapv2, true},
                                         EntryPoint{"radMschapv2AndGetAttributes", loginForLimits,
                                                    false}),
                         [](const auto &instance) { return std::string(instance.param.name); });

TEST_P(Mschapv2Login, RequestCarriesNameChallengeResponseAndServiceType) {
    const OneAuthServer far({accept()});
    const StandInProgram program(far.library.root(), answering(ntResponse()));
    const StandInRandom random({kPeerChallenge});
    EXPECT_EQ(0, login("User").result);
    ASSERT_EQ(1U, far.server.requestCount());
    EXPECT_THAT(attributeTypes(far.server.request(0)), ElementsAre(1, 26, 26, 6, 4, 80));
    expectAccessRequest(far.server.request(0), kSecret,
                        request("User", kPeerChallenge, ntResponse()));
}

TEST_P(Mschapv2Login, ProgramIsAskedForTheChallengeHash) {
    const OneAuthServer far({accept(), accept()});
    const StandInProgram program(far.library.root(), answering(ntResponse()));
    const StandInRandom random({kPeerChallenge, kPeerChallenge});
    EXPECT_EQ(0, login("User").result);
    const StandardSha1 option;
    EXPECT_EQ(0, login("User").result);
    ASSERT_EQ(2U, program.callCount());
    EXPECT_EQ(kPassword, program.call(0).password);
    EXPECT_EQ("/tmp/mschap_User", program.call(0).file);
    EXPECT_EQ("d771376ae7c0d8ee", toHex(program.call(0).challenge));
    EXPECT_EQ("423ce53c39f8459e", toHex(program.call(1).challenge));
}

// Challenge hash b21356e016e0daf5, published SHA-1.
TEST_P(Mschapv2Login, RealProgramGivesTheKnownAnswer) {
    const OneAuthServer far({accept()});
    const InstalledProgram program(far.library.root());
    const Bytes peerChallenge(kChallengeSize, 2);
    const StandInRandom random({peerChallenge});
    const StandardSha1 option;
    EXPECT_EQ(0, login("alice", "wonderland").result);
    expectAccessRequest(
        far.server.request(0), kSecret,
        request("alice", peerChallenge, "ab1caddd5ce729b3fb361ba010a9b6c77fc82af46a40aaa9"_hex));
    EXPECT_THAT(far.library.root().list("/tmp"), IsEmpty());
}

TEST_P(Mschapv2Login, PeerChallengesDifferFromRequestToRequest) {
    const OneAuthServer far({accept(), accept()});
    const StandInProgram program(far.library.root(), answering(ntResponse()));
    EXPECT_EQ(0, login().result);
    EXPECT_EQ(0, login().result);
    const Bytes first = peerChallengeOf(far.server.request(0));
    const Bytes second = peerChallengeOf(far.server.request(1));
    EXPECT_NE(first, second);
    EXPECT_BYTES_EQ(ownHash(first, "nemo"), program.call(0).challenge);
    EXPECT_BYTES_EQ(ownHash(second, "nemo"), program.call(1).challenge);
}

TEST_P(Mschapv2Login, WithoutARandomSourceThePeerChallengeIsZero) {
    const OneAuthServer far({accept()});
    const StandInProgram program(far.library.root(), answering(ntResponse()));
    const StandInRandom random({});
    EXPECT_EQ(0, login().result);
    EXPECT_GE(random.draws(), 1U);
    expectAccessRequest(far.server.request(0), kSecret,
                        request("nemo", Bytes(kChallengeSize), ntResponse()));
}

TEST_P(Mschapv2Login, NameOf64CharactersIsSentAndOf65RefusedWithoutAWord) {
    const OneAuthServer far({accept()});
    const StandInProgram program(far.library.root(), answering(ntResponse()));
    const std::string name(64, 'n');
    EXPECT_EQ(0, login(name.c_str()).result);
    const ReceivedRequest sent = far.server.request(0);
    expectAccessRequest(sent, kSecret, request(name, peerChallengeOf(sent), ntResponse()));
    const std::string tooLong(65, 'n');
    for (const char *refused : {tooLong.c_str(), static_cast<const char *>(nullptr)}) {
        const Outcome run = login(refused);
        EXPECT_EQ(-1, run.result);
        EXPECT_EQ("", run.output);
        EXPECT_THAT(run.lines, IsEmpty());
    }
    EXPECT_EQ(1U, far.server.requestCount());
    EXPECT_EQ(1U, program.callCount());
}

TEST_P(Mschapv2Login, WithoutAnNtResponseZerosAreSent) {
    OneAuthServer far({});
    far.server.otherwise(reject());
    {
        const StandInProgram program(far.library.root(), endingWith(0));
        expectFailure(login());
    }
    {
        const StandInProgram program(far.library.root(), endingWith(-1));
        expectFailure(login());
    }
    expectFailure(login());  // there is no program
    ASSERT_EQ(3U, far.server.requestCount());
    for (size_t i = 0; i < 3; ++i) {
        const ReceivedRequest sent = far.server.request(i);
        EXPECT_NE(Bytes(kChallengeSize), peerChallengeOf(sent));
        expectAccessRequest(sent, kSecret, request("nemo", peerChallengeOf(sent), Bytes(24)));
    }
}

TEST_P(Mschapv2Login, NameWithASlashIsSentWithAZeroNtResponse) {
    const OneAuthServer far({reject()});
    const StandInProgram program(far.library.root(), answering(ntResponse()));
    EXPECT_EQ(-1, login("../etc/nemo").result);
    EXPECT_EQ(0U, program.callCount());
    const ReceivedRequest sent = far.server.request(0);
    expectAccessRequest(sent, kSecret, request("../etc/nemo", peerChallengeOf(sent), Bytes(24)));
}

TEST_P(Mschapv2Login, WhereTheProgramsFileEndsEarlyEndOfFileIsSent) {
    const OneAuthServer far({reject()});
    const StandInProgram program(far.library.root(), answering("414243"_hex));
    expectFailure(login());
    const ReceivedRequest sent = far.server.request(0);
    expectAccessRequest(
        sent, kSecret,
        request("nemo", peerChallengeOf(sent), concatenate({"414243"_hex, Bytes(21, 0xff)})));
}

TEST_P(Mschapv2Login, AcceptIsToldAndNothingElse) {
    const OneAuthServer far({accept()});
    const Outcome run = login();
    EXPECT_EQ(0, run.result);
    EXPECT_EQ(GetParam().printsSuccess ? kOk : "", run.output);
    if (GetParam().printsSuccess) {
        EXPECT_THAT(run.told, IsEmpty());
    } else {
        EXPECT_THAT(run.told, ElementsAre(Logged(7, kTrace, GetParam().name, kOk)));
    }
    EXPECT_THAT(run.problems, IsEmpty());
}

TEST_P(Mschapv2Login, KeysOfAnAcceptAreNotPrintedAsKeys) {
    const OneAuthServer far({answerWithKeys(2, [](Attributes &attributes, const auto &request) {
        addKey(attributes, request, kRecvKey, Bytes(16, 0xab));
    })});
    const Outcome run = login();
    EXPECT_EQ(0, run.result);
    EXPECT_THAT(run.output, Not(testing::HasSubstr("MS-MPPE-Recv-Key is:")));
}

TEST_P(Mschapv2Login, NameIsToldAsItIs) {
    const OneAuthServer far({reject()});
    EXPECT_THAT(login("100%s \"n\"\xc3\xa9").problems,
                ElementsAre(Logged(7, kError, GetParam().name,
                                   "\"100%s \"n\"\xc3\xa9\" RADIUS Authentication failure\n")));
}

TEST_P(Mschapv2Login, OnlyAnAcceptIsASuccess) {
    for (const uint8_t code : Bytes{1, 3, 4, 5, 11, 12}) {
        SCOPED_TRACE(int{code});
        const OneAuthServer far({answer(code)});
        expectFailure(login());
    }
}

TEST_P(Mschapv2Login, AttributesOfARefusalAreNotShown) {
    OneAuthServer far({reject(grant()), challenge(grant())});
    for (int calls = 0; calls < 2; ++calls) {
        const Outcome run = login();
        expectFailure(run);
        EXPECT_EQ(1U, run.problems.size());
    }
    EXPECT_EQ(0U, far.server.unusedActions());
}

TEST_P(Mschapv2Login, SilentServerIsAFailure) {
    const SilentPort silent;
    const ConfiguredLibrary library({.authServers = {serverEntry(silent, 0)}});
    expectFailure(login());
    EXPECT_EQ(1U, silent.received().size());
}

TEST_P(Mschapv2Login, ForgedRejectIsAFailureAndItsKeyNotPrinted) {
    const OneAuthServer far({rejectWithKeys([](Attributes &attributes, const auto &request) {
                                 addKey(attributes, request, kRecvKey, Bytes(16, 0xab));
                             }).withWrongAuthenticator()});
    expectFailure(login());
}

TEST_P(Mschapv2Login, FailsWithoutServers) {
    const ConfiguredLibrary library;
    expectFailure(login());
}

TEST_P(Mschapv2Login, NeitherPasswordNorSecretGetsIntoTheLog) {
    OneAuthServer far({accept(grant()), reject(grant()), accept().withWrongAuthenticator()});
    const StandInProgram program(far.library.root(), answering(ntResponse()));
    for (int calls = 0; calls < 3; ++calls) {
        const Outcome run = login();
        EXPECT_THAT(run.lines, Not(IsEmpty()));
        expectSecrecy(run, kPassword);
    }
    EXPECT_EQ(0U, far.server.unusedActions());
}

// --- Keys of a refusal ----------------------------------------------------------------------------

TEST_P(Mschapv2Login, KeyOf16OctetsIsPrintedInTwoLines) {
    const OneAuthServer far({rejectWithKeys([](Attributes &attributes, const auto &request) {
        addKey(attributes, request, kRecvKey, "00112233445566778899aabbccddeeff"_hex);
    })});
    const Outcome run = login();
    EXPECT_EQ(0, run.result) << "a refusal that ends with a key";
    EXPECT_EQ(
        "MS-MPPE-Recv-Key is:\n"
        "\n"
        "0011223344556677\n"
        "8899aabbccddeeff\n"
        "\n",
        run.output);
    expectToldFailure(run);
}

TEST_P(Mschapv2Login, KeysOfOtherLengthsArePrintedEightOctetsALine) {
    struct Case {
        const char *key;
        const char *printed;
    };
    OneAuthServer far({});
    for (const Case &entry :
         {Case{"", "\n\n"}, Case{"0f", "\n0f\n"}, Case{"01020304050607", "\n01020304050607\n"},
          Case{"0102030405060708", "\n0102030405060708\n\n"},
          Case{"010203040506070809", "\n0102030405060708\n09\n"},
          Case{"0102030405060708090a0b0c0d0e0f", "\n0102030405060708\n090a0b0c0d0e0f\n"}}) {
        SCOPED_TRACE(entry.key);
        far.server.then(rejectWithKeys([&entry](Attributes &attributes, const auto &request) {
            addKey(attributes, request, kRecvKey, fromHex(entry.key));
        }));
        const Outcome run = login();
        EXPECT_EQ(0, run.result);
        EXPECT_EQ(std::string("MS-MPPE-Recv-Key is:\n") + entry.printed, run.output);
    }
}

// A key of 239 octets is the longest that fits: with its length octet, 15 blocks.
TEST_P(Mschapv2Login, LongestKeyIsPrintedWhole) {
    Bytes key(239);
    std::iota(key.begin(), key.end(), uint8_t{0});
    const OneAuthServer far({rejectWithKeys([&key](Attributes &attributes, const auto &request) {
        addKey(attributes, request, kRecvKey, key);
    })});
    std::string printed = "MS-MPPE-Recv-Key is:\n\n";
    for (size_t at = 0; at < key.size(); at += 8) {
        printed += toHex(ByteView(key).subspan(at, std::min<size_t>(8, key.size() - at))) + "\n";
    }
    EXPECT_EQ(printed, login().output);
}

// One encrypted block of 15 octets behind a length octet that claims another length.
Bytes encryptedClaiming(uint8_t length, const ReceivedRequest &request, ByteView octets) {
    constexpr size_t kSalt = 2;
    Bytes data = encryptMppeKey(octets, kSecret, request.authenticator());
    EXPECT_EQ(kSalt + 16, data.size());
    // In the first block, what changes in an octet changes in the clear.
    data[kSalt] = static_cast<uint8_t>(data[kSalt] ^ octets.size() ^ length);
    return data;
}

TEST_P(Mschapv2Login, NoMoreIsPrintedThanTheSubAttributeHolds) {
    OneAuthServer far({});
    for (const uint8_t length : Bytes{16, 17, 18, 64, 255}) {
        SCOPED_TRACE(int{length});
        far.server.then(rejectWithKeys([length](Attributes &attributes, const auto &request) {
            attributes.addVendor(
                kMicrosoft, kRecvKey,
                encryptedClaiming(length, request, "0102030405060708090a0b0c0d0e0f"_hex));
        }));
        const Outcome run = login();
        EXPECT_EQ(0, run.result);
        // One block: a length octet, 15 octets, and the two that decryption leaves behind.
        const std::string start = "MS-MPPE-Recv-Key is:\n\n0102030405060708\n090a0b0c0d0e0f";
        EXPECT_EQ(start, run.output.substr(0, start.size()));
        const std::string rest = run.output.substr(start.size());
        EXPECT_EQ(length == 16 ? 4U : 6U, rest.size()) << rest;
    }
}

TEST_P(Mschapv2Login, EveryKeyIsPrintedAndTheLastPairDecides) {
    OneAuthServer far({});
    const Keys key = [](Attributes &attributes, const ReceivedRequest &request) {
        addKey(attributes, request, kRecvKey, "aabb"_hex);
    };
    const Keys sendKey = [](Attributes &attributes, const ReceivedRequest &request) {
        addKey(attributes, request, kSendKey, "ccdd"_hex);
    };
    const Keys error = [](Attributes &attributes, const ReceivedRequest &) {
        attributes.addVendor(kMicrosoft, 2, fromText("xE=691 R=1"));
    };
    const Keys other = [](Attributes &attributes, const ReceivedRequest &) {
        attributes.addVendor(9, kRecvKey, "0102"_hex);
    };
    const Keys message = [](Attributes &attributes, const ReceivedRequest &) {
        attributes.addText(18, "No");
    };
    const std::string printed = "MS-MPPE-Recv-Key is:\n\naabb\n";
    struct Case {
        const char *name;
        std::vector<Keys> pairs;
        int result;
        unsigned keys;
    };
    for (const Case &entry : {Case{"key", {key}, 0, 1},
                              {"message, key, message", {message, key, message}, 0, 1},
                              {"two keys", {key, message, key}, 0, 2},
                              {"error, key", {error, key}, 0, 1},
                              {"key, error", {key, error}, -1, 1},
                              {"key, send key", {key, sendKey}, -1, 1},
                              {"send key, key", {sendKey, key}, 0, 1},
                              {"send key", {sendKey}, -1, 0},
                              {"key, another vendor's", {key, other}, -1, 1},
                              {"another vendor's, key", {other, key}, 0, 1},
                              {"error", {error}, -1, 0},
                              {"message", {message}, -1, 0}}) {
        SCOPED_TRACE(entry.name);
        far.server.then(rejectWithKeys(
            [pairs = entry.pairs](Attributes &attributes, const ReceivedRequest &request) {
                for (const Keys &add : pairs) {
                    add(attributes, request);
                }
            }));
        const Outcome run = login();
        EXPECT_EQ(entry.result, run.result);
        std::string expected;
        for (unsigned keys = 0; keys < entry.keys; ++keys) {
            expected += printed;
        }
        EXPECT_EQ(expected, run.output);
        expectToldFailure(run);
    }
}

TEST_P(Mschapv2Login, KeyOfAChallengeIsPrintedAsWell) {
    const OneAuthServer far({answerWithKeys(11, [](Attributes &attributes, const auto &request) {
        addKey(attributes, request, kRecvKey, "aabb"_hex);
    })});
    const Outcome run = login();
    EXPECT_EQ(0, run.result);
    EXPECT_EQ("MS-MPPE-Recv-Key is:\n\naabb\n", run.output);
    expectToldFailure(run);
}

TEST_P(Mschapv2Login, ZeroForARefusalWithAKey_IsToldFromAnAcceptByTheCode) {
    for (const int code : {2, 3, 11}) {
        const OneAuthServer far({answerWithKeys(
            static_cast<uint8_t>(code), [](Attributes &attributes, const auto &request) {
                addKey(attributes, request, kRecvKey, "aabb"_hex);
            })});
        EXPECT_EQ(0, login().result);
        ASSERT_NE(nullptr, radLastError());
        EXPECT_EQ(code, radLastError()->code);
    }
}

TEST_P(Mschapv2Login, KeyThatCannotBeDecryptedEndsTheReply) {
    const OneAuthServer far(
        {reject(Attributes().addVendor(kMicrosoft, kRecvKey, "8001000102"_hex))});
    expectFailure(login());
}

// With a hook in place of the decryption, the value comes as it was sent.
TEST_P(Mschapv2Login, ValueThatAHookHasTakenIsPrintedWithinItsBounds) {
    const RadFuncTbl hooks = {.radPackHook = nullptr,
                              .radUnpackHook = [](RadPair *, RadPair *, RadPacket *, RadPacket *,
                                                  const char *) { return 0; }};
    OneAuthServer far({});
    ASSERT_EQ(0, radFuncTblInstall(&hooks));
    struct Case {
        const char *data;
        const char *printed;
    };
    for (const Case &entry :
         {Case{"", "\n\n"}, Case{"00", "\n\n"}, Case{"05", "\n\n"}, Case{"00aa", "\n\n"},
          Case{"01aa", "\naa\n"}, Case{"ffaabb", "\naabb\n"}, Case{"01aabb", "\naa\n"}}) {
        SCOPED_TRACE(entry.data);
        far.server.then(reject(Attributes().addVendor(kMicrosoft, kRecvKey, fromHex(entry.data))));
        const Outcome run = login();
        EXPECT_EQ(0, run.result);
        EXPECT_EQ(std::string("MS-MPPE-Recv-Key is:\n") + entry.printed, run.output);
    }
    Bytes longest(247, 0xcd);
    longest[0] = 0xff;
    far.server.then(reject(Attributes().addVendor(kMicrosoft, kRecvKey, longest)));
    const Outcome run = login();
    EXPECT_EQ(246, std::count(run.output.begin(), run.output.end(), 'd'));
}

// --- Without memory -------------------------------------------------------------------------------

TEST_P(Mschapv2Login, RequestThatCannotBeMadeFailsWithoutAMessageOfItsOwn) {
    const OneAuthServer far({});
    const StandInProgram program(far.library.root(), answering(ntResponse()));
    for (const unsigned pair : {1U, 2U, 3U, 4U}) {
        failAllocation(pair);
        const Outcome run = login();
        stopFailing();
        EXPECT_EQ(-1, run.result);
        EXPECT_EQ("", run.output);
        EXPECT_THAT(run.lines,
                    ElementsAre(Logged(7, kMemory, "radPairNew", "radPairNew: out of memory\n")));
    }
    EXPECT_EQ(0U, far.server.requestCount());
    EXPECT_EQ(2U, program.callCount()) << "it is asked once name and challenge are in the request";
}

TEST_P(Mschapv2Login, EveryAllocationMayFailOnTheWayToAnAccept) {
    OneAuthServer far({});
    far.server.otherwise(accept(grant().addMessageAuthenticator()));
    const StandInProgram program(far.library.root(), answering(ntResponse()));
    unsigned runs = 0;
    const unsigned failed = forEachFailingAllocation([&runs] {
        constexpr unsigned kOwnPairs = 4;
        const Outcome run = login();
        EXPECT_EQ(allocationFailed() ? -1 : 0, run.result);
        if (allocationFailed()) {
            EXPECT_EQ("", run.output);
            if (++runs <= kOwnPairs) {
                EXPECT_THAT(run.told, IsEmpty());
            } else {
                expectFailure(run);
            }
        }
    });
    // Six pairs of the request, the request, the reply and its four pairs.
    EXPECT_GE(failed, 12U);
}

TEST_P(Mschapv2Login, EveryAllocationMayFailOnTheWayToAKey) {
    OneAuthServer far({});
    far.server.otherwise(rejectWithKeys([](Attributes &attributes, const auto &request) {
        addKey(attributes, request, kRecvKey, "aabb"_hex);
    }));
    std::vector<Outcome> failures;
    forEachFailingAllocation([&failures] {
        const Outcome run = login();
        if (allocationFailed()) {
            failures.push_back(run);
        } else {
            EXPECT_EQ(0, run.result);
            EXPECT_EQ("MS-MPPE-Recv-Key is:\n\naabb\n", run.output);
        }
    });
    // The last two are the copy of the key, and its text.
    ASSERT_GE(failures.size(), 4U);
    for (size_t i = 0; i < failures.size() - 1; ++i) {
        EXPECT_EQ(-1, failures[i].result);
        EXPECT_EQ("", failures[i].output);
    }
    EXPECT_EQ(0, failures.back().result);
    EXPECT_EQ("MS-MPPE-Recv-Key is:\n", failures.back().output);
    expectToldFailure(failures.back());
}

// --- radMschapv2 ----------------------------------------------------------------------------------

TEST(RadMschapv2, AttributesOfAnAcceptAreNotShown) {
    const OneAuthServer far({accept(grant())});
    const Outcome run = runAs("radMschapv2", [] { return radMschapv2("nemo", kPassword); });
    EXPECT_EQ(0, run.result);
    EXPECT_EQ(kOk, run.output);
    EXPECT_THAT(run.told, IsEmpty());
    EXPECT_THAT(run.problems, IsEmpty());
}

// --- radMschapv2AndGetAttributes ------------------------------------------------------------------

struct Limits {
    uint32_t idle = kUntouched;
    uint32_t session = kUntouched;
};

Outcome loginForLimits(Limits &limits) {
    return runAs("radMschapv2AndGetAttributes", [&limits] {
        return radMschapv2AndGetAttributes("nemo", kPassword, &limits.idle, &limits.session);
    });
}

TEST(RadMschapv2AndGetAttributes, AttributesOfAnAcceptAreShownInOrder) {
    const OneAuthServer far({accept(grant())});
    Limits limits;
    const Outcome run = loginForLimits(limits);
    EXPECT_EQ(0, run.result);
    EXPECT_EQ("Reply-Message: Hello\nState: 0x6162\n", run.output);
    EXPECT_THAT(run.told, ElementsAre(Logged(7, kTrace, "radMschapv2AndGetAttributes", kOk),
                                      Logged(7, kDump, "radPairShow", "Session-Timeout: 7201\n")));
    EXPECT_THAT(run.problems, IsEmpty());
    EXPECT_EQ(121U, limits.session);
    EXPECT_EQ(kUntouched, limits.idle);
}

TEST(RadMschapv2AndGetAttributes, EachLimitHasItsOwnOutput) {
    const OneAuthServer far({accept(Attributes().addInteger(28, 600)),
                             accept(Attributes().addInteger(28, 61).addInteger(27, 3600)),
                             accept(Attributes().addInteger(28, 0).addInteger(27, 3601))});
    Limits limits;
    EXPECT_EQ(0, loginForLimits(limits).result);
    EXPECT_EQ(10U, limits.idle);
    EXPECT_EQ(kUntouched, limits.session);
    EXPECT_EQ(0, loginForLimits(limits).result);
    EXPECT_EQ(2U, limits.idle);
    EXPECT_EQ(60U, limits.session);
    EXPECT_EQ(0, loginForLimits(limits).result);
    EXPECT_EQ(0U, limits.idle);
    EXPECT_EQ(61U, limits.session);
}

TEST(RadMschapv2AndGetAttributes, SinglePrecisionShowsInLongLimits) {
    const OneAuthServer far(
        {accept(Attributes().addInteger(28, 67109100).addInteger(27, 4294967295))});
    Limits limits;
    EXPECT_EQ(0, loginForLimits(limits).result);
    EXPECT_EQ(1118486U, limits.idle);
    EXPECT_EQ(71582792U, limits.session);
}

TEST(RadMschapv2AndGetAttributes, LaterLimitOfTheSameNameWins) {
    const OneAuthServer far({accept(Attributes().addInteger(27, 600).addInteger(27, 60))});
    Limits limits;
    EXPECT_EQ(0, loginForLimits(limits).result);
    EXPECT_EQ(1U, limits.session);
}

TEST(RadMschapv2AndGetAttributes, LimitsOfARefusalAreNotTaken) {
    const OneAuthServer far({rejectWithKeys([](Attributes &attributes, const auto &request) {
        attributes.addInteger(28, 600).addInteger(27, 7201);
        addKey(attributes, request, kRecvKey, "aabb"_hex);
    })});
    Limits limits;
    EXPECT_EQ(0, loginForLimits(limits).result);
    EXPECT_EQ(kUntouched, limits.idle);
    EXPECT_EQ(kUntouched, limits.session);
}

}  // namespace
}  // namespace lanyard::test
