// The service and the relay are killed at any moment while rows change: the file is whole and its
// owner's alone at every look, and file, relay and table agree soon after.
//
// LANYARD_KILL_ROUNDS sets how often each is killed, 10 times without it.
#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <iostream>
#include <random>
#include <sys/stat.h>
#include <thread>
#include <tuple>

#include "tests/unit/tools/lanyardctl/serve_fixture.h"
#include "tools/file_descriptor.h"

namespace lanyard::test::kill_test {
namespace {

using Clock = std::chrono::steady_clock;

int killRounds() {
    constexpr int kRounds = 10;
    const char *rounds = std::getenv("LANYARD_KILL_ROUNDS");
    return rounds ? std::stoi(rounds) : kRounds;
}

// Looks at the file without a pause, from when it is there.
class Looker {
  public:
    explicit Looker(std::filesystem::path file) : file_(std::move(file)) {}
    ~Looker() { stop(); }
    Looker(const Looker &) = delete;
    Looker &operator=(const Looker &) = delete;
    Looker(Looker &&) = delete;
    Looker &operator=(Looker &&) = delete;

    // What was wrong with it, "" for nothing.
    const std::string &stop() {
        ends_ = true;
        if (thread_.joinable()) {
            thread_.join();
        }
        return wrong_;
    }
    [[nodiscard]] int looks() const { return looks_; }

  private:
    void look() {
        const int opened = open(file_.c_str(), O_RDONLY | O_CLOEXEC);
        if (opened < 0) {
            wrong_ += "it is not there\n";
            return;
        }
        const FileDescriptor file(opened, file_);
        struct stat status {};
        fstat(file.get(), &status);
        if ((status.st_mode & 07777U) != 0600U) {
            wrong_ += "others may read it\n";
        }
        std::array<char, 4096> buffer{};
        const ssize_t length = read(file.get(), buffer.data(), buffer.size());
        const std::string text(buffer.data(), static_cast<size_t>(std::max<ssize_t>(length, 0)));
        if (!text.starts_with("authserver        h0:") ||
            !text.ends_with("\ndictionary        /nexa2.0/etc/radius.dict\n")) {
            wrong_ += "it holds '" + text + "'\n";
        }
    }

    std::filesystem::path file_;
    std::string wrong_;
    std::atomic<int> looks_{0};
    std::atomic<bool> ends_{false};
    std::thread thread_{[this] {
        for (; !ends_ && wrong_.empty(); ++looks_) {
            look();
        }
    }};
};

class Kill : public ServedProcesses,
             public testing::WithParamInterface<std::tuple<const char *, const char *>> {
  protected:
    int pick(int count) { return std::uniform_int_distribution<int>(0, count - 1)(random_); }
    void pause(int most) { std::this_thread::sleep_for(std::chrono::microseconds(pick(most))); }

    // A change of one of the servers, or a new one where there is none. h0 stays the first.
    void changeSomething() {
        const std::string host = "h" + std::to_string(1 + pick(7));
        const std::string where = " WHERE authserver='" + host + "'";
        switch (pick(5)) {
            case 0:
            case 1:
                device_.change("INSERT INTO radiusClient SELECT '" + host +
                               "','1812','s','5','3' WHERE NOT EXISTS(SELECT 1 FROM radiusClient" +
                               where + ")");
                break;
            case 2:
                device_.change("UPDATE radiusClient SET authsecret=authsecret || 'x'" + where +
                               " AND length(authsecret) < 30");
                break;
            case 3:
                device_.change("UPDATE radiusClient SET authport=authport+1 WHERE authserver='h0'");
                break;
            default:
                device_.change("DELETE FROM radiusClient" + where);
                break;
        }
    }

    void killRelay() {
        if (const auto relay = viewer_.look()) {
            pause(20000);
            kill(relay->process, SIGKILL);
        }
    }

    void expectFilesPrivate() const {
        for (const char *file : {"/config.db", "/config.db-wal", "/config.db-journal"}) {
            if (device_.root().exists(file)) {
                EXPECT_EQ(0600U, device_.root().mode(file)) << file;
            }
        }
    }

    std::mt19937 random_{7};  // NOLINT(cert-msc32-c,cert-msc51-cpp): the same changes each time
};

TEST_P(Kill, AtAnyMomentLosesNothing) {
    const auto &[journal, victim] = GetParam();
    const bool killsService = std::string("service") == victim;
    device_.db().run(std::string("PRAGMA journal_mode=") + journal);
    device_.db().run("PRAGMA synchronous=OFF");
    device_.change(insertion("h0"));
    const mode_t mask = umask(0);
    startService();
    startRelay();
    expectAllDone();
    Looker looker(device_.root().path("/var/radius.conf"));
    std::chrono::milliseconds longest{0};
    for (int round = 0; round < killRounds() && !HasFailure(); ++round) {
        const int killAt = pick(6);
        for (int i = 0; i < 6; ++i) {
            changeSomething();
            pause(20000);
            if (i == killAt && killsService) {
                killService();
                startService();
            } else if (i == killAt) {
                killRelay();
            }
        }
        const auto quiet = Clock::now();
        expectAllDone();
        expectFilesPrivate();
        longest = std::max(
            longest, std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - quiet));
    }
    umask(mask);
    EXPECT_EQ("", looker.stop());
    EXPECT_GT(looker.looks(), 0);
    std::cout << journal << ", " << victim << " killed " << killRounds()
              << " times: " << looker.looks() << " looks at the file, in order after "
              << longest.count() << " ms at most\n";
}

INSTANTIATE_TEST_SUITE_P(All, Kill,
                         testing::Combine(testing::Values("DELETE", "WAL"),
                                          testing::Values("service", "relay")));

}  // namespace
}  // namespace lanyard::test::kill_test
