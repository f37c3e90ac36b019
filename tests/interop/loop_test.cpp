// All methods at once over one loop, against the real server.
#include <array>
#include <cstring>
#include <gmock/gmock.h>
#include <string>
#include <vector>

#include <lanyard/radius/engine.h>
#include <lanyard/radius/frame.h>
#include <lanyard/radius/loop.h>
#include <lanyard/radius/methods.h>
#include <lanyard/radius/status.h>

#include "tests/interop/fixture.h"

namespace lanyard::test::loop_test {
namespace {

constexpr std::array<uint8_t, RAD_CHAP_CHALLENGE_SIZE> kChallenge = {3, 1, 4, 1, 5, 9, 2, 6,
                                                                     5, 3, 5, 8, 9, 7, 9, 3};

struct Told {
    int times = 0;
    RadLogin login{};

    static void note(void *context, RadRequest * /*request*/, const RadLogin *login) {
        Told &told = *static_cast<Told *>(context);
        ++told.times;
        told.login = *login;
    }
};

RadRequest *startChap(RadLoop *loop, const char *userName, const char *password, RadLoginDone done,
                      void *context) {
    std::array<uint8_t, RAD_CHAP_RESPONSE_SIZE> response{};
    EXPECT_EQ(RAD_CHAP_RESPONSE_SIZE,
              radChapRespMake(response.data(), reinterpret_cast<const uint8_t *>(password),
                              static_cast<int>(std::strlen(password)), kChallenge.data()));
    return radChapAuthStart(loop, userName, response.data(), static_cast<int>(response.size()),
                            kChallenge.data(), static_cast<int>(kChallenge.size()), done, context);
}

constexpr std::array kStarts = {radAuthStart, startChap, radMschapStart, radMschapv2Start};

class LoopInterop : public Interop {
  protected:
    void SetUp() override {
        Interop::SetUp();
        radOptionSet(RAD_OPTION_STANDARD_SHA1, 1);
    }
    void TearDown() override {
        radOptionSet(RAD_OPTION_STANDARD_SHA1, 0);
        radOptionSet(RAD_OPTION_REQUIRE_MESSAGE_AUTHENTICATOR, 0);
        Interop::TearDown();
    }

    // Every method with the right password and with a wrong one, all in flight at once.
    static void expectVerdicts() {
        RadLoop *loop = radLoopCreate();
        std::array<Told, kStarts.size()> right;
        std::array<Told, kStarts.size()> wrong;
        for (size_t i = 0; i < kStarts.size(); ++i) {
            ASSERT_NE(nullptr, kStarts[i](loop, "alice", "wonderland", Told::note, &right[i]));
            ASSERT_NE(nullptr, kStarts[i](loop, "alice", "wonderlanD", Told::note, &wrong[i]));
        }
        const Written written = capture([&] {
            while (radLoopRun(loop, -1) > 0) {
            }
        });
        radLoopDestroy(loop);
        EXPECT_EQ("", written.out);
        EXPECT_EQ("", written.err);
        for (size_t i = 0; i < kStarts.size(); ++i) {
            EXPECT_EQ(1, right[i].times) << i;
            EXPECT_EQ(0, right[i].login.result) << i;
            EXPECT_EQ(RAD_CODE_ACCESS_ACCEPT + 0, right[i].login.code) << i;
            EXPECT_EQ(10U, right[i].login.idleMinutes) << i;
            EXPECT_EQ(121U, right[i].login.sessionMinutes) << i;
            EXPECT_EQ(1, wrong[i].times) << i;
            EXPECT_EQ(-1, wrong[i].login.result) << i;
            EXPECT_EQ(RAD_CODE_ACCESS_REJECT + 0, wrong[i].login.code) << i;
        }
    }
};

TEST_F(LoopInterop, AllMethodsAtOnce_RightAndWrongPasswords) {
    configure("authserver 127.0.0.1:" + std::to_string(server().authPort()) +
              ":10:2:" + server().secret() + "\n");
    expectVerdicts();
}

TEST_F(LoopInterop, AllMethodsAtOnce_WithSignedReplies) {
    configure("authserver 127.0.0.1:" + std::to_string(server().signedPort()) +
              ":10:2:" + server().secret() + "\n");
    radOptionSet(RAD_OPTION_REQUIRE_MESSAGE_AUTHENTICATOR, 1);
    expectVerdicts();
}

}  // namespace
}  // namespace lanyard::test::loop_test
