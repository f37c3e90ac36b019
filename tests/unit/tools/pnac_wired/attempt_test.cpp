// How a supplicant logs in, or does not: one login from its start to its end.
#include <string>

#include "tests/unit/tools/pnac_wired/world.h"

namespace lanyard::test::attempt_test {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

TEST(Attempt, StartsWithARequestForTheIdentity) {
    World world;
    Supplicant alice(world, 1);
    alice.start();
    ASSERT_THAT(alice.received(), SizeIs(1));
    EXPECT_BYTES_EQ(eapRequest(alice.identifier(), 1), alice.received()[0]);
    EXPECT_TRUE(world.records().empty());
}

TEST(Attempt, HandsTheIdentityToTheRelay) {
    World world;
    Supplicant alice(world, 1);
    alice.start();
    const uint8_t identifier = alice.identifier();
    alice.identify("alice");
    ASSERT_THAT(world.records(), SizeIs(1));
    EXPECT_NE(0U, world.records()[0].cookie);
    EXPECT_EQ(pnac::kRecordCommand, world.records()[0].command);
    EXPECT_BYTES_EQ(eapResponse(identifier, 1, fromText("alice")), world.records()[0].eap);
    EXPECT_TRUE(world.authenticator().awaitsRelay());
}

TEST(Attempt, LeavesPaddingBehindTheEapPacketOut) {
    World world;
    Supplicant alice(world, 1);
    alice.start();
    const Bytes response = eapResponse(alice.identifier(), 1, fromText("alice"));
    alice.sendEap(concatenate({response, "0000 0000"_hex}));
    ASSERT_THAT(world.records(), SizeIs(1));
    EXPECT_BYTES_EQ(response, world.records()[0].eap);
}

TEST(Attempt, CarriesRequestsAndResponses) {
    World world;
    Supplicant alice(world, 1);
    alice.knock("alice");
    const Bytes challenge = eapRequest(50, 4, "10 0102"_hex);
    world.relaySends(alice.cookie(), challenge);
    EXPECT_BYTES_EQ(challenge, alice.received().back());
    EXPECT_FALSE(world.authenticator().awaitsRelay());

    alice.answer(4, "10 0304"_hex);
    ASSERT_THAT(world.records(), SizeIs(2));
    EXPECT_EQ(world.records()[0].cookie, world.records()[1].cookie);
    EXPECT_BYTES_EQ(eapResponse(50, 4, "10 0304"_hex), world.records()[1].eap);
}

TEST(Attempt, EndsWithSuccess) {
    World world;
    Supplicant alice(world, 1);
    alice.start();
    world.pass(100ms);
    alice.identify("alice");
    world.relaySends(alice.cookie(),
                     concatenate({eapSuccess(alice.identifier()),
                                  keyBlock({keyElement(1, "0a0b"_hex), keyElement(4, "0c"_hex)})}));
    EXPECT_BYTES_EQ(eapSuccess(alice.received()[0][1]), alice.received().back());
    ASSERT_THAT(world.events(),
                ElementsAre(Event(EventKind::kAuthorized, Reason::kAccepted, "alice")));
    const SeenEvent &event = world.events()[0];
    EXPECT_EQ(alice.address(), event.address);
    EXPECT_EQ(100ms, event.duration);
    EXPECT_FALSE(event.reauthentication);
    EXPECT_BYTES_EQ("0a0b"_hex, event.recvKey);
    EXPECT_BYTES_EQ("0c"_hex, event.sendKey);
    EXPECT_FALSE(event.session);
    EXPECT_EQ(1U, world.authenticator().supplicants());
    EXPECT_EQ(1U, world.counters().authorized);
}

TEST(Attempt, EndsWithFailure) {
    World world(kNeverQuiet);
    Supplicant mallory(world, 1);
    mallory.knock("mallory");
    world.relaySends(mallory.cookie(), eapFailure(mallory.identifier()));
    EXPECT_EQ(4, mallory.received().back()[0]);
    EXPECT_THAT(world.events(),
                ElementsAre(Event(EventKind::kFailed, Reason::kRejected, "mallory")));
    EXPECT_EQ(0U, world.authenticator().supplicants());
    EXPECT_FALSE(world.authenticator().nextDeadline());
    EXPECT_EQ(1U, world.counters().failed);
}

TEST(Attempt, IsAnsweredInTheVersionOfTheSupplicant) {
    World world;
    Supplicant(world, 1, 1).start();
    Supplicant(world, 2, 2).start();
    Supplicant(world, 3, 3).start();
    ASSERT_THAT(world.frames(), SizeIs(3));
    EXPECT_EQ(1, world.frames()[0].version);
    EXPECT_EQ(2, world.frames()[1].version);
    EXPECT_EQ(2, world.frames()[2].version) << "the latest that is known";
}

// The relay begins anew with the second name, so the verdict is about that one.
TEST(Attempt, IsOfTheLastIdentityThatTheRelayGot) {
    World world;
    Supplicant mallory(world, 1);
    mallory.knock("admin");
    world.relaySends(mallory.cookie(), eapRequest(50, 4, "10 0102"_hex));
    mallory.identify("mallory");
    world.relaySends(mallory.cookie(), eapRequest(51, 4, "10 0102"_hex));
    mallory.answer(4, "10 0304"_hex);
    world.relaySends(mallory.cookie(), eapSuccess(51));
    EXPECT_THAT(world.events(),
                ElementsAre(Event(EventKind::kAuthorized, Reason::kAccepted, "mallory")));
}

TEST(Attempt, TakesAnIdentityAsLongAsAUserName) {
    World world;
    Supplicant alice(world, 1);
    alice.knock(std::string(253, 'a'));
    ASSERT_THAT(world.records(), SizeIs(1));
    EXPECT_EQ(258U, world.records()[0].eap.size());
    EXPECT_EQ(0U, world.counters().identitiesTooLong);
}

TEST(Attempt, WithALongerIdentityFailsAtOnceAndWithoutTheRelay) {
    for (const size_t size : {254U, 1400U, 1491U}) {
        World world;
        Supplicant mallory(world, 1);
        const std::string name(size, 'm');
        mallory.start();
        const uint8_t identifier = mallory.identifier();
        mallory.identify(name);
        EXPECT_THAT(world.records(), IsEmpty());
        EXPECT_BYTES_EQ(eapFailure(identifier), mallory.received().back());
        EXPECT_THAT(world.events(),
                    ElementsAre(Event(EventKind::kFailed, Reason::kIdentityTooLong, name)));
        EXPECT_EQ(1U, world.counters().identitiesTooLong);
        EXPECT_EQ(1U, world.counters().failed);
        EXPECT_EQ(0U, world.authenticator().supplicants());
        EXPECT_FALSE(world.authenticator().nextDeadline());
    }
}

TEST(Attempt, EndsWithALongerIdentityInItsMiddle) {
    World world;
    Supplicant mallory(world, 1);
    mallory.knock("mallory");
    world.relaySends(mallory.cookie(), eapRequest(50, 4, "10 0102"_hex));
    mallory.identify(std::string(254, 'm'));
    EXPECT_THAT(world.records(), SizeIs(1));
    EXPECT_BYTES_EQ(eapFailure(50), mallory.received().back());
    ASSERT_THAT(world.events(), SizeIs(1));
    EXPECT_EQ(Reason::kIdentityTooLong, world.events()[0].reason);
    EXPECT_EQ(0U, world.authenticator().supplicants());
}

TEST(Attempt, TakesANakForAMethod) {
    World world;
    Supplicant alice(world, 1);
    alice.knock("alice");
    world.relaySends(alice.cookie(), eapRequest(50, 4));
    alice.answer(3, "19"_hex);
    ASSERT_THAT(world.records(), SizeIs(2));
    EXPECT_BYTES_EQ(eapResponse(50, 3, "19"_hex), world.records()[1].eap);
}

TEST(Attempt, EndsWithALogoff) {
    World world;
    Supplicant alice(world, 1);
    alice.knock("alice");
    alice.logoff();
    EXPECT_FALSE(world.authenticator().awaitsRelay());
    world.relaySends(alice.cookie(), eapSuccess(1));
    world.pass(12s);
    EXPECT_THAT(world.events(), IsEmpty());
    EXPECT_EQ(0U, world.authenticator().supplicants());
    Supplicant(world, 2).logoff();
    EXPECT_EQ(2U, world.counters().logoffs);
}

}  // namespace
}  // namespace lanyard::test::attempt_test
