// Ends of requests and loops at unusual moments: cancelled, destroyed, from within callbacks.
#include <array>
#include <optional>
#include <vector>

#include <lanyard/radius/conf.h>
#include <lanyard/radius/loop.h>

#include "tests/support/test.h"
#include "tests/unit/client/loop_fixture.h"

namespace lanyard::test::loop_cancel_test {
namespace {

struct World {
    const PlayedServer server;
    const ConfiguredLibrary library{{.authServers = {server.entry()}}};
    Loop loop;
};

class LoopEndings : public LoopTest {
  protected:
    void SetUp() override {
        LoopTest::SetUp();
        world_.emplace();
    }
    void TearDown() override {
        world_.reset();
        LoopTest::TearDown();
    }

    const PlayedServer &server() const { return world_->server; }
    Loop &loop() { return world_->loop; }

    // Starts one request for each of the answers, and answers all of them, the first one first.
    template <size_t count>
    void startAndAnswer(std::array<Answer, count> &answers) {
        for (Answer &answer : answers) {
            requests_.push_back(loop().start(answer));
        }
        for (size_t i = 0; i < count; ++i) {
            server().reply(server().take(), 2);
        }
    }

    std::vector<RadRequest *> requests_;

  private:
    std::optional<World> world_;
};

TEST_F(LoopEndings, CancelBeforeTheFirstRun_NoCallback) {
    Answer answer;
    radRequestCancel(loop().start(answer));
    EXPECT_EQ(0, loop().run(-1));
    EXPECT_EQ(0, answer.times);
}

TEST_F(LoopEndings, CancelOfARequestThatFailedAtOnce_NoCallback) {
    radConfDelAuthServ();
    Answer answer;
    radRequestCancel(loop().start(answer));
    EXPECT_EQ(0, loop().run(-1));
    EXPECT_EQ(0, answer.times);
}

TEST_F(LoopEndings, CancelWithinItsOwnCallback_IsIgnored) {
    std::array<Answer, 1> answers;
    answers[0].meanwhile = [](Answer &own) { radRequestCancel(own.request); };
    startAndAnswer(answers);
    EXPECT_EQ(1, loop().run());
    EXPECT_EQ(1, answers[0].times);
    EXPECT_EQ(0, loop().run());
}

TEST_F(LoopEndings, CancelOfAnotherInACallback_InFlightOrEndedButNotTold) {
    std::array<Answer, 3> answers;
    Answer waiting;
    RadRequest *inFlight = nullptr;
    answers[0].meanwhile = [&](Answer & /*own*/) {
        radRequestCancel(requests_[1]);
        radRequestCancel(inFlight);
    };
    startAndAnswer(answers);
    inFlight = loop().start(waiting);
    EXPECT_EQ(2, loop().run());
    EXPECT_EQ(1, answers[0].times);
    EXPECT_EQ(0, answers[1].times);
    EXPECT_EQ(1, answers[2].times);
    server().reply(server().take(), 2);
    EXPECT_EQ(0, loop().run());
    EXPECT_EQ(0, waiting.times);
    EXPECT_EQ(0U, statusOf(server()).pending);
}

TEST_F(LoopEndings, Destroy_EndsWhatIsInFlightWithoutCallbacks) {
    std::array<Answer, 3> answers;
    for (Answer &answer : answers) {
        loop().start(answer);
    }
    Answer failed;
    loop().start(failed, 99);
    EXPECT_EQ(3U, statusOf(server()).pending);
    loop().destroy();
    EXPECT_EQ(0, answers[0].times + answers[1].times + answers[2].times + failed.times);
    EXPECT_EQ(0U, statusOf(server()).pending);
}

TEST_F(LoopEndings, DestroyWithinACallback_EndsTheLoopWithIt) {
    std::array<Answer, 3> answers;
    Answer late;
    answers[0].meanwhile = [&](Answer & /*own*/) {
        RadLoop *doomed = loop().get();
        loop().destroy();
        radRequestStart(doomed, kAccess, nemo().get(), Answer::note, &late);
    };
    startAndAnswer(answers);
    EXPECT_EQ(1, loop().run());
    EXPECT_EQ(1, answers[0].times);
    EXPECT_EQ(0, answers[1].times + answers[2].times + late.times);
}

TEST_F(LoopEndings, DestroyAndCancelWithinOneCallback) {
    std::array<Answer, 2> answers;
    answers[0].meanwhile = [&](Answer & /*own*/) {
        radLoopDestroy(loop().get());
        loop().destroy();
        radRequestCancel(requests_[1]);
    };
    startAndAnswer(answers);
    EXPECT_EQ(1, loop().run());
    EXPECT_EQ(0, answers[1].times);
}

TEST_F(LoopEndings, DestroyOfAnotherLoopWithinACallback) {
    Loop other;
    Answer others;
    other.start(others);
    server().take();
    std::array<Answer, 1> answers;
    answers[0].meanwhile = [&](Answer & /*own*/) { other.destroy(); };
    startAndAnswer(answers);
    EXPECT_EQ(1, loop().run());
    EXPECT_EQ(0, others.times);
}

TEST_F(LoopEndings, RunWithinACallback_IsRefused) {
    std::array<Answer, 1> answers;
    int nested = 0;
    answers[0].meanwhile = [&](Answer & /*own*/) { nested = loop().run(-1); };
    startAndAnswer(answers);
    EXPECT_EQ(1, loop().run());
    EXPECT_EQ(-1, nested);
}

TEST_F(LoopEndings, RunOfAnotherLoopWithinACallback_Runs) {
    const Loop other;
    Answer others;
    other.start(others);
    server().reply(server().take(), 3);
    std::array<Answer, 1> answers;
    int nested = 0;
    answers[0].meanwhile = [&](Answer & /*own*/) { nested = other.run(-1); };
    startAndAnswer(answers);
    EXPECT_EQ(1, loop().run());
    EXPECT_EQ(1, nested);
    EXPECT_EQ(3, others.code);
}

TEST_F(LoopEndings, CallbackThatStartsAnother_HasItAnsweredInALaterRun) {
    std::array<Answer, 1> answers;
    Answer second;
    answers[0].meanwhile = [&](Answer & /*own*/) { loop().start(second); };
    startAndAnswer(answers);
    EXPECT_EQ(1, loop().run());
    EXPECT_EQ(0, second.times);
    server().reply(server().take(), 3);
    EXPECT_EQ(1, loop().run());
    EXPECT_EQ(3, second.code);
}

TEST_F(LoopEndings, CallbackThatRestartsWhatFailsAtOnce_LetsTheRunReturn) {
    radConfDelAuthServ();
    Answer answer;
    answer.meanwhile = [&](Answer &own) { loop().start(own); };
    loop().start(answer);
    for (int runs = 1; runs <= 3; ++runs) {
        EXPECT_EQ(1, loop().run(-1));
        EXPECT_EQ(runs, answer.times);
        EXPECT_TRUE(loop().isReadable()) << "the next one has ended already";
    }
    answer.meanwhile = {};
    EXPECT_EQ(1, loop().run(0));
    EXPECT_FALSE(loop().isReadable());
}

TEST_F(LoopEndings, ServerThatIsDeletedMeanwhile_IsAskedToTheEnd) {
    Answer answer;
    radConfDelAuthServ();
    const PlayedServer other;
    const ServerEntry entry = server().entry(kPlenty, 1);
    ASSERT_EQ(0, radConfAddAuthServ(entry.host.c_str(), entry.port, entry.timeout, entry.retries,
                                    entry.secret.c_str(), nullptr));
    loop().start(answer);
    radConfDelAuthServ();
    ASSERT_EQ(0,
              radConfAddAuthServ(other.host().c_str(), other.port(), kPlenty, 0, kSecret, nullptr));
    server().take();
    clock_.advance(3);
    EXPECT_EQ(0, loop().run());
    server().reply(server().take(), 3);
    EXPECT_EQ(1, loop().run());
    EXPECT_EQ(3, answer.code);
    expectAccepted(loop(), other);
}

}  // namespace
}  // namespace lanyard::test::loop_cancel_test
