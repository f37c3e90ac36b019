// The programs of a device are killed in the middle of logins and started again: the next login succeeds, those
// that live hold no more than before, and no files gather.
#include <algorithm>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "tests/e2e/end_to_end.h"
#include "tests/soak/soak.h"

namespace lanyard::test::kills_soak {
namespace {

struct Program {
    const char *name;
    pid_t (*process)(const Device &device);
    void (*killAndStart)(Device &device);
};

const std::vector<Program> kPrograms = {
    {"radeapd", [](const Device &device) { return device.relay(); },
     [](Device &device) {
         device.endRelay(SIGKILL);
         device.startRelay();
         device.db({"replay"});
     }},
    {"service", [](const Device &device) { return device.service(); },
     [](Device &device) {
         device.endService();
         device.startService();
         device.awaitRelay();
     }},
    {"authenticator", [](const Device &device) { return device.authenticator(); },
     [](Device &device) { device.startAuthenticator(); }}};

// Whom to kill: one of them, or any by chance.
std::vector<Program> victimsOf(const std::string &name) {
    std::vector<Program> victims = kPrograms;
    std::erase_if(victims, [&](const Program &any) { return name != "any" && name != any.name; });
    return victims;
}

std::vector<Program> othersThan(const std::vector<Program> &victims) {
    std::vector<Program> others = kPrograms;
    std::erase_if(others, [&](const Program &any) {
        return std::any_of(victims.begin(), victims.end(),
                           [&](const Program &victim) { return victim.process == any.process; });
    });
    return others;
}

size_t filesOf(const Device &device) {
    const std::filesystem::recursive_directory_iterator all(device.root());
    return static_cast<size_t>(std::distance(begin(all), end(all)));
}

class KillsSoak : public EndToEnd, public testing::WithParamInterface<const char *> {
  protected:
    // Each time at some moment of a login.
    void killDuringLogins(const std::vector<Program> &victims, int rounds) {
        for (int round = 0; round < rounds; ++round) {
            // Of its own: it may be told to wait after what it is in for.
            const size_t other = 1 + static_cast<size_t>(round) % kInterrupted;
            Supplicant interrupted(wire(), alice(),
                                   wire().stations(1 + kInterrupted)[other].interface);
            interrupted.awaitReady();
            interrupted.start();
            std::this_thread::sleep_for(
                std::chrono::microseconds(std::uniform_int_distribution(0, 30000)(random_)));
            std::uniform_int_distribution<size_t> any(0, victims.size() - 1);
            victims[any(random_)].killAndStart(device());
            expectLogin();
        }
    }

    static void expectLogin() {
        Supplicant supplicant(wire(), alice(), wire().stations(1)[0].interface);
        supplicant.awaitReady();
        supplicant.start();
        EXPECT_TRUE(supplicant.succeeds()) << supplicant.log();
    }

    static constexpr size_t kInterrupted = 20;

    static Account alice() { return md5Account("alice", "wonderland"); }

    std::mt19937 random_{12};  // NOLINT(cert-msc32-c,cert-msc51-cpp): a run that can be repeated
};

INSTANTIATE_TEST_SUITE_P(Programs, KillsSoak,
                         testing::Values("radeapd", "service", "authenticator", "any"),
                         [](const auto &row) { return std::string(row.param); });

TEST_P(KillsSoak, KilledAgainAndAgain_NextLoginSucceedsAndOthersHoldNoMore) {
    const std::vector<Program> victims = victimsOf(GetParam());
    const std::vector<Program> others = othersThan(victims);
    device().startAuthenticator();
    expectLogin();
    killDuringLogins(victims, 3);
    std::vector<Footprint> early;
    early.reserve(others.size());
    for (const Program &other : others) {
        early.push_back(footprintOf(other.process(device())));
    }
    const size_t files = filesOf(device());
    killDuringLogins(victims, isWholeSoak() ? 100 : 3);
    for (size_t i = 0; i < others.size(); ++i) {
        expectNoMore(std::string(others[i].name) + ", " + GetParam() + " killed", early[i],
                     footprintOf(others[i].process(device())));
    }
    EXPECT_EQ(files, filesOf(device()));
}

}  // namespace
}  // namespace lanyard::test::kills_soak
