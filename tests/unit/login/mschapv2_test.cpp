// What MS-CHAPv2 logins have alone: the Peer-Challenge, and the keys that a refusal may carry.
#include <algorithm>
#include <functional>
#include <numeric>

#include <lanyard/radius/error.h>
#include <lanyard/radius/methods.h>

#include "tests/unit/login/methods.h"
#include "tests/unit/login/mschapv2_challenge.h"

namespace lanyard::test::mschapv2_test {
namespace {

using testing::Not;

constexpr uint8_t kSendKey = 16;
constexpr uint8_t kRecvKey = 17;

Bytes peerChallengeOf(const ReceivedRequest &request) {
    const Bytes response = vendorValue(request, kMicrosoft, 25);
    return {response.begin() + 2, response.begin() + 18};
}

// Adds a pair to a reply.
using AddPair = std::function<void(Attributes &attributes, const ReceivedRequest &request)>;

AddPair keyPair(ByteView key, uint8_t type = kRecvKey) {
    return
        [key = Bytes(key.begin(), key.end()), type](Attributes &attributes, const auto &request) {
            attributes.addVendor(kMicrosoft, type,
                                 encryptMppeKey(key, kSecret, request.authenticator()));
        };
}

Action answerWith(uint8_t code, const std::vector<AddPair> &pairs) {
    return answer(code, [pairs](const ReceivedRequest &request) {
        Attributes attributes;
        for (const AddPair &add : pairs) {
            add(attributes, request);
        }
        return attributes;
    });
}

Action rejectWith(const AddPair &pair) {
    return answerWith(3, {pair});
}

class Mschapv2Login : public testing::TestWithParam<Method> {
  protected:
    static Outcome login(const char *userName = "nemo") { return logIn(GetParam(), userName); }

    // A failure is told, whatever is returned and printed.
    static auto failed(int result = -1, const std::string &output = "") {
        return Ended(result, output,
                     {GetParam().line("error", "\"nemo\" RADIUS Authentication failure")});
    }
};

INSTANTIATE_TEST_SUITE_P(Methods, Mschapv2Login,
                         testing::Values(mschapMethods()[2], mschapMethods()[3]), nameOf<Method>);

TEST_P(Mschapv2Login, ProgramIsAskedForTheHashOfTheChallengeThatIsSent) {
    const FarEnd far({accept(), accept()});
    const StandInRandom random({kPeerChallenge, kPeerChallenge});
    EXPECT_EQ(0, login("User").result);
    const StandardSha1 option;
    EXPECT_EQ(0, login("User").result);
    ASSERT_EQ(2U, far.program.callCount());
    EXPECT_EQ(kPassword, far.program.call(0).password);
    EXPECT_EQ("/tmp/mschap_User", far.program.call(0).file);
    EXPECT_EQ("d771376ae7c0d8ee", toHex(far.program.call(0).challenge));
    EXPECT_EQ("423ce53c39f8459e", toHex(far.program.call(1).challenge));
    expectLogin(mschapv2(), far.server.request(0), "User", kPassword);
    EXPECT_BYTES_EQ(kPeerChallenge, peerChallengeOf(far.server.request(0)));
}

TEST_P(Mschapv2Login, PeerChallengesDifferFromRequestToRequest) {
    const FarEnd far({accept(), accept()});
    EXPECT_EQ(0, login().result);
    EXPECT_EQ(0, login().result);
    const Bytes first = peerChallengeOf(far.server.request(0));
    const Bytes second = peerChallengeOf(far.server.request(1));
    EXPECT_NE(first, second);
    EXPECT_NE(Bytes(kChallengeSize), first);
    EXPECT_BYTES_EQ(ownHash(first, "nemo"), far.program.call(0).challenge);
    EXPECT_BYTES_EQ(ownHash(second, "nemo"), far.program.call(1).challenge);
}

TEST_P(Mschapv2Login, WithoutARandomSourceThePeerChallengeIsZero) {
    const FarEnd far({accept()});
    const StandInRandom random({});
    EXPECT_EQ(0, login().result);
    EXPECT_GE(random.draws(), 1U);
    expectLogin(mschapv2(), far.server.request(0), "nemo", kPassword);
    EXPECT_EQ(Bytes(kChallengeSize), peerChallengeOf(far.server.request(0)));
}

// --- Keys of a refusal ----------------------------------------------------------------------------

const std::string kHeading = "MS-MPPE-Recv-Key is:\n";
const AddPair kKey = keyPair("aabb"_hex);
const std::string kPrintedKey = kHeading + "\naabb\n";

TEST_P(Mschapv2Login, KeysOfAnAcceptAreNotPrintedAsKeys) {
    const OneAuthServer far({answerWith(2, {kKey})});
    const Outcome run = login();
    EXPECT_EQ(0, run.result);
    EXPECT_THAT(run.output, Not(testing::HasSubstr(kHeading)));
}

// The login returns 0, for a refusal that ends with a key.
TEST_P(Mschapv2Login, KeyIsPrintedEightBytesALine) {
    struct Case {
        const char *key;
        const char *printed;
    };
    OneAuthServer far({});
    for (const Case &entry :
         {Case{"", "\n\n"}, Case{"0f", "\n0f\n"}, Case{"01020304050607", "\n01020304050607\n"},
          Case{"0102030405060708", "\n0102030405060708\n\n"},
          Case{"010203040506070809", "\n0102030405060708\n09\n"},
          Case{"0102030405060708090a0b0c0d0e0f", "\n0102030405060708\n090a0b0c0d0e0f\n"},
          Case{"00112233445566778899aabbccddeeff", "\n0011223344556677\n8899aabbccddeeff\n\n"}}) {
        SCOPED_TRACE(entry.key);
        far.server.then(rejectWith(keyPair(fromHex(entry.key))));
        EXPECT_THAT(login(), failed(0, kHeading + entry.printed));
    }
}

// A key of 239 bytes is the longest that fits: with its length byte, 15 blocks.
TEST_P(Mschapv2Login, LongestKeyIsPrintedWhole) {
    Bytes key(239);
    std::iota(key.begin(), key.end(), uint8_t{0});
    const OneAuthServer far({rejectWith(keyPair(key))});
    std::string printed = kHeading + "\n";
    for (size_t at = 0; at < key.size(); at += 8) {
        printed += toHex(ByteView(key).subspan(at, std::min<size_t>(8, key.size() - at))) + "\n";
    }
    EXPECT_THAT(login(), failed(0, printed));
}

// One encrypted block of 15 bytes after a length byte that claims another length.
TEST_P(Mschapv2Login, NoMoreIsPrintedThanTheSubAttributeHolds) {
    const Bytes bytes = "0102030405060708090a0b0c0d0e0f"_hex;
    OneAuthServer far({});
    for (const uint8_t length : Bytes{16, 17, 18, 64, 255}) {
        SCOPED_TRACE(int{length});
        far.server.then(rejectWith([&](Attributes &attributes, const ReceivedRequest &request) {
            constexpr size_t kSalt = 2;
            Bytes data = encryptMppeKey(bytes, kSecret, request.authenticator());
            EXPECT_EQ(kSalt + 16, data.size());
            // In the first block, what changes in a byte changes in the clear.
            data[kSalt] = static_cast<uint8_t>(data[kSalt] ^ bytes.size() ^ length);
            attributes.addVendor(kMicrosoft, kRecvKey, data);
        }));
        const Outcome run = login();
        EXPECT_EQ(0, run.result);
        // One block: a length byte, 15 bytes, and the two that decryption leaves.
        const std::string start = kHeading + "\n0102030405060708\n090a0b0c0d0e0f";
        EXPECT_EQ(start, run.output.substr(0, start.size()));
        const std::string rest = run.output.substr(start.size());
        EXPECT_EQ(length == 16 ? 4U : 6U, rest.size()) << rest;
    }
}

TEST_P(Mschapv2Login, EveryKeyIsPrintedAndTheLastPairDecides) {
    const AddPair sendKey = keyPair("ccdd"_hex, kSendKey);
    const AddPair error = [](Attributes &attributes, const auto &) {
        attributes.addVendor(kMicrosoft, 2, fromText("xE=691 R=1"));
    };
    const AddPair other = [](Attributes &attributes, const auto &) {
        attributes.addVendor(9, kRecvKey, "0102"_hex);
    };
    const AddPair message = [](Attributes &attributes, const auto &) {
        attributes.addText(18, "No");
    };
    struct Case {
        const char *name;
        std::vector<AddPair> pairs;
        int result;
        unsigned keys;
    };
    OneAuthServer far({});
    for (const Case &entry : {Case{"key", {kKey}, 0, 1},
                              {"message, key, message", {message, kKey, message}, 0, 1},
                              {"two keys", {kKey, message, kKey}, 0, 2},
                              {"error, key", {error, kKey}, 0, 1},
                              {"key, error", {kKey, error}, -1, 1},
                              {"key, send key", {kKey, sendKey}, -1, 1},
                              {"send key, key", {sendKey, kKey}, 0, 1},
                              {"send key", {sendKey}, -1, 0},
                              {"key, another vendor's", {kKey, other}, -1, 1},
                              {"another vendor's, key", {other, kKey}, 0, 1},
                              {"error", {error}, -1, 0},
                              {"message", {message}, -1, 0}}) {
        SCOPED_TRACE(entry.name);
        far.server.then(answerWith(3, entry.pairs));
        std::string printed;
        for (unsigned keys = 0; keys < entry.keys; ++keys) {
            printed += kPrintedKey;
        }
        EXPECT_THAT(login(), failed(entry.result, printed));
    }
}

TEST_P(Mschapv2Login, ZeroForARefusalWithAKey_IsToldFromAnAcceptByTheCode) {
    for (const uint8_t code : Bytes{2, 3, 11}) {
        const OneAuthServer far({answerWith(code, {kKey})});
        const Outcome run = login();
        EXPECT_EQ(0, run.result);
        if (code != 2) {
            EXPECT_THAT(run, failed(0, kPrintedKey));
        }
        ASSERT_NE(nullptr, radLastError());
        EXPECT_EQ(code, radLastError()->code);
    }
}

TEST_P(Mschapv2Login, LimitsBesideAKeyAreNotTaken) {
    const OneAuthServer far({answerWith(3, {[](Attributes &attributes, const auto &) {
                                                attributes.addInteger(28, 600).addInteger(27, 7201);
                                            },
                                            kKey})});
    Limits limits;
    EXPECT_EQ(0, logIn(GetParam(), "nemo", kPassword, &limits).result);
    EXPECT_EQ(Limits(), limits);
}

TEST_P(Mschapv2Login, KeyThatIsForgedOrCannotBeDecryptedIsNotPrinted) {
    const OneAuthServer far(
        {rejectWith(keyPair(Bytes(16, 0xab))).withWrongAuthenticator(),
         reject(Attributes().addVendor(kMicrosoft, kRecvKey, "8001000102"_hex))});
    for (size_t calls = 1; calls <= 2; ++calls) {
        EXPECT_THAT(login(), failed());
        EXPECT_EQ(calls, far.server.requestCount());
    }
}

// With a hook in place of the decryption, the value comes as it was sent.
TEST_P(Mschapv2Login, ValueThatAHookHasTakenIsPrintedWithinItsBounds) {
    const RadFuncTbl hooks = {.radPackHook = nullptr,
                              .radUnpackHook = [](RadPair *, RadPair *, RadPacket *, RadPacket *,
                                                  const char *) { return 0; }};
    OneAuthServer far({});
    ASSERT_EQ(0, radFuncTblInstall(&hooks));
    const auto loginFor = [&far](ByteView data) {
        far.server.then(reject(Attributes().addVendor(kMicrosoft, kRecvKey, data)));
        return login();
    };
    struct Case {
        const char *data;
        const char *printed;
    };
    for (const Case &entry :
         {Case{"", "\n\n"}, Case{"00", "\n\n"}, Case{"05", "\n\n"}, Case{"00aa", "\n\n"},
          Case{"01aa", "\naa\n"}, Case{"ffaabb", "\naabb\n"}, Case{"01aabb", "\naa\n"}}) {
        SCOPED_TRACE(entry.data);
        EXPECT_THAT(loginFor(fromHex(entry.data)), failed(0, kHeading + entry.printed));
    }
    Bytes longest(247, 0xcd);
    longest[0] = 0xff;
    const Outcome run = loginFor(longest);
    EXPECT_EQ(246, std::count(run.output.begin(), run.output.end(), 'd'));
}

TEST_P(Mschapv2Login, EveryAllocationMayFailOnTheWayToAKey) {
    OneAuthServer far({});
    far.server.otherwise(rejectWith(kKey));
    std::vector<Outcome> failures;
    forEachFailingAllocation([&failures] {
        const Outcome run = login();
        if (allocationFailed()) {
            failures.push_back(run);
        } else {
            EXPECT_THAT(run, failed(0, kPrintedKey));
        }
    });
    // The last two are the copy of the key, and its text.
    ASSERT_GE(failures.size(), 4U);
    for (size_t i = 0; i < failures.size() - 1; ++i) {
        EXPECT_EQ(-1, failures[i].result);
        EXPECT_EQ("", failures[i].output);
    }
    EXPECT_THAT(failures.back(), failed(0, kHeading));
}

}  // namespace
}  // namespace lanyard::test::mschapv2_test
