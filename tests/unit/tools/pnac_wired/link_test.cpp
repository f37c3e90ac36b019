// The link: who is asked when it comes up, and what ends when it goes down.
#include "tests/unit/tools/pnac_wired/world.h"

namespace lanyard::test::link_test {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

Bytes groupRequest(const World &world) {
    return world.frames().empty() ? Bytes{} : world.frames().front().eap;
}

TEST(Link, AsksTheGroupWhenItComesUp) {
    World world(World::Link::unknown);
    world.authenticator().linkUp(world.now());
    ASSERT_THAT(world.frames(), SizeIs(1));
    EXPECT_EQ(pnac::kPaeGroup, world.frames()[0].destination);
    EXPECT_EQ(1, world.frames()[0].version);
    EXPECT_BYTES_EQ(eapRequest(world.frames()[0].eap[1], 1), world.frames()[0].eap);
    world.authenticator().linkUp(world.now());
    EXPECT_THAT(world.frames(), SizeIs(1)) << "it was up already";
}

TEST(Link, AsksTheGroupThreeTimesAgain) {
    World world(World::Link::unknown);
    world.authenticator().linkUp(world.now());
    world.pass(3s);
    EXPECT_THAT(world.frames(), SizeIs(2));
    world.pass(1h);
    ASSERT_THAT(world.frames(), SizeIs(4));
    for (const SentFrame &frame : world.frames()) {
        EXPECT_BYTES_EQ(groupRequest(world), frame.eap);
    }
    EXPECT_FALSE(world.authenticator().nextDeadline());
}

TEST(Link, TakesAnAnswerOfAnyone) {
    World world(World::Link::unknown);
    world.authenticator().linkUp(world.now());
    const uint8_t identifier = groupRequest(world)[1];
    Supplicant alice(world, 1);
    Supplicant bob(world, 2);
    world.pass(10ms);
    alice.sendEap(eapResponse(identifier, 1, fromText("alice")));
    ASSERT_THAT(world.records(), SizeIs(1));
    EXPECT_BYTES_EQ(eapResponse(identifier, 1, fromText("alice")), world.records()[0].eap);
    world.relaySends(alice.cookie(), eapSuccess(identifier));
    EXPECT_THAT(world.events(),
                ElementsAre(Event(EventKind::kAuthorized, Reason::kAccepted, "alice")));

    world.pass(5s);
    EXPECT_EQ(1U, world.frames().size() - alice.received().size()) << "nobody is asked again";
    bob.sendEap(eapResponse(identifier, 1, fromText("bob")));
    EXPECT_THAT(world.records(), SizeIs(2)) << "but others may be slower";
}

TEST(Link, AsksTheGroupNoMoreWhenSomeoneStarts) {
    World world(World::Link::unknown);
    world.authenticator().linkUp(world.now());
    world.pass(2s);
    Supplicant alice(world, 1);
    alice.logIn("alice");
    world.pass(5s);
    EXPECT_EQ(1U, world.frames().size() - alice.received().size());
    Supplicant(world, 2).sendEap(eapResponse(groupRequest(world)[1], 1, fromText("bob")));
    EXPECT_THAT(world.records(), SizeIs(3)) << "but answers may still come";
}

TEST(Link, TakesNoAnswerButAnIdentity) {
    World world(World::Link::unknown);
    world.authenticator().linkUp(world.now());
    const uint8_t identifier = groupRequest(world)[1];
    Supplicant alice(world, 1);
    alice.sendEap(eapResponse(identifier, 3, "00"_hex));
    alice.sendEap(eapResponse(static_cast<uint8_t>(identifier + 1), 1, fromText("alice")));
    EXPECT_EQ(2U, world.counters().eapUnexpected);
    EXPECT_EQ(0U, world.authenticator().supplicants());
}

TEST(Link, RefusesALongerNameThanThereCanBe) {
    World world(World::Link::unknown);
    world.authenticator().linkUp(world.now());
    const uint8_t identifier = groupRequest(world)[1];
    Supplicant mallory(world, 1);
    mallory.sendEap(eapResponse(identifier, 1, Bytes(254, 'm')));
    EXPECT_THAT(world.records(), IsEmpty());
    ASSERT_THAT(mallory.received(), SizeIs(1));
    EXPECT_BYTES_EQ(eapFailure(identifier), mallory.received()[0]);
    EXPECT_EQ(0U, world.authenticator().supplicants());
}

TEST(Link, TakesNoAnswerAfterTheLastRequest) {
    World world(World::Link::unknown);
    world.authenticator().linkUp(world.now());
    world.pass(12s);
    Supplicant alice(world, 1);
    alice.sendEap(eapResponse(groupRequest(world)[1], 1, fromText("alice")));
    EXPECT_EQ(1U, world.counters().eapUnexpected);
}

TEST(Link, TakesTheAnswerToEitherRequest) {
    World world(World::Link::unknown);
    world.authenticator().linkUp(world.now());
    Supplicant alice(world, 1);
    alice.start();
    alice.sendEap(eapResponse(groupRequest(world)[1], 1, fromText("alice")));
    EXPECT_THAT(world.records(), SizeIs(1));
    alice.sendEap(eapResponse(alice.identifier(), 1, fromText("alice")));
    EXPECT_THAT(world.records(), SizeIs(1)) << "and then no other";
    EXPECT_EQ(1U, world.counters().eapUnexpected);
}

TEST(Link, TakesAnAnswerToTheGroupForAnotherLogin) {
    World world(World::Link::unknown);
    world.authenticator().linkUp(world.now());
    Supplicant alice(world, 1);
    alice.logIn("alice");
    alice.sendEap(eapResponse(groupRequest(world)[1], 1, fromText("alice")));
    EXPECT_THAT(world.records(), SizeIs(3));
}

TEST(Link, IsUpWhenAFrameComesThrough) {
    World world(World::Link::unknown);
    Supplicant alice(world, 1);
    alice.start();
    ASSERT_THAT(world.frames(), SizeIs(2));
    EXPECT_EQ(pnac::kPaeGroup, world.frames()[0].destination);
}

TEST(Link, EndsAllSessionsWhenItGoesDown) {
    World world(World::Link::unknown);
    world.authenticator().linkUp(world.now());
    Supplicant(world, 1).logIn("alice");
    Supplicant(world, 2).logIn("bob");
    Supplicant(world, 3).knock("carol");
    world.setRelayRoom(0);
    Supplicant(world, 4).knock("dave");
    world.forget();
    world.authenticator().linkDown(world.now());
    EXPECT_THAT(world.events(),
                ElementsAre(Event(EventKind::kUnauthorized, Reason::kLinkDown, "alice"),
                            Event(EventKind::kUnauthorized, Reason::kLinkDown, "bob")));
    EXPECT_THAT(world.frames(), IsEmpty());
    EXPECT_EQ(0U, world.authenticator().supplicants());
    EXPECT_FALSE(world.authenticator().awaitsRelay());
    EXPECT_FALSE(world.authenticator().nextDeadline());

    world.authenticator().linkUp(world.now());
    EXPECT_THAT(world.frames(), SizeIs(1)) << "and asks anew when it is back";
}

TEST(Link, EndsAllSessionsWithTheProgram) {
    World world(World::Link::unknown);
    Supplicant(world, 1).logIn("alice");
    world.forget();
    world.authenticator().shutDown(world.now());
    EXPECT_THAT(world.events(),
                ElementsAre(Event(EventKind::kUnauthorized, Reason::kShutdown, "alice")));
    EXPECT_FALSE(world.authenticator().nextDeadline());
}

}  // namespace
}  // namespace lanyard::test::link_test
