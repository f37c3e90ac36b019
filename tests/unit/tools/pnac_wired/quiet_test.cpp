// Addresses that were rejected, and what is heard of them.
#include "tests/unit/tools/pnac_wired/world.h"

namespace lanyard::test::quiet_test {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::SizeIs;

void reject(World &world, Supplicant &supplicant) {
    supplicant.knock("mallory");
    world.relaySends(supplicant.cookie(), eapFailure(supplicant.identifier()));
}

bool isHeard(World &world, Supplicant &supplicant) {
    const size_t before = world.frames().size();
    supplicant.start();
    return world.frames().size() > before;
}

TEST(Quiet, LastsAMinuteAfterARejection) {
    World world;
    Supplicant mallory(world, 1);
    reject(world, mallory);
    const size_t frames = world.frames().size();
    mallory.start();
    mallory.identify("mallory");
    mallory.logoff();
    world.pass(60s - 1ms);
    mallory.start();
    EXPECT_EQ(frames, world.frames().size());
    EXPECT_THAT(world.records(), SizeIs(1));
    EXPECT_EQ(4U, world.counters().framesWhileQuiet);
    EXPECT_EQ(1U, world.authenticator().supplicants());

    world.pass(1ms);
    mallory.logIn("mallory");
    EXPECT_EQ(EventKind::kAuthorized, world.events().back().kind);
}

// A supplicant that has waited for as long would have started a moment too early.
TEST(Quiet, EndsWithTheQuestionWhoIsThere) {
    World world;
    Supplicant alice(world, 1);
    reject(world, alice);
    const size_t frames = alice.received().size();
    world.pass(60s - 1ms);
    EXPECT_FALSE(isHeard(world, alice));
    world.pass(1ms);
    ASSERT_THAT(alice.received(), SizeIs(frames + 1));
    alice.identify("alice");
    world.relaySends(alice.cookie(), eapSuccess(1));
    EXPECT_EQ(EventKind::kAuthorized, world.events().back().kind);
}

TEST(Quiet, AddressThatHasGone_IsForgottenAfterIt) {
    World world;
    Supplicant mallory(world, 1);
    reject(world, mallory);
    world.pass(60s + 12s);
    EXPECT_EQ(0U, world.authenticator().supplicants());
    EXPECT_FALSE(world.authenticator().nextDeadline());
}

TEST(Quiet, AskedAddress_MakesRoomForANewcomer) {
    World world({.supplicantsMax = 1});
    Supplicant mallory(world, 1);
    reject(world, mallory);
    world.pass(60s);
    Supplicant(world, 2).logIn("alice");
    EXPECT_EQ(EventKind::kAuthorized, world.events().back().kind);
}

TEST(Quiet, EndsWithoutALinkInSilence) {
    World world;
    Supplicant mallory(world, 1);
    reject(world, mallory);
    world.authenticator().linkDown(world.now());
    const size_t frames = world.frames().size();
    world.pass(60s);
    EXPECT_EQ(frames, world.frames().size());
    EXPECT_EQ(0U, world.authenticator().supplicants());
}

TEST(Quiet, IsNotMadeLongerByWhatIsIgnored) {
    World world;
    Supplicant mallory(world, 1);
    reject(world, mallory);
    for (int i = 0; i < 59; ++i) {
        world.pass(1s);
        EXPECT_FALSE(isHeard(world, mallory));
    }
    world.pass(1s);
    EXPECT_TRUE(isHeard(world, mallory));
}

TEST(Quiet, AddressHoldsUpNobodyElse) {
    World world;
    Supplicant mallory(world, 1);
    reject(world, mallory);
    Supplicant(world, 2).logIn("alice");
    EXPECT_EQ(EventKind::kAuthorized, world.events().back().kind);
}

TEST(Quiet, FollowsTheEndOfASession) {
    World world;
    Supplicant alice(world, 1);
    alice.logIn("alice");
    reject(world, alice);
    EXPECT_THAT(world.events().back(),
                Event(EventKind::kUnauthorized, Reason::kNotReauthenticated, "alice"));
    EXPECT_FALSE(isHeard(world, alice));
    world.pass(60s);
    EXPECT_TRUE(isHeard(world, alice));
}

TEST(Quiet, FollowsNoOtherFailure) {
    World world;
    Supplicant alice(world, 1);
    alice.knock("alice");
    world.relaySends(alice.cookie(), failureBecause(1, pnac::FailureReason::kNoServer));
    EXPECT_TRUE(isHeard(world, alice));
    alice.identify(std::string(254, 'a'));
    EXPECT_TRUE(isHeard(world, alice));
    alice.identify("alice");
    world.pass(30s);
    EXPECT_EQ(Reason::kRelaySilent, world.events().back().reason);
    EXPECT_TRUE(isHeard(world, alice));
}

TEST(Quiet, AddressDoesNotAnswerTheGroup) {
    World world(World::Link::unknown);
    world.authenticator().linkUp(world.now());
    const uint8_t identifier = world.frames()[0].eap[1];
    Supplicant mallory(world, 1);
    reject(world, mallory);
    mallory.sendEap(eapResponse(identifier, 1, fromText("mallory")));
    EXPECT_THAT(world.records(), SizeIs(1));
}

TEST(Quiet, OutlastsTheLink) {
    World world;
    Supplicant mallory(world, 1);
    reject(world, mallory);
    world.authenticator().linkDown(world.now());
    world.authenticator().linkUp(world.now());
    EXPECT_FALSE(isHeard(world, mallory));
    world.pass(60s);
    EXPECT_TRUE(isHeard(world, mallory));
}

TEST(Quiet, IsNotEndedByAFloodOfStarts) {
    World world({.supplicantsMax = 100});
    Supplicant mallory(world, 60000);
    reject(world, mallory);
    for (unsigned i = 0; i < 5000; ++i) {
        Supplicant(world, i).start();
    }
    EXPECT_EQ(100U, world.authenticator().supplicants());
    EXPECT_FALSE(isHeard(world, mallory));
}

TEST(Quiet, AddressesTakeHalfOfTheTable) {
    World world({.supplicantsMax = 100});
    for (unsigned i = 0; i < 1000; ++i) {
        Supplicant mallory(world, i);
        reject(world, mallory);
        world.forget();
    }
    EXPECT_EQ(50U, world.authenticator().supplicants());
    Supplicant latest(world, 999);
    EXPECT_FALSE(isHeard(world, latest)) << "the oldest have left";
    for (unsigned i = 2000; i < 2050; ++i) {
        Supplicant(world, i).start();
    }
    EXPECT_EQ(100U, world.authenticator().supplicants());
    EXPECT_EQ(950U, world.counters().evicted);
    Supplicant(world, 2000).identify("alice");
    EXPECT_THAT(world.records(), SizeIs(1)) << "who has started first may still answer";
}

TEST(Quiet, AddressesMakeRoomWhenAllOthersHaveAnswered) {
    World world({.supplicantsMax = 4});
    Supplicant mallory(world, 1);
    Supplicant trudy(world, 2);
    reject(world, mallory);
    world.pass(1s);
    reject(world, trudy);
    Supplicant(world, 3).logIn("alice");
    Supplicant(world, 4).logIn("bob");
    Supplicant(world, 5).logIn("carol");
    EXPECT_EQ(3U, world.counters().authorized);
    EXPECT_FALSE(isHeard(world, trudy)) << "the older one has left";
    Supplicant(world, 6).logIn("dave");
    EXPECT_EQ(4U, world.counters().authorized);
    EXPECT_FALSE(isHeard(world, mallory)) << "there is no room";
    EXPECT_EQ(1U, world.counters().refused);
}

TEST(Quiet, TableOfOneServesTheNext) {
    World world({.supplicantsMax = 1});
    Supplicant mallory(world, 1);
    reject(world, mallory);
    Supplicant(world, 2).logIn("alice");
    EXPECT_EQ(EventKind::kAuthorized, world.events().back().kind);
}

TEST(Quiet, EndsWithTheProgram) {
    World world;
    Supplicant mallory(world, 1);
    reject(world, mallory);
    world.authenticator().shutDown(world.now());
    EXPECT_THAT(world.events(),
                ElementsAre(Event(EventKind::kFailed, Reason::kRejected, "mallory")));
}

}  // namespace
}  // namespace lanyard::test::quiet_test
