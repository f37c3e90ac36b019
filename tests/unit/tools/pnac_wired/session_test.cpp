// What becomes of a supplicant that has logged in.
#include "tests/unit/tools/pnac_wired/world.h"

namespace lanyard::test::session_test {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::SizeIs;

const auto kAuthorized = [](const char *identity) {
    return Event(EventKind::kAuthorized, Reason::kAccepted, identity);
};

TEST(Session, LastsUntilTheSupplicantLogsOff) {
    World world;
    Supplicant alice(world, 1);
    alice.logIn("alice");
    world.pass(48h);
    EXPECT_THAT(world.events(), ElementsAre(kAuthorized("alice")));
    alice.logoff();
    ASSERT_THAT(world.events(), ElementsAre(kAuthorized("alice"), Event(EventKind::kUnauthorized,
                                                                        Reason::kLogoff, "alice")));
    EXPECT_EQ(48h, world.events()[1].duration);
    world.pass(12s);
    EXPECT_EQ(0U, world.authenticator().supplicants());
    alice.logoff();
    EXPECT_THAT(world.events(), SizeIs(2));
}

TEST(Session, EndedByALogoffInAnothersName_OpensAgainAtOnce) {
    World world;
    Supplicant alice(world, 1);
    alice.logIn("alice");
    const size_t frames = alice.received().size();
    alice.logoff();
    ASSERT_THAT(alice.received(), SizeIs(frames + 1)) << "she is asked who she is";
    alice.logoff();
    EXPECT_THAT(alice.received(), SizeIs(frames + 1)) << "and once is enough";
    alice.identify("alice");
    world.relaySends(alice.cookie(), eapSuccess(1));
    EXPECT_THAT(world.events().back(), kAuthorized("alice"));
}

TEST(Session, EndedByALogoff_MakesRoomForANewcomer) {
    World world({.supplicantsMax = 1});
    Supplicant alice(world, 1);
    alice.logIn("alice");
    alice.logoff();
    Supplicant(world, 2).logIn("bob");
    EXPECT_THAT(world.events().back(), kAuthorized("bob"));
}

TEST(Session, TakesNoResponseWithoutARequest) {
    World world;
    Supplicant alice(world, 1);
    alice.logIn("alice");
    world.pass(20s);
    const size_t before = world.records().size();
    alice.answer(4, "10"_hex);
    alice.identify("mallory");
    EXPECT_EQ(before, world.records().size());
    EXPECT_EQ(2U, world.counters().eapUnexpected);
}

TEST(Session, EndsWithItsTime) {
    World world;
    Supplicant alice(world, 1);
    alice.logIn("alice", keyBlock({sessionElement(5, 60)}));
    ASSERT_TRUE(world.events()[0].session);
    EXPECT_EQ(60U, world.events()[0].session->seconds);
    world.pass(59999ms);
    EXPECT_THAT(world.events(), SizeIs(1));
    world.pass(1ms);
    EXPECT_THAT(world.events(),
                ElementsAre(kAuthorized("alice"),
                            Event(EventKind::kUnauthorized, Reason::kSessionTimeout, "alice")));
    EXPECT_BYTES_EQ(eapRequest(alice.identifier(), 1), alice.received().back())
        << "the supplicant may log in anew";
    world.pass(12s);
    EXPECT_THAT(world.events(), SizeIs(2));
    EXPECT_EQ(0U, world.authenticator().supplicants());
    EXPECT_FALSE(world.authenticator().nextDeadline());
}

TEST(Session, ThatHasEndedIsFollowedByANewOne) {
    World world;
    Supplicant alice(world, 1);
    alice.logIn("alice", keyBlock({sessionElement(5, 60)}));
    world.pass(1min);
    alice.identify("alice");
    world.relaySends(alice.cookie(), eapSuccess(1));
    world.pass(5s);
    alice.logoff();
    ASSERT_THAT(world.events(), SizeIs(4));
    EXPECT_THAT(world.events()[2], kAuthorized("alice"));
    EXPECT_FALSE(world.events()[2].reauthentication);
    EXPECT_EQ(5s, world.events()[3].duration);
}

TEST(Session, WithAnEndLessThanASecondAwayLastsASecond) {
    for (const uint8_t type : Bytes{2, 5}) {
        World world;
        Supplicant alice(world, 1);
        alice.logIn("alice", keyBlock({sessionElement(type, 0)}));
        const size_t before = alice.received().size();
        world.pass(999ms);
        EXPECT_EQ(before, alice.received().size());
        world.pass(1ms);
        EXPECT_EQ(before + 1, alice.received().size());
    }
}

TEST(Session, MayLastForGenerations) {
    World world;
    Supplicant alice(world, 1);
    alice.logIn("alice", keyBlock({sessionElement(5, 0xffffffff)}));
    world.pass(24h * 365 * 100);
    EXPECT_THAT(world.events(), SizeIs(1));
}

TEST(Session, TakesTheTimeOfAChallengeForNone) {
    World world;
    Supplicant alice(world, 1);
    alice.logIn("alice", keyBlock({sessionElement(3, 10)}));
    world.pass(1h);
    EXPECT_THAT(world.events(), SizeIs(1));
}

TEST(Session, GoesOnWhenTheSupplicantIsAuthenticatedAgain) {
    World world;
    Supplicant alice(world, 1);
    alice.logIn("alice", keyBlock({sessionElement(2, 60)}));
    const uint32_t firstCookie = alice.cookie();
    const uint8_t lastIdentifier = alice.identifier();
    world.pass(60s);
    ASSERT_EQ(1, alice.received().back()[0]);
    EXPECT_EQ(1, alice.received().back()[4]) << "the identity is asked for";
    EXPECT_NE(lastIdentifier, alice.identifier());
    EXPECT_THAT(world.events(), SizeIs(1)) << "the session goes on";

    alice.identify("alice");
    EXPECT_NE(firstCookie, alice.cookie());
    world.pass(50ms);
    world.relaySends(alice.cookie(),
                     concatenate({eapSuccess(1), keyBlock({sessionElement(2, 30)})}));
    ASSERT_THAT(world.events(), ElementsAre(kAuthorized("alice"), kAuthorized("alice")));
    EXPECT_TRUE(world.events()[1].reauthentication);
    EXPECT_EQ(50ms, world.events()[1].duration);

    world.pass(29s);
    alice.logoff();
    EXPECT_EQ(1min + 50ms + 29s, world.events()[2].duration) << "of the whole session";
}

TEST(Session, EndsWhenTheSupplicantDoesNotAnswerAgain) {
    World world;
    Supplicant alice(world, 1);
    alice.logIn("alice", keyBlock({sessionElement(2, 60)}));
    world.pass(60s + 12s - 1ms);
    EXPECT_THAT(world.events(), SizeIs(1));
    world.pass(1ms);
    EXPECT_THAT(world.events(),
                ElementsAre(kAuthorized("alice"),
                            Event(EventKind::kUnauthorized, Reason::kNotReauthenticated, "alice")));
    EXPECT_EQ(0U, world.authenticator().supplicants());
}

TEST(Session, EndsWhenTheSupplicantIsRejected) {
    World world(kNeverQuiet);
    Supplicant alice(world, 1);
    alice.logIn("alice", keyBlock({sessionElement(2, 60)}));
    world.pass(60s);
    alice.identify("mallory");
    world.relaySends(alice.cookie(), eapFailure(alice.identifier()));
    EXPECT_THAT(
        world.events(),
        ElementsAre(kAuthorized("alice"), Event(EventKind::kFailed, Reason::kRejected, "mallory"),
                    Event(EventKind::kUnauthorized, Reason::kNotReauthenticated, "alice")));
    EXPECT_TRUE(world.events()[1].reauthentication);
    EXPECT_EQ(0U, world.authenticator().supplicants());
}

TEST(Session, GoesOnWhenTheRelayIsSilent) {
    World world;
    Supplicant alice(world, 1);
    alice.logIn("alice", keyBlock({sessionElement(2, 60)}));
    world.pass(60s);
    alice.identify("alice");
    const size_t before = alice.received().size();
    world.pass(30s);
    EXPECT_THAT(world.events(),
                ElementsAre(kAuthorized("alice"),
                            Event(EventKind::kFailed, Reason::kRelaySilent, "alice")));
    EXPECT_TRUE(world.events()[1].reauthentication);
    EXPECT_EQ(before, alice.received().size()) << "no Failure, which would close its own port";
    EXPECT_EQ(1U, world.authenticator().supplicants());

    world.pass(60s - 1ms);
    EXPECT_EQ(before, alice.received().size());
    world.pass(1ms);
    ASSERT_EQ(before + 1, alice.received().size()) << "it is asked again";
    alice.identify("alice");
    world.relaySends(alice.cookie(), eapSuccess(1));
    EXPECT_THAT(world.events().back(), kAuthorized("alice"));
    EXPECT_TRUE(world.events().back().reauthentication);
    EXPECT_FALSE(world.authenticator().nextDeadline()) << "and then no more";
}

TEST(Session, GoesOnUntilTheServerHasDecided) {
    for (const auto &[why, reason] : {std::pair{pnac::FailureReason::kNoServer, Reason::kNoServer},
                                      {pnac::FailureReason::kNotSent, Reason::kNotSent},
                                      {pnac::FailureReason::kExpired, Reason::kExpired}}) {
        World world({.askAgain = 10s});
        Supplicant alice(world, 1);
        alice.logIn("alice", keyBlock({sessionElement(2, 60)}));
        world.pass(60s);
        for (int round = 0; round < 3; ++round) {
            alice.identify("alice");
            const size_t before = world.events().size();
            world.relaySends(alice.cookie(), failureBecause(1, why));
            ASSERT_THAT(world.events(), SizeIs(before + 1));
            EXPECT_THAT(world.events().back(), Event(EventKind::kFailed, reason, "alice"));
            EXPECT_EQ(1, alice.received().back()[0]) << "no Failure";
            world.pass(10s);
        }
        alice.identify("alice");
        world.relaySends(alice.cookie(), failureBecause(1, pnac::FailureReason::kRejected));
        EXPECT_THAT(world.events().back(),
                    Event(EventKind::kUnauthorized, Reason::kNotReauthenticated, "alice"));
        EXPECT_EQ(4, alice.received().back()[0]);
    }
}

TEST(Session, EndsInItsTimeThoughNoServerAnswers) {
    World world;
    Supplicant alice(world, 1);
    alice.logIn("alice", keyBlock({sessionElement(5, 100)}));
    world.pass(30s);
    alice.knock("alice");
    world.relaySends(alice.cookie(), failureBecause(1, pnac::FailureReason::kNoServer));
    world.pass(60s);
    alice.identify("alice");
    world.relaySends(alice.cookie(), failureBecause(1, pnac::FailureReason::kNoServer));
    EXPECT_THAT(world.events(), SizeIs(3));
    world.pass(10s);
    EXPECT_THAT(world.events().back(),
                Event(EventKind::kUnauthorized, Reason::kSessionTimeout, "alice"));
}

TEST(Session, GoesOnWithoutARelay) {
    World world;
    Supplicant alice(world, 1);
    alice.logIn("alice");
    world.setRelayRunning(false);
    alice.knock("alice");
    world.pass(30s);
    EXPECT_THAT(world.events(),
                ElementsAre(kAuthorized("alice"),
                            Event(EventKind::kFailed, Reason::kRelayNotRunning, "alice")));
    EXPECT_EQ(1U, world.authenticator().supplicants());
    world.pass(60s + 12s);
    EXPECT_THAT(world.events().back(),
                Event(EventKind::kUnauthorized, Reason::kNotReauthenticated, "alice"))
        << "a supplicant that is silent ends it";
}

TEST(Session, GoesOnWhileTheSupplicantStartsAgain) {
    World world;
    Supplicant alice(world, 1);
    alice.logIn("alice");
    alice.logIn("bob");
    EXPECT_THAT(world.events(), ElementsAre(kAuthorized("alice"), kAuthorized("bob")));
    EXPECT_TRUE(world.events()[1].reauthentication);
    alice.logoff();
    EXPECT_EQ("bob", world.events()[2].identity);
}

TEST(Session, EndsInTheMiddleOfAnotherLogin) {
    World world;
    Supplicant alice(world, 1);
    alice.logIn("alice", keyBlock({sessionElement(5, 60)}));
    world.pass(59s);
    alice.knock("alice");
    world.pass(1s);
    EXPECT_EQ(Reason::kSessionTimeout, world.events().back().reason);
    EXPECT_NE(4, alice.received().back()[0]) << "the login goes on";
    world.relaySends(alice.cookie(), eapSuccess(1));
    EXPECT_THAT(world.events().back(), kAuthorized("alice"));
    EXPECT_FALSE(world.events().back().reauthentication);
}

TEST(Session, EndsWhenItsSupplicantGivesALongerNameThanThereCanBe) {
    World world;
    Supplicant alice(world, 1);
    alice.logIn("alice", keyBlock({sessionElement(2, 60)}));
    world.pass(60s);
    const std::string name(254, 'a');
    alice.identify(name);
    EXPECT_THAT(
        world.events(),
        ElementsAre(kAuthorized("alice"), Event(EventKind::kFailed, Reason::kIdentityTooLong, name),
                    Event(EventKind::kUnauthorized, Reason::kNotReauthenticated, "alice")));
}

TEST(Session, IsNotAskedTwiceToAuthenticateAgain) {
    World world;
    Supplicant alice(world, 1);
    alice.logIn("alice", keyBlock({sessionElement(2, 60)}));
    world.pass(59s);
    alice.knock("alice");
    const uint32_t cookie = alice.cookie();
    const size_t before = alice.received().size();
    world.pass(10s);
    EXPECT_EQ(before, alice.received().size());
    world.relaySends(cookie, eapSuccess(1));
    EXPECT_THAT(world.events().back(), kAuthorized("alice"));
}

TEST(Session, LosesItsEndWithASecondLoginThatHasNone) {
    World world;
    Supplicant alice(world, 1);
    alice.logIn("alice", keyBlock({sessionElement(5, 60)}));
    alice.logIn("alice");
    world.pass(1h);
    EXPECT_THAT(world.events(), SizeIs(2));
}

}  // namespace
}  // namespace lanyard::test::session_test
