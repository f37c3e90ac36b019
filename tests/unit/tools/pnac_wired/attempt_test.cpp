// How a supplicant logs in, or does not.
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

TEST(Attempt, AsksAgainThreeTimesForTheIdentity) {
    World world;
    Supplicant alice(world, 1);
    alice.start();
    const auto requests = [&] { return alice.received().size(); };
    EXPECT_EQ(1U, requests());
    world.pass(2999ms);
    EXPECT_EQ(1U, requests());
    world.pass(1ms);
    EXPECT_EQ(2U, requests());
    world.pass(3s);
    EXPECT_EQ(3U, requests());
    world.pass(3s);
    EXPECT_EQ(4U, requests());
    world.pass(1min);
    EXPECT_EQ(4U, requests());
    for (const Bytes &packet : alice.received()) {
        EXPECT_BYTES_EQ(alice.received()[0], packet);
    }
    EXPECT_EQ(0U, world.authenticator().supplicants());
    EXPECT_THAT(world.events(), IsEmpty()) << "nobody has said a name";
    EXPECT_FALSE(world.authenticator().nextDeadline());
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
    alice.sendEap(eapResponse(50, 4, "10"_hex));
    EXPECT_EQ(1U, world.counters().eapUnexpected) << "the old request is off";
    alice.identify("bob");
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

TEST(Attempt, SendsARequestAgainToASilentSupplicant) {
    World world;
    Supplicant alice(world, 1);
    alice.knock("alice");
    const Bytes request = eapRequest(50, 4, "10"_hex);
    world.relaySends(alice.cookie(), request);
    const size_t before = alice.received().size();
    world.pass(9s);
    ASSERT_EQ(before + 3, alice.received().size());
    EXPECT_BYTES_EQ(request, alice.received().back());
    EXPECT_THAT(world.events(), IsEmpty());
    world.pass(3s);
    EXPECT_THAT(world.events(),
                ElementsAre(Event(EventKind::kFailed, Reason::kSupplicantSilent, "alice")));
    EXPECT_EQ(before + 3, alice.received().size());
    EXPECT_EQ(0U, world.authenticator().supplicants());
    EXPECT_EQ(6U, world.counters().requestsRepeated) << "three of them to the group";
}

TEST(Attempt, CountsRepetitionsAnewForEachRequest) {
    World world;
    Supplicant alice(world, 1);
    alice.knock("alice");
    for (uint8_t round = 0; round < 5; ++round) {
        world.relaySends(alice.cookie(), eapRequest(static_cast<uint8_t>(50 + round), 4));
        world.pass(11s);
        alice.answer(4, {});
    }
    EXPECT_THAT(world.records(), SizeIs(6));
    EXPECT_THAT(world.events(), IsEmpty());
}

TEST(Attempt, WaitsAsLongAsAChallengeSays) {
    World world;
    Supplicant alice(world, 1);
    alice.knock("alice");
    world.relaySends(alice.cookie(),
                     concatenate({eapRequest(50, 6), keyBlock({sessionElement(3, 20)})}));
    const size_t before = alice.received().size();
    world.pass(19s);
    EXPECT_EQ(before, alice.received().size());
    world.pass(1s);
    EXPECT_EQ(before + 1, alice.received().size());
    world.pass(1min);
    EXPECT_EQ(before + 3, alice.received().size());
    EXPECT_THAT(world.events(),
                ElementsAre(Event(EventKind::kFailed, Reason::kSupplicantSilent, "alice")));

    world.forget();
    alice.knock("alice");
    world.relaySends(alice.cookie(),
                     concatenate({eapRequest(50, 6), keyBlock({sessionElement(3, 1)})}));
    world.pass(4s);
    EXPECT_THAT(world.events(), SizeIs(1)) << "shorter than usual, too";
}

TEST(Attempt, WaitsNeitherForEverNorNotAtAll) {
    for (const auto &[value, wait] :
         {std::pair<uint32_t, pnac::Duration>{0, 1s}, {0xffffffff, 5min}}) {
        World world;
        Supplicant alice(world, 1);
        alice.knock("alice");
        world.relaySends(alice.cookie(),
                         concatenate({eapRequest(50, 6), keyBlock({sessionElement(3, value)})}));
        world.pass(4 * wait - 1ms);
        EXPECT_THAT(world.events(), IsEmpty()) << value;
        world.pass(1ms);
        EXPECT_THAT(world.events(), SizeIs(1)) << value;
    }
}

TEST(Attempt, TakesOtherSessionTimeoutsOfAChallengeForNothing) {
    World world;
    Supplicant alice(world, 1);
    alice.knock("alice");
    world.relaySends(alice.cookie(),
                     concatenate({eapRequest(50, 6), keyBlock({sessionElement(5, 100)})}));
    world.pass(12s);
    EXPECT_THAT(world.events(), SizeIs(1));
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
}  // namespace lanyard::test::attempt_test
