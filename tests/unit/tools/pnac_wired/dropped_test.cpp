// Frames, EAP packets and records that are dropped and counted during a login.
#include "tests/unit/tools/pnac_wired/world.h"

namespace lanyard::test::dropped_test {
namespace {

using testing::IsEmpty;
using testing::SizeIs;

TEST(Attempt, DropsDuplicatesAndOtherIdentifiers) {
    World world;
    Supplicant alice(world, 1);
    alice.start();
    const uint8_t identifier = alice.identifier();
    alice.sendEap(eapResponse(static_cast<uint8_t>(identifier + 7), 1, fromText("alice")));
    EXPECT_EQ(1U, world.counters().eapUnexpected);
    EXPECT_THAT(world.records(), IsEmpty());

    alice.identify("alice");
    alice.sendEap(eapResponse(identifier, 1, fromText("alice")));
    EXPECT_EQ(2U, world.counters().eapUnexpected);
    EXPECT_THAT(world.records(), SizeIs(1));

    world.relaySends(alice.cookie(), eapRequest(50, 4));
    alice.sendEap(eapResponse(identifier, 1, fromText("alice")));
    alice.sendEap(eapResponse(51, 4));
    EXPECT_EQ(4U, world.counters().eapUnexpected);
    EXPECT_THAT(world.records(), SizeIs(1));
    alice.sendEap(eapResponse(50, 4));
    EXPECT_THAT(world.records(), SizeIs(2));
}

TEST(Attempt, TakesNothingButAnIdentityForOne) {
    World world;
    Supplicant alice(world, 1);
    alice.start();
    alice.answer(3, "04"_hex);
    EXPECT_EQ(1U, world.counters().eapUnexpected);
    EXPECT_THAT(world.records(), IsEmpty());
}

TEST(Attempt, DropsWhatASupplicantMayNotSend) {
    World world;
    Supplicant alice(world, 1);
    alice.start();
    alice.sendEap(eapRequest(alice.identifier(), 1));
    alice.sendEap(eapSuccess(alice.identifier()));
    alice.sendEap(eapFailure(alice.identifier()));
    alice.sendEap({});
    alice.sendEap("0201 0003"_hex);
    alice.sendEap("0201 0009 01 61"_hex);
    EXPECT_EQ(6U, world.counters().eapMalformed);
    EXPECT_THAT(world.records(), IsEmpty());
    EXPECT_THAT(world.events(), IsEmpty());
}

TEST(Attempt, CountsFramesThatItDrops) {
    World world;
    world.receive({});
    world.receive(eapolFrame(macOf(1), 1, {}, 1, pnac::kPaeGroup, 9));
    world.receive(eapolFrame(macOf(1), 3, {}));
    EXPECT_EQ(3U, world.counters().framesReceived);
    EXPECT_EQ(2U, world.counters().framesMalformed);
    EXPECT_EQ(1U, world.counters().framesForeign);
    EXPECT_EQ(0U, world.authenticator().supplicants());
}

TEST(Attempt, DropsRecordsThatAreBrokenOrOfNoConversation) {
    World world;
    Supplicant alice(world, 1);
    alice.knock("alice");
    const uint32_t cookie = alice.cookie();
    world.relaySends(cookie + 1, eapSuccess(1));
    world.relaySends(0, eapSuccess(1));
    EXPECT_EQ(2U, world.counters().recordsUnexpected);
    world.relaySends(cookie, concatenate({eapSuccess(1), "0003 01"_hex}));
    world.relaySends(cookie, {});
    world.authenticator().receiveRecord({}, world.now());
    EXPECT_EQ(3U, world.counters().recordsMalformed);
    EXPECT_THAT(world.events(), IsEmpty()) << "a verdict with broken key information is none";
    EXPECT_TRUE(world.authenticator().awaitsRelay());
    world.relaySends(cookie, eapSuccess(1));
    EXPECT_THAT(world.events(), SizeIs(1));
}

TEST(Attempt, DropsASecondAnswerOfTheRelay) {
    World world;
    Supplicant alice(world, 1);
    alice.knock("alice");
    world.relaySends(alice.cookie(), eapRequest(50, 4));
    world.relaySends(alice.cookie(), eapSuccess(50));
    EXPECT_EQ(1U, world.counters().recordsUnexpected);
    EXPECT_THAT(world.events(), IsEmpty());
}

}  // namespace
}  // namespace lanyard::test::dropped_test
