// Logins on a loop: what each method sends, and what its callback is told.
#include <array>
#include <openssl/sha.h>
#include <string>
#include <utility>
#include <vector>

#include <lanyard/radius/attr.h>
#include <lanyard/radius/engine.h>
#include <lanyard/radius/error.h>
#include <lanyard/radius/loop.h>
#include <lanyard/radius/methods.h>

#include "tests/support/test.h"
#include "tests/unit/login/methods.h"
#include "tests/unit/login/outcome.h"

namespace lanyard::test::login_start_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::array<uint8_t, RAD_CHAP_CHALLENGE_SIZE> kChallenge = {9, 8, 7, 6, 5, 4, 3, 2,
                                                                     1, 2, 3, 4, 5, 6, 7, 8};

// What a callback was told.
struct Told {
    int times = 0;
    RadLogin login{};
    std::vector<int> reply;
    int32_t code = 0;  // radLastError() in the callback

    static void note(void *context, RadRequest * /*request*/, const RadLogin *login) {
        Told &told = *static_cast<Told *>(context);
        ++told.times;
        told.login = *login;
        for (const RadPair *pair = login->reply; pair != nullptr; pair = pair->next) {
            told.reply.push_back(pair->attrNum);
        }
        told.code = radLastError() != nullptr ? radLastError()->code : 0;
    }
};

RadRequest *startChap(RadLoop *loop, const char *userName, const char *password, RadLoginDone done,
                      void *context) {
    std::array<uint8_t, RAD_CHAP_RESPONSE_SIZE> response{};
    if (password != nullptr) {
        radChapRespMake(response.data(), reinterpret_cast<const uint8_t *>(password),
                        static_cast<int>(std::string(password).size()), kChallenge.data());
    }
    return radChapAuthStart(loop, userName, password != nullptr ? response.data() : nullptr,
                            static_cast<int>(response.size()), kChallenge.data(),
                            static_cast<int>(kChallenge.size()), done, context);
}

struct Method {
    const char *name;
    RadRequest *(*start)(RadLoop *loop, const char *userName, const char *password,
                         RadLoginDone done, void *context);
    std::vector<int> types;
    const char *refusal;
};

std::vector<Method> startMethods() {
    return {
        {"radAuthStart", radAuthStart, {1, 2, 6, 4, 80}, "Invalid username or password"},
        {"radChapAuthStart",
         startChap,
         {1, 6, 3, 60, 4, 80},
         "Invalid username, challenge or response"},
        {"radMschapStart", radMschapStart, {1, 26, 26, 6, 4, 80}, "Invalid username or password"},
        {"radMschapv2Start",
         radMschapv2Start,
         {1, 26, 26, 6, 4, 80},
         "Invalid username or password"}};
}

class LoginStart : public testing::TestWithParam<Method> {
  protected:
    void TearDown() override { radLoopDestroy(loop_); }

    RadRequest *start(Told &told, const char *userName = "nemo", const char *password = kPassword) {
        loop_ = loop_ != nullptr ? loop_ : radLoopCreate();
        return GetParam().start(loop_, userName, password, Told::note, &told);
    }
    // The loop ends before the library.
    void endLoop() { radLoopDestroy(std::exchange(loop_, nullptr)); }

    RadLoop *loop_ = nullptr;
};

INSTANTIATE_TEST_SUITE_P(Methods, LoginStart, testing::ValuesIn(startMethods()),
                         [](const auto &row) { return std::string(row.param.name); });

TEST_P(LoginStart, Accept_TellsTheLimitsAndPrintsNothing) {
    const OneAuthServer far(
        {accept(Attributes().addInteger(28, 601).addInteger(27, 60).addText(18, "hello"))});
    const LogRecorder log;
    Told told;
    StdoutCapture output;
    ASSERT_NE(nullptr, start(told));
    EXPECT_EQ(0, told.times);
    EXPECT_EQ(1, radLoopRun(loop_, -1));
    EXPECT_EQ("", output.text());
    EXPECT_EQ(1, told.times);
    EXPECT_EQ(0, told.login.result);
    EXPECT_EQ(2, told.login.code);
    EXPECT_EQ(11U, told.login.idleMinutes);
    EXPECT_EQ(1U, told.login.sessionMinutes);
    EXPECT_THAT(told.reply, ElementsAre(28, 27, 18));
    EXPECT_EQ(2, told.code);
    EXPECT_PROBLEMS(log);
    EXPECT_EQ(GetParam().types, attributeTypes(far.server.request(0)));
    endLoop();
}

TEST_P(LoginStart, Reject_TellsItsPairsAndNoLimits) {
    const OneAuthServer far({reject(Attributes().addText(18, "no"))});
    const LogRecorder log;
    Told told;
    start(told);
    EXPECT_EQ(1, radLoopRun(loop_, -1));
    EXPECT_EQ(-1, told.login.result);
    EXPECT_EQ(3, told.login.code);
    EXPECT_EQ(0U, told.login.idleMinutes);
    EXPECT_EQ(0U, told.login.sessionMinutes);
    EXPECT_THAT(told.reply, ElementsAre(18));
    EXPECT_PROBLEMS(log);
    endLoop();
}

TEST_P(LoginStart, RefusalWithAKey_IsARefusal) {
    const OneAuthServer far({answer(3, [](const ReceivedRequest &request) {
        return Attributes().addVendor(
            kMicrosoft, 17, encryptMppeKey(Bytes(16, 7), kSecret, request.authenticator()));
    })});
    Told told;
    start(told);
    EXPECT_EQ(1, radLoopRun(loop_, -1));
    EXPECT_EQ(-1, told.login.result);
    endLoop();
}

TEST_P(LoginStart, NoServer_TellsMinusOne) {
    const ConfiguredLibrary library;
    Told told;
    ASSERT_NE(nullptr, start(told));
    EXPECT_EQ(1, radLoopRun(loop_, -1));
    EXPECT_EQ(-1, told.login.result);
    EXPECT_EQ(-1, told.login.code);
    EXPECT_EQ(nullptr, told.login.reply);
    endLoop();
}

TEST_P(LoginStart, InputsThatAreRefused_StartNothing) {
    const SilentPort server;
    const ConfiguredLibrary library({.authServers = {serverEntry(server)}});
    Told told;
    const std::string refusal = std::string("error ") + GetParam().name + "> " + GetParam().refusal;
    const std::string tooLong(65, 'n');
    {
        const LogRecorder log;
        EXPECT_EQ(nullptr, start(told, nullptr));
        EXPECT_EQ(nullptr, start(told, tooLong.c_str()));
        EXPECT_EQ(nullptr, start(told, "nemo", nullptr));
        EXPECT_PROBLEMS(log, refusal, refusal, refusal);
    }
    EXPECT_EQ(nullptr, GetParam().start(nullptr, "nemo", kPassword, Told::note, &told));
    EXPECT_EQ(nullptr, GetParam().start(loop_, "nemo", kPassword, nullptr, &told));
    EXPECT_EQ(0, radLoopRun(loop_, -1));
    EXPECT_THAT(server.received(), IsEmpty());
    endLoop();
}

TEST_P(LoginStart, CancelledOrDestroyed_LeavesNothing) {
    const SilentPort server;
    const ConfiguredLibrary library({.authServers = {serverEntry(server, 9)}});
    Told told;
    radRequestCancel(start(told));
    start(told);
    endLoop();
    EXPECT_EQ(0, told.times);
}

TEST_P(LoginStart, EveryAllocationFailing_LeavesNothing) {
    ScriptedServer server(kSecret);
    server.otherwise(accept(Attributes().addText(18, "hello")));
    const ConfiguredLibrary library({.authServers = {serverEntry(server, 1)}});
    size_t accepted = 0;
    forEachFailingAllocation([&] {
        Told told;
        if (start(told) != nullptr) {
            radLoopRun(loop_, -1);
            EXPECT_EQ(1, told.times);
            accepted += told.login.result == 0 ? 1 : 0;
        } else {
            EXPECT_TRUE(allocationFailed());
        }
        endLoop();
    });
    EXPECT_LT(0U, accepted);
}

TEST(LoginStarts, Pap_SendsThePasswordHidden) {
    const OneAuthServer far({accept()});
    Told told;
    RadLoop *loop = radLoopCreate();
    radAuthStart(loop, "nemo", kPassword, Told::note, &told);
    radLoopRun(loop, -1);
    expectLogin(pap(), far.server.request(0), "nemo", kPassword);
    EXPECT_EQ(nullptr, radAuthStart(loop, "nemo", std::string(49, 'x').c_str(), Told::note, &told));
    radLoopDestroy(loop);
}

TEST(LoginStarts, Chap_SendsResponseAndChallenge) {
    const OneAuthServer far({accept()});
    Told told;
    RadLoop *loop = radLoopCreate();
    startChap(loop, "nemo", kPassword, Told::note, &told);
    radLoopRun(loop, -1);
    EXPECT_BYTES_EQ(kChallenge, attributeValue(far.server.request(0), 60));
    const Bytes response = attributeValue(far.server.request(0), 3);
    ASSERT_EQ(17U, response.size());
    EXPECT_BYTES_EQ(md5({ByteView(response).first(1), fromText(kPassword), kChallenge}),
                    ByteView(response).subspan(1));
    radLoopDestroy(loop);
}

// The last 24 bytes of a response.
Bytes ntResponseOf(const ReceivedRequest &request, uint8_t type) {
    const Bytes response = vendorValue(request, kMicrosoft, type);
    EXPECT_EQ(50U, response.size());
    return {response.end() - 24, response.end()};
}

Bytes computed(const Bytes &challenge) {
    radOptionSet(RAD_OPTION_BUILTIN_NT_RESPONSE, 1);
    Bytes response(24);
    EXPECT_EQ(0, radMschapNtResponse(kPassword, response.data(), challenge.data(), "nemo"));
    radOptionSet(RAD_OPTION_BUILTIN_NT_RESPONSE, 0);
    return response;
}

TEST(LoginStarts, Mschap_ComputesTheResponseWhateverTheOptionSays) {
    ScriptedServer server(kSecret, {accept(), accept()});
    const ConfiguredLibrary library({.authServers = {serverEntry(server, kPatience)}});
    Told told;
    RadLoop *loop = radLoopCreate();
    radMschapStart(loop, "nemo", kPassword, Told::note, &told);
    EXPECT_EQ(1, radLoopRun(loop, -1));
    EXPECT_BYTES_EQ(computed(Bytes(8, 1)), ntResponseOf(server.request(0), 1));
    EXPECT_EQ(0, radOptionGet(RAD_OPTION_BUILTIN_NT_RESPONSE));
    radOptionSet(RAD_OPTION_STANDARD_SHA1, 1);
    radMschapv2Start(loop, "nemo", kPassword, Told::note, &told);
    EXPECT_EQ(1, radLoopRun(loop, -1));
    radOptionSet(RAD_OPTION_STANDARD_SHA1, 0);
    const Bytes response = vendorValue(server.request(1), kMicrosoft, 25);
    Bytes hashed(response.begin() + 2, response.begin() + 18);
    hashed.insert(hashed.end(), 16, 1);
    for (const char character : {'n', 'e', 'm', 'o'}) {
        hashed.push_back(static_cast<uint8_t>(character));
    }
    Bytes challenge(SHA_DIGEST_LENGTH);
    SHA1(hashed.data(), hashed.size(), challenge.data());
    EXPECT_BYTES_EQ(computed(challenge), ntResponseOf(server.request(1), 25));
    radLoopDestroy(loop);
}

}  // namespace
}  // namespace lanyard::test::login_start_test
