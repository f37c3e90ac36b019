// A login after another one that is over or not, and the conversation with the relay it belongs to.
#include <algorithm>
#include <cstdint>
#include <set>
#include <vector>

#include "tests/unit/tools/pnac_wired/world.h"

namespace lanyard::test::another_attempt_test {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

TEST(Attempt, MayFollowAFailedOneAtOnceWithoutAQuietPeriod) {
    World world(kNeverQuiet);
    Supplicant alice(world, 1);
    alice.knock("alice");
    const uint32_t first = alice.cookie();
    world.relaySends(first, eapFailure(alice.identifier()));
    alice.logIn("alice");
    EXPECT_NE(first, alice.cookie());
    EXPECT_THAT(world.events(),
                ElementsAre(Event(EventKind::kFailed, Reason::kRejected, "alice"),
                            Event(EventKind::kAuthorized, Reason::kAccepted, "alice")));
}

TEST(Attempt, RepeatsTheSameRequestOnARepeatedStart) {
    World world;
    Supplicant alice(world, 1);
    alice.start();
    alice.start();
    ASSERT_THAT(alice.received(), SizeIs(2));
    EXPECT_BYTES_EQ(alice.received()[0], alice.received()[1]);
    alice.identify("alice");
    EXPECT_THAT(world.records(), SizeIs(1));
}

TEST(Attempt, BeginsAnewOnAStartInTheMiddle) {
    World world;
    Supplicant alice(world, 1);
    alice.knock("alice");
    const uint32_t first = alice.cookie();
    world.relaySends(first, eapRequest(50, 4));
    alice.start();
    EXPECT_EQ(1, alice.received().back()[4]) << "the identity is asked for";
    alice.identify("bob");
    alice.sendEap(eapResponse(50, 4, "10"_hex));
    EXPECT_EQ(1U, world.counters().eapUnexpected) << "the old request is off";
    EXPECT_EQ(first, alice.cookie()) << "in the conversation that the relay has";
    world.relaySends(alice.cookie(), eapSuccess(1));
    EXPECT_THAT(world.events(),
                ElementsAre(Event(EventKind::kAuthorized, Reason::kAccepted, "bob")));
}

TEST(Attempt, BeginsAnewWhileTheRelayHasAPacket) {
    World world;
    Supplicant alice(world, 1);
    alice.knock("alice");
    const uint32_t first = alice.cookie();
    alice.start();
    const size_t packets = alice.received().size();
    world.relaySends(first, eapSuccess(1));
    EXPECT_EQ(1U, world.counters().recordsUnexpected);
    EXPECT_EQ(packets, alice.received().size())
        << "a verdict on the old attempt is none on the new";
    EXPECT_THAT(world.events(), IsEmpty());
    EXPECT_FALSE(world.authenticator().awaitsRelay());
}

TEST(Attempt, WaitsForTheAnswerToTheOneBefore) {
    for (const Bytes &late : {eapRequest(50, 4), eapSuccess(1), eapFailure(1)}) {
        World world;
        Supplicant alice(world, 1);
        alice.knock("alice");
        const uint32_t first = alice.cookie();
        world.pass(1s);
        alice.start();
        alice.identify("bob");
        EXPECT_THAT(world.records(), SizeIs(1));
        EXPECT_TRUE(world.authenticator().awaitsRelay());
        world.relaySends(first, late);
        ASSERT_THAT(world.records(), SizeIs(2));
        EXPECT_EQ("bob", toText(ByteView(world.records()[1].eap).subspan(5)));
        EXPECT_EQ(late[0] == 1, alice.cookie() == first) << "a verdict ends what the relay has";
        EXPECT_THAT(world.events(), IsEmpty());
        world.relaySends(alice.cookie(), eapSuccess(1));
        EXPECT_THAT(world.events(),
                    ElementsAre(Event(EventKind::kAuthorized, Reason::kAccepted, "bob")));
    }
}

TEST(Attempt, WaitsNoLongerForAnAnswerThanTheOneBeforeWould) {
    World world;
    Supplicant alice(world, 1);
    alice.knock("alice");
    const uint32_t first = alice.cookie();
    world.pass(10s);
    alice.start();
    alice.identify("bob");
    world.pass(20s - 1ms);
    EXPECT_THAT(world.records(), SizeIs(1));
    world.pass(1ms);
    ASSERT_THAT(world.records(), SizeIs(2));
    EXPECT_NE(first, alice.cookie());
    world.relaySends(first, eapSuccess(1));
    EXPECT_THAT(world.events(), IsEmpty()) << "too late for whomever";
    world.pass(29s);
    world.relaySends(alice.cookie(), eapSuccess(1));
    EXPECT_THAT(world.events(),
                ElementsAre(Event(EventKind::kAuthorized, Reason::kAccepted, "bob")));
}

TEST(Attempt, ThatIsHeldMayBeGivenUpToo) {
    World world;
    Supplicant alice(world, 1);
    alice.knock("alice");
    const uint32_t first = alice.cookie();
    for (int i = 0; i < 10; ++i) {
        alice.start();
        alice.identify("bob");
        alice.logoff();
    }
    world.pass(12s);
    EXPECT_THAT(world.records(), SizeIs(1));
    EXPECT_EQ(0U, world.authenticator().supplicants());
    EXPECT_FALSE(world.authenticator().awaitsRelay());
    EXPECT_FALSE(world.authenticator().nextDeadline());
    world.relaySends(first, eapRequest(50, 4));
    alice.knock("alice");
    EXPECT_THAT(world.records(), SizeIs(2));
}

// The relay would forget it in the middle of a login.
TEST(Attempt, GoesOnInNoOldConversation) {
    World world;
    Supplicant alice(world, 1);
    alice.knock("alice");
    const uint32_t first = alice.cookie();
    world.relaySends(first, eapRequest(50, 4));
    alice.logoff();
    world.pass(149s);
    alice.knock("alice");
    EXPECT_EQ(first, alice.cookie());
    world.relaySends(first, eapRequest(50, 4));
    alice.logoff();
    world.pass(1s);
    alice.knock("alice");
    EXPECT_NE(first, alice.cookie());
}

// A supplicant in the middle of a method does not hear the Identity request.
TEST(Attempt, WithAStartInItsMethod_GoesOnWithTheMethod) {
    World world;
    Supplicant alice(world, 1);
    alice.knock("alice");
    world.relaySends(alice.cookie(), eapRequest(50, 25));
    const size_t frames = alice.received().size();
    alice.start();
    alice.start();
    ASSERT_THAT(alice.received(), SizeIs(frames + 2));
    EXPECT_EQ(1, alice.received().back()[4]);
    EXPECT_EQ(alice.received()[frames], alice.received()[frames + 1]);
    alice.sendEap(eapResponse(50, 25, "01"_hex));
    ASSERT_THAT(world.records(), SizeIs(2));
    alice.start();
    world.relaySends(alice.cookie(), eapSuccess(50));
    EXPECT_THAT(world.events(),
                ElementsAre(Event(EventKind::kAuthorized, Reason::kAccepted, "alice")));
    EXPECT_EQ(eapSuccess(50), alice.received().back());
}

TEST(Attempt, WithAStartInItsMethod_TakesANameForTheQuestionAloneAndOnlyUntilItsEnd) {
    World world;
    Supplicant alice(world, 1);
    alice.knock("alice");
    world.relaySends(alice.cookie(), eapRequest(50, 25));
    alice.start();
    const uint8_t asked = alice.identifier();
    alice.sendEap(eapResponse(asked, 25, "01"_hex));
    EXPECT_EQ(1U, world.counters().eapUnexpected) << "no name";
    alice.sendEap(eapResponse(50, 25, "01"_hex));
    world.relaySends(alice.cookie(), eapSuccess(50));
    const size_t records = world.records().size();
    alice.sendEap(eapResponse(asked, 1, fromText("bob")));
    EXPECT_EQ(2U, world.counters().eapUnexpected) << "too late";
    EXPECT_THAT(world.records(), SizeIs(records));
}

// A supplicant that has refused a method and waits for another answers both.
TEST(Attempt, WithAStartBeforeItsNextRequest_GoesOnWithThat) {
    World world;
    Supplicant alice(world, 1);
    alice.knock("alice");
    world.relaySends(alice.cookie(), eapRequest(50, 4));
    alice.answer(3, "19"_hex);
    alice.start();
    const uint8_t asked = alice.identifier();
    world.relaySends(alice.cookie(), eapRequest(51, 25));
    alice.sendEap(eapResponse(asked, 1, fromText("alice")));
    EXPECT_EQ(1U, world.counters().eapUnexpected);
    alice.sendEap(eapResponse(51, 25, "01"_hex));
    world.relaySends(alice.cookie(), eapSuccess(51));
    EXPECT_THAT(world.events(),
                ElementsAre(Event(EventKind::kAuthorized, Reason::kAccepted, "alice")));
}

TEST(Attempt, WithALogoffInItsMethod_OpensNoPortAndAsksAgain) {
    World world;
    Supplicant alice(world, 1);
    alice.knock("alice");
    world.relaySends(alice.cookie(), eapRequest(50, 25));
    alice.logoff();
    alice.logoff();
    alice.sendEap(eapResponse(50, 25, "01"_hex));
    const size_t frames = alice.received().size();
    world.relaySends(alice.cookie(), eapSuccess(50));
    ASSERT_THAT(alice.received(), SizeIs(frames + 2));
    EXPECT_EQ(eapSuccess(50), alice.received()[frames]) << "the supplicant's method is over";
    EXPECT_EQ(1, alice.received().back()[4]);
    EXPECT_THAT(world.events(), IsEmpty());
    alice.identify("alice");
    world.relaySends(alice.cookie(), eapSuccess(52));
    EXPECT_THAT(world.events(),
                ElementsAre(Event(EventKind::kAuthorized, Reason::kAccepted, "alice")));
}

TEST(Attempt, WithALogoffInItsMethod_MakesRoomForANewcomer) {
    World world({.supplicantsMax = 1});
    Supplicant alice(world, 1);
    alice.knock("alice");
    world.relaySends(alice.cookie(), eapRequest(50, 25));
    alice.logoff();
    Supplicant(world, 2).logIn("bob");
    EXPECT_THAT(world.events(),
                ElementsAre(Event(EventKind::kAuthorized, Reason::kAccepted, "bob")));
}

TEST(Attempt, AfterOneWithALogoff_OpensThePort) {
    World world;
    Supplicant alice(world, 1);
    alice.knock("alice");
    world.relaySends(alice.cookie(), eapRequest(50, 25));
    alice.logoff();
    alice.identify("bob");
    world.relaySends(alice.cookie(), eapSuccess(51));
    EXPECT_THAT(world.events(),
                ElementsAre(Event(EventKind::kAuthorized, Reason::kAccepted, "bob")));
}

TEST(Attempt, HasACookieThatIsNotZeroNorUsedNorGuessed) {
    class Silent final : public pnac::Outlet {
      public:
        std::vector<uint32_t> cookies = {};
        uint8_t identifier = 0;

      private:
        void sendFrame(ByteView frame) override { identifier = frame[19]; }
        pnac::HandOver sendRecord(ByteView record) override {
            uint32_t cookie = 0;
            std::copy_n(record.begin(), sizeof(cookie), reinterpret_cast<uint8_t *>(&cookie));
            cookies.push_back(cookie);
            return pnac::HandOver::kTaken;
        }
        void report(const pnac::Event & /*event*/) override {}
    };
    // A source that starts with nothing but 0 and repeats each number.
    uint32_t calls = 0;
    Silent outlet;
    pnac::Authenticator authenticator({.address = kOwnAddress}, outlet,
                                      [&] { return calls++ / 7; });
    const pnac::Time now{};
    for (int i = 0; i < 50; ++i) {
        const Mac address = macOf(static_cast<unsigned>(i));
        authenticator.receiveFrame(eapolFrame(address, 1, {}), now);
        authenticator.receiveFrame(eapolFrame(address, 0, eapResponse(outlet.identifier, 1)), now);
    }
    ASSERT_THAT(outlet.cookies, SizeIs(50));
    EXPECT_THAT(outlet.cookies, testing::Each(testing::Ne(0U)));
    EXPECT_THAT(std::set<uint32_t>(outlet.cookies.begin(), outlet.cookies.end()), SizeIs(50));
}

}  // namespace
}  // namespace lanyard::test::another_attempt_test
