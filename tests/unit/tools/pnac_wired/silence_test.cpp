// A supplicant that is silent in a login: when it is sent a request again, and when it is given up.
#include <utility>

#include "tests/unit/tools/pnac_wired/world.h"

namespace lanyard::test::silence_test {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

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

}  // namespace
}  // namespace lanyard::test::silence_test
