// The authenticator and a relay that is slow, busy, silent or not there.
#include "tests/unit/tools/pnac_wired/world.h"

namespace lanyard::test::waiting_test {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

// One packet may be ahead of a new login.
pnac::Settings oneAtATime() {
    return {.relayLoad = {.least = 1, .first = 1, .most = 1}};
}

TEST(Relay, ThatIsSilentFailsTheAttempt) {
    World world;
    Supplicant alice(world, 1);
    alice.knock("alice");
    const uint8_t identifier = alice.identifier();
    world.pass(29999ms);
    EXPECT_THAT(world.events(), IsEmpty());
    world.pass(1ms);
    EXPECT_THAT(world.events(),
                ElementsAre(Event(EventKind::kFailed, Reason::kRelaySilent, "alice")));
    EXPECT_EQ(30s, world.events()[0].duration);
    EXPECT_BYTES_EQ(eapFailure(identifier), alice.received().back());
    world.relaySends(alice.cookie(), eapSuccess(identifier));
    EXPECT_EQ(1U, world.counters().recordsUnexpected);
    EXPECT_THAT(world.events(), SizeIs(1));
}

TEST(Relay, ThatIsNotThereYetIsWaitedFor) {
    World world;
    world.setRelayRoom(0);
    Supplicant alice(world, 1);
    alice.knock("alice");
    EXPECT_THAT(world.records(), IsEmpty());
    EXPECT_FALSE(world.authenticator().awaitsRelay()) << "there is nothing that it could answer";
    world.pass(20s);
    EXPECT_LT(world.recordsOffered(), 100U) << "it is not offered without a pause";
    world.setRelayRoom(-1);
    world.pass(320ms);
    ASSERT_THAT(world.records(), SizeIs(1));
    EXPECT_TRUE(world.authenticator().awaitsRelay());
    world.relaySends(alice.cookie(), eapSuccess(1));
    EXPECT_THAT(world.events(),
                ElementsAre(Event(EventKind::kAuthorized, Reason::kAccepted, "alice")));
}

TEST(Relay, ThatStaysAwayIsNotRunning) {
    World world;
    world.setRelayRunning(false);
    Supplicant alice(world, 1);
    alice.knock("alice");
    world.pass(29999ms);
    EXPECT_THAT(world.events(), IsEmpty());
    world.pass(1ms);
    EXPECT_THAT(world.events(),
                ElementsAre(Event(EventKind::kFailed, Reason::kRelayNotRunning, "alice")));
    world.setRelayRunning(true);
    world.pass(1min);
    EXPECT_THAT(world.records(), IsEmpty()) << "what is over is not sent any more";
    alice.logIn("alice");
    EXPECT_THAT(world.events(), SizeIs(2));
}

TEST(Relay, ThatTakesAndAnswersNothingIsSilent) {
    World world;
    world.setRelayRoom(0);
    Supplicant alice(world, 1);
    alice.knock("alice");
    world.pass(30s);
    EXPECT_THAT(world.events(),
                ElementsAre(Event(EventKind::kFailed, Reason::kRelaySilent, "alice")));
}

TEST(Relay, ThatDiesWithAPacketIsSilent) {
    World world;
    Supplicant alice(world, 1);
    alice.knock("alice");
    world.setRelayRunning(false);
    world.pass(30s);
    EXPECT_THAT(world.events(),
                ElementsAre(Event(EventKind::kFailed, Reason::kRelaySilent, "alice")));
}

TEST(Relay, SaysWhyALoginFailed) {
    for (const auto &[why, reason] : {std::pair{pnac::FailureReason::kRejected, Reason::kRejected},
                                      {pnac::FailureReason::kNoServer, Reason::kNoServer},
                                      {pnac::FailureReason::kNotSent, Reason::kNotSent},
                                      {pnac::FailureReason::kExpired, Reason::kExpired}}) {
        World world;
        Supplicant alice(world, 1);
        alice.knock("alice");
        world.relaySends(alice.cookie(), failureBecause(7, why));
        EXPECT_BYTES_EQ(eapFailure(7), alice.received().back());
        EXPECT_THAT(world.events(), ElementsAre(Event(EventKind::kFailed, reason, "alice")));
    }
}

TEST(Relay, HasItsTimeFromWhenItTookThePacket) {
    World world;
    world.setRelayRoom(0);
    Supplicant alice(world, 1);
    alice.knock("alice");
    world.pass(29s);
    world.setRelayRoom(-1);
    world.pass(1s);
    ASSERT_THAT(world.records(), SizeIs(1));
    world.pass(29s);
    EXPECT_THAT(world.events(), IsEmpty());
    world.pass(1s);
    EXPECT_THAT(world.events(),
                ElementsAre(Event(EventKind::kFailed, Reason::kRelaySilent, "alice")));
}

TEST(Relay, ThatAnswersOthersIsNotSilentToThoseWhoWait) {
    World world(oneAtATime());
    Supplicant first(world, 1);
    first.knock("first");
    world.setRelayRoom(0);
    Supplicant second(world, 2);
    second.knock("second");
    for (int round = 0; round < 5; ++round) {
        world.pass(20s);
        world.relaySends(world.records().back().cookie, eapRequest(50, 4));
        world.setRelayRoom(1);
        first.sendEap(eapResponse(50, 4, "10"_hex));
    }
    EXPECT_THAT(world.events(), IsEmpty());
    world.pass(31s);
    EXPECT_THAT(world.events(), testing::UnorderedElementsAre(
                                    Event(EventKind::kFailed, Reason::kRelaySilent, "first"),
                                    Event(EventKind::kFailed, Reason::kRelaySilent, "second")));
}

TEST(Relay, ThatIsBusyServesSupplicantsInTheirOrder) {
    World world;
    world.setRelayRoom(1);
    Supplicant first(world, 1);
    Supplicant second(world, 2);
    Supplicant third(world, 3);
    first.knock("first");
    second.knock("second");
    third.knock("third");
    ASSERT_THAT(world.records(), SizeIs(1));
    EXPECT_EQ(2U, world.counters().recordsDelayed);

    world.setRelayRoom(1);
    world.relaySends(world.records()[0].cookie, eapSuccess(1));
    ASSERT_THAT(world.records(), SizeIs(2));
    EXPECT_EQ("second", toText(ByteView(world.records()[1].eap).subspan(5)));

    second.logoff();
    third.start();
    third.identify("third again");
    world.setRelayRoom(-1);
    world.pass(1s);
    ASSERT_THAT(world.records(), SizeIs(3));
    EXPECT_EQ("third again", toText(ByteView(world.records()[2].eap).subspan(5)));
}

TEST(Relay, IsToldThePortWithEveryPacket) {
    const pnac::Port port{.number = 7, .name = "eth0", .address = kOwnAddress};
    World world({.port = port});
    Supplicant alice(world, 1);
    alice.logIn("alice");
    ASSERT_THAT(world.records(), SizeIs(2));
    for (const SentRecord &record : world.records()) {
        EXPECT_BYTES_EQ(pnac::portInformation(alice.address(), port), record.portInformation);
    }
    World silent;
    Supplicant(silent, 1).knock("alice");
    EXPECT_THAT(silent.records()[0].portInformation, IsEmpty());
}

TEST(Relay, GetsAllThatItTakes) {
    World world;
    for (unsigned i = 0; i < 64; ++i) {
        Supplicant(world, i).knock("user");
    }
    EXPECT_THAT(world.records(), SizeIs(64)) << "though none is answered yet";
    EXPECT_EQ(0U, world.counters().recordsDelayed);
}

TEST(Relay, ServesLoginsThatAreUnderWayBeforeNewcomers) {
    World world;
    Supplicant alice(world, 1);
    alice.knock("alice");
    world.relaySends(alice.cookie(), eapRequest(50, 4));
    world.setRelayRoom(0);
    Supplicant(world, 2).knock("bob");
    alice.sendEap(eapResponse(50, 4, "10"_hex));
    world.setRelayRoom(-1);
    world.pass(1s);
    ASSERT_THAT(world.records(), SizeIs(3));
    EXPECT_BYTES_EQ(eapResponse(50, 4, "10"_hex), world.records()[1].eap);
    EXPECT_EQ("bob", toText(ByteView(world.records()[2].eap).subspan(5)));
}

TEST(Relay, WithMuchToDoIsHandedNoNewLogin) {
    World world(oneAtATime());
    Supplicant alice(world, 1);
    alice.knock("alice");
    Supplicant(world, 2).knock("bob");
    Supplicant(world, 3).knock("carol");
    ASSERT_THAT(world.records(), SizeIs(1));
    world.relaySends(world.records()[0].cookie, eapRequest(50, 4));
    ASSERT_THAT(world.records(), SizeIs(2)) << "the relay is not left without work";
    alice.sendEap(eapResponse(50, 4, "10"_hex));
    ASSERT_THAT(world.records(), SizeIs(3)) << "a login that is under way does not wait";
    world.relaySends(world.records()[1].cookie, eapRequest(60, 4));
    EXPECT_THAT(world.records(), SizeIs(3));
    world.relaySends(world.records()[2].cookie, eapSuccess(50));
    ASSERT_THAT(world.records(), SizeIs(4));
    EXPECT_EQ("carol", toText(ByteView(world.records()[3].eap).subspan(5)));
}

TEST(Relay, ThatHasLostPacketsGetsTheNextAfterAWhile) {
    World world({.relayLoad = {.least = 2, .first = 2, .most = 2}});
    for (unsigned i = 0; i < 5; ++i) {
        Supplicant(world, i).knock("user");
    }
    EXPECT_THAT(world.records(), SizeIs(2));
    world.pass(3999ms);
    EXPECT_THAT(world.records(), SizeIs(2));
    world.pass(1ms);
    EXPECT_THAT(world.records(), SizeIs(4));
    world.pass(4s);
    EXPECT_THAT(world.records(), SizeIs(5));
}

// A server that says nothing to some users.
TEST(Relay, ThatAnswersLaterPacketsHasRoomForOthers) {
    World world;
    for (unsigned i = 0; i < 600; i += 3) {
        Supplicant(world, i).knock("unheard");
        Supplicant(world, i + 1).knock("unheard");
        Supplicant alice(world, i + 2);
        alice.knock("alice");
        world.pass(1ms);
        world.relaySends(alice.cookie(), eapSuccess(1));
    }
    EXPECT_EQ(200U, world.counters().authorized);
    EXPECT_EQ(0U, world.counters().recordsDelayed);
}

// A relay that works on one packet after the other, at a server that takes that long for each.
// Returns how many of so many logins with four rounds end well.
unsigned loginsThrough(pnac::Duration perPacket, unsigned count) {
    constexpr unsigned kRounds = 4;
    World world;
    for (unsigned i = 0; i < count; ++i) {
        Supplicant(world, i).knock("user");
    }
    std::map<uint32_t, unsigned> rounds;
    size_t next = 0;
    while (next < world.records().size() || world.authenticator().nextDeadline()) {
        world.pass(perPacket);
        if (next == world.records().size()) {
            continue;
        }
        const SentRecord record = world.records()[next++];
        if (++rounds[record.cookie] == kRounds) {
            world.relaySends(record.cookie, eapSuccess(1));
            continue;
        }
        const size_t before = world.frames().size();
        world.relaySends(record.cookie, eapRequest(record.eap[1] ^ 0x80, 4));
        if (world.frames().size() > before) {
            world.receive(eapolFrame(world.frames().back().destination, 0,
                                     eapResponse(record.eap[1] ^ 0x80, 4)));
        }
    }
    return static_cast<unsigned>(world.counters().authorized);
}

TEST(Relay, ThatTakesOnePacketAtATimeServesAll) {
    EXPECT_EQ(500U, loginsThrough(1ms, 500));
    EXPECT_EQ(200U, loginsThrough(100ms, 200));
}

TEST(Relay, ThatIsSlowIsLeftWithFewLogins) {
    EXPECT_GE(loginsThrough(1s, 200), 130U) << "all but those of the first moment";
}

}  // namespace
}  // namespace lanyard::test::waiting_test
