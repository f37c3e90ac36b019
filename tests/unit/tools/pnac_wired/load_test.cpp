// Many supplicants, floods of addresses, and frames and records without sense.
#include <utility>

#include "tests/unit/tools/pnac_wired/world.h"

namespace lanyard::test::load_test {
namespace {

using namespace std::chrono_literals;
using testing::SizeIs;

constexpr unsigned kMany = 500;

std::vector<Supplicant> supplicants(World &world, unsigned count) {
    std::vector<Supplicant> all;
    for (unsigned i = 0; i < count; ++i) {
        all.emplace_back(world, i);
    }
    return all;
}

std::string nameOf(unsigned number) {
    return "user" + std::to_string(number);
}

// All speak at once, each in every round, through a relay that takes a few packets at a time.
TEST(Load, CarriesFiveHundredLoginsAtOnce) {
    constexpr int kRounds = 10;
    constexpr int kRelayRoom = 8;
    World world;
    world.setRelayRoom(kRelayRoom);
    auto all = supplicants(world, kMany);
    for (unsigned i = 0; i < kMany; ++i) {
        all[i].start();
    }
    std::map<Mac, uint8_t> identifiers;
    for (const SentFrame &frame : world.frames()) {
        identifiers[frame.destination] = frame.eap[1];
    }
    for (unsigned i = 0; i < kMany; ++i) {
        all[i].sendEap(eapResponse(identifiers[all[i].address()], 1, fromText(nameOf(i))));
    }
    EXPECT_EQ(kMany, world.authenticator().supplicants());

    // The relay answers in the order in which it got the packets. Its requests carry the cookie, so
    // that answers show whose they are.
    size_t answered = 0;
    std::map<uint32_t, int> rounds;
    for (int step = 0; step < (kRounds + 1) * static_cast<int>(kMany); ++step) {
        ASSERT_LT(answered, world.records().size()) << "the relay is left without work";
        const SentRecord record = world.records()[answered++];
        world.setRelayRoom(1);
        if (++rounds[record.cookie] > kRounds) {
            world.relaySends(record.cookie, eapSuccess(record.eap[1]));
            continue;
        }
        const size_t frames = world.frames().size();
        world.relaySends(record.cookie, eapRequest(static_cast<uint8_t>(rounds[record.cookie]), 4));
        ASSERT_EQ(frames + 1, world.frames().size());
        const Mac address = world.frames().back().destination;
        world.receive(eapolFrame(
            address, 0, eapResponse(static_cast<uint8_t>(rounds[record.cookie]), 4, address)));
    }
    ASSERT_THAT(world.events(), SizeIs(kMany));
    std::set<std::string> names;
    for (const SeenEvent &event : world.events()) {
        EXPECT_EQ(EventKind::kAuthorized, event.kind);
        EXPECT_EQ(nameOf(event.address[4] * 256U + event.address[5]), event.identity);
        names.insert(event.identity);
    }
    EXPECT_EQ(size_t{kMany}, names.size());
    EXPECT_EQ(size_t{kMany}, rounds.size()) << "a cookie for each";
    EXPECT_FALSE(world.authenticator().awaitsRelay());
    EXPECT_EQ(0U, world.counters().eapUnexpected);
    EXPECT_GT(world.counters().recordsDelayed, 0U);
}

TEST(Load, IsBoundedAgainstAFloodOfAddresses) {
    World world({.supplicantsMax = 100});
    Supplicant alice(world, 60000);
    alice.logIn("alice");
    for (Supplicant &stranger : supplicants(world, 5000)) {
        stranger.start();
    }
    EXPECT_EQ(100U, world.authenticator().supplicants());
    EXPECT_EQ(4901U, world.counters().evicted);
    EXPECT_EQ(0U, world.counters().refused);

    Supplicant bob(world, 60001);
    bob.logIn("bob");
    ASSERT_THAT(world.events(), SizeIs(2)) << "who answers gets in";
    world.pass(1min);
    EXPECT_EQ(2U, world.authenticator().supplicants()) << "the others are forgotten";
}

// The relay of a flood: it counts ages in passes, as the real one does, and knows a conversation for
// so many of them. It answers each packet with a request.
class AgeingRelay {
  public:
    explicit AgeingRelay(World &world) : world_(world) {}

    // Answers what has come, then has an idle pass for each tenth of a second.
    void pass(milliseconds duration) {
        for (const SentRecord &record : world_.records()) {
            ++now_;
            births_.try_emplace(record.cookie, now_);
            mostAtOnce_ = std::max(mostAtOnce_, known());
            waiting_.push_back(record);
        }
        world_.forget();
        for (const SentRecord &record : std::exchange(waiting_, {})) {
            world_.relaySends(record.cookie, eapRequest(record.eap[1] ^ 0x80, 4));
        }
        now_ += static_cast<uint64_t>(duration / milliseconds(100));
        world_.pass(duration);
    }

    // The most that it has had at once.
    size_t mostAtOnce() const { return mostAtOnce_; }

  private:
    size_t known() {
        std::erase_if(births_, [this](const auto &birth) { return now_ - birth.second > 3000; });
        return births_.size();
    }

    World &world_;
    std::vector<SentRecord> waiting_;
    uint64_t now_ = 0;
    std::map<uint32_t, uint64_t> births_;
    size_t mostAtOnce_ = 0;
};

// As many as two minutes of thirty a second, from one address that gives them up in every way.
TEST(Load, OfHalfOpenLoginsOfOneAddressDoesNotPileUpAtTheRelay) {
    World world;
    AgeingRelay relay(world);
    Supplicant mallory(world, 1);
    const std::string name(253, 'm');
    size_t records = 0;
    for (int i = 0; i < 3600; ++i) {
        mallory.knock(name);
        if (i % 3 == 0) {
            mallory.logoff();  // before the relay has answered
        }
        records += world.records().size();
        relay.pass(milliseconds(i % 10 == 0 ? 300 : 0));
        if (i % 7 == 0) {
            mallory.logoff();
        }
    }
    EXPECT_EQ(3600U, records);
    EXPECT_LE(relay.mostAtOnce(), 3U);
}

// Others log in meanwhile.
TEST(Load, OfLongIdentitiesForTwoMinutesKeepsNobodyOut) {
    World world;
    Supplicant mallory(world, 1);
    const std::string name(1400, 'm');
    size_t logins = 0;
    for (int i = 0; i < 30 * 120; ++i) {
        mallory.knock(name);
        world.pass(milliseconds(1000 / 30));
        if (i % 30 == 0) {
            Supplicant alice(world, 100 + static_cast<unsigned>(i));
            alice.logIn("alice");
            logins += world.events().back().kind == EventKind::kAuthorized ? 1 : 0;
        }
        world.forget();
    }
    EXPECT_EQ(120U, logins);
    EXPECT_EQ(3600U, world.counters().identitiesTooLong);
    EXPECT_EQ(240U, world.counters().recordsSent) << "two for each login and none for the others";
}

TEST(Load, RefusesNewcomersWhenAllHaveAnswered) {
    World world({.supplicantsMax = 3});
    Supplicant(world, 1).logIn("alice");
    Supplicant(world, 2).knock("bob");
    Supplicant carol(world, 3);
    carol.knock("carol");
    Supplicant dave(world, 4);
    dave.start();
    EXPECT_EQ(1U, world.counters().refused);
    EXPECT_TRUE(dave.received().empty());
    carol.logoff();
    dave.start();
    EXPECT_THAT(dave.received(), SizeIs(1));
}

TEST(Load, RefusesNewcomersThatAnswerTheGroup) {
    World world({.supplicantsMax = 1}, World::Link::unknown);
    world.authenticator().linkUp(world.now());
    const uint8_t identifier = world.frames()[0].eap[1];
    Supplicant(world, 1).sendEap(eapResponse(identifier, 1, fromText("alice")));
    Supplicant(world, 2).sendEap(eapResponse(identifier, 1, fromText("bob")));
    EXPECT_THAT(world.records(), SizeIs(1));
    EXPECT_EQ(1U, world.counters().refused);
}

// Nothing that comes in, in whatever order, may break it: it always comes to rest.
TEST(Load, ComesToRestAfterAnySequence) {
    Random random(3);
    World world({.supplicantsMax = 20});
    std::vector<uint32_t> cookies = {0};
    for (int round = 0; round < 30000; ++round) {
        const Mac source = macOf(random.below(30));
        uint8_t identifier = random.octet();
        for (const SentFrame &frame : world.frames()) {
            if (random.below(2) == 0 && frame.destination == source) {
                identifier = frame.eap[1];
            }
        }
        for (const SentRecord &record : world.records()) {
            cookies.push_back(record.cookie);
        }
        if (cookies.size() > 40) {
            cookies.erase(cookies.begin(), cookies.end() - 40);
        }
        world.setRelayRoom(static_cast<int>(random.below(3)));
        if (world.frames().size() > 60) {
            world.forget();
        }
        const uint32_t cookie = cookies[random.below(cookies.size())];
        const auto type = static_cast<uint8_t>(1 + 3 * (random.below(2)));
        switch (random.below(12)) {
            case 0:
                world.receive(eapolFrame(source, 1, {}));
                break;
            case 1:
                world.receive(eapolFrame(source, random.below(8) == 0 ? 2 : 1, {}));
                break;
            case 2:
            case 3:
            case 4:
                world.receive(eapolFrame(source, 0, eapResponse(identifier, type, "61"_hex)));
                break;
            case 5: {
                Bytes frame = eapolFrame(source, 0, eapResponse(identifier, type, Bytes(30)));
                frame[random.below(frame.size())] = random.octet();
                frame.resize(random.below(frame.size() + 1));
                world.receive(frame);
                break;
            }
            case 6:
            case 7:
                world.relaySends(cookie, eapRequest(identifier, 4));
                break;
            case 8:
                world.relaySends(cookie,
                                 concatenate({eapSuccess(identifier),
                                              keyBlock({sessionElement(random.below(2) == 0 ? 2 : 5,
                                                                       random.below(100))})}));
                break;
            case 9:
                world.relaySends(cookie, eapFailure(identifier));
                break;
            case 10: {
                Bytes record = relayRecord(
                    cookie, concatenate({eapSuccess(1), keyBlock({keyElement(1, Bytes(8))})}));
                record[random.below(record.size())] = random.octet();
                world.authenticator().receiveRecord(record, world.now());
                break;
            }
            default:
                world.pass(milliseconds(random.below(4000)));
                break;
        }
        ASSERT_LE(world.authenticator().supplicants(), 20U);
    }
    EXPECT_GT(world.counters().authorized, 100U);
    EXPECT_GT(world.counters().failed, 100U);
    EXPECT_GT(world.counters().evicted, 0U);

    // Without another frame every attempt ends; only sessions without a time stay.
    world.setRelayRoom(0);
    world.pass(2h);
    EXPECT_FALSE(world.authenticator().awaitsRelay());
    EXPECT_FALSE(world.authenticator().nextDeadline());
    for (unsigned i = 0; i < 30; ++i) {
        Supplicant(world, i).logoff();
    }
    world.pass(12s);
    EXPECT_EQ(0U, world.authenticator().supplicants());
}

}  // namespace
}  // namespace lanyard::test::load_test
