// The lock on the runs of the NT-Response program: whom it keeps out, and where it stands.
#include "login/nt_response_lock.h"

#include <atomic>
#include <csignal>
#include <filesystem>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "tests/support/test.h"
#include "tools/file_descriptor.h"

namespace lanyard::test::nt_response_lock_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// Enough for a few attempts; a lock that cannot be had is waited for in vain that long.
constexpr int kShortWait = 30;

const std::string kFolder = "lanyard-" + std::to_string(geteuid());

class ResponseLock : public testing::Test {
  protected:
    // What stands in the folder of the locks.
    [[nodiscard]] std::vector<std::string> locks() const { return root_.list("/" + kFolder); }

    void setMode(const char *devicePath, mode_t mode) const {
        ASSERT_EQ(0, chmod(root_.path(devicePath).c_str(), mode));
    }

    static bool canBeHad(const char *userName) {
        return NtResponseLock(userName, kShortWait).isHeld();
    }

    TemporaryRoot root_;
};

TEST_F(ResponseLock, KeepsOutItsOwnNameAlone) {
    const NtResponseLock lock("nemo");
    EXPECT_TRUE(lock.isHeld());
    EXPECT_FALSE(canBeHad("nemo"));
    EXPECT_TRUE(canBeHad("nem"));
    EXPECT_TRUE(canBeHad("nemo2"));
    EXPECT_TRUE(canBeHad(""));
}

TEST_F(ResponseLock, IsGivenBack) {
    for (int runs = 0; runs < 3; ++runs) {
        EXPECT_TRUE(canBeHad("nemo"));
    }
}

TEST_F(ResponseLock, LeavesItsFolderAlone) {
    EXPECT_TRUE(canBeHad("nemo"));
    EXPECT_THAT(root_.list("/"), ElementsAre(kFolder));
    EXPECT_THAT(locks(), IsEmpty());
    {
        const NtResponseLock lock("nemo");
        EXPECT_FALSE(canBeHad("nemo"));
        EXPECT_TRUE(canBeHad("other"));
        EXPECT_EQ(1U, locks().size()) << "that of the lock that is held";
    }
    EXPECT_THAT(locks(), IsEmpty());
}

TEST_F(ResponseLock, FolderIsClosedToOthersWhateverTheUmask) {
    root_.makeFolder("/run");
    const mode_t before = umask(0);
    {
        const NtResponseLock lock("nemo");
        EXPECT_EQ(0700U, root_.mode("/run/" + kFolder));
    }
    umask(before);
}

TEST_F(ResponseLock, WaitsForItsTurn) {
    auto first = std::make_unique<NtResponseLock>("nemo");
    std::atomic<bool> isReleased = false;
    std::thread second([&] {
        const NtResponseLock lock("nemo");
        EXPECT_TRUE(lock.isHeld());
        EXPECT_TRUE(isReleased);
    });
    EXPECT_FALSE(canBeHad("nemo"));
    isReleased = true;
    first.reset();
    second.join();
}

TEST_F(ResponseLock, OneOfManyThreadsIsInside) {
    constexpr int kThreads = 8;
    constexpr int kTurns = 25;
    std::atomic<int> inside = 0;
    std::atomic<int> turns = 0;
    std::vector<std::thread> threads;
    threads.reserve(kThreads);
    for (int thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([&] {
            for (int turn = 0; turn < kTurns; ++turn) {
                const NtResponseLock lock("nemo");
                ASSERT_TRUE(lock.isHeld());
                EXPECT_EQ(1, ++inside);
                std::this_thread::yield();
                --inside;
                ++turns;
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(kThreads * kTurns, turns);
    EXPECT_THAT(locks(), IsEmpty());
}

// Attempts without a pause meet the moment in which a holder removes the file and gives it back.
TEST_F(ResponseLock, OneIsInsideWhoeverRemovesTheFile) {
    constexpr int kThreads = 4;
    constexpr int kAttempts = 5000;
    std::atomic<int> inside = 0;
    std::atomic<int> crowds = 0;
    std::atomic<int> turns = 0;
    std::vector<std::thread> threads;
    threads.reserve(kThreads);
    for (int thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([&] {
            for (int attempt = 0; attempt < kAttempts; ++attempt) {
                const NtResponseLock lock("nemo", 0);
                if (lock.isHeld()) {
                    crowds += ++inside > 1 ? 1 : 0;
                    std::this_thread::yield();
                    --inside;
                    ++turns;
                }
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(0, crowds);
    EXPECT_LT(0, turns);
}

// --- Other processes ------------------------------------------------------------------------------

// A process that does something, says so, and stands still until it is killed.
class Bystander {
  public:
    template <typename Action>
    explicit Bystander(Action action) {
        Pipe pipe;
        pid_ = fork();
        if (pid_ == 0) {
            action([&] {
                EXPECT_EQ(1, write(pipe.writeEnd.get(), "", 1));
                for (;;) {
                    pause();
                }
            });
            _exit(0);
        }
        pipe.writeEnd.reset();
        char ready = 0;
        EXPECT_EQ(1, read(pipe.readEnd.get(), &ready, 1));
    }
    Bystander(const Bystander &) = delete;
    Bystander &operator=(const Bystander &) = delete;
    ~Bystander() {
        if (pid_ > 0) {
            EXPECT_EQ(0, kill(pid_, SIGKILL));
            EXPECT_EQ(pid_, waitpid(pid_, nullptr, 0));
        }
    }

  private:
    pid_t pid_ = -1;
};

TEST_F(ResponseLock, IsHeldAgainstOtherProcessesUntilTheHolderEndsWhateverWay) {
    {
        const Bystander holder([](auto standStill) {
            const NtResponseLock lock("nemo");
            if (lock.isHeld()) {
                standStill();
            }
        });
        EXPECT_FALSE(canBeHad("nemo"));
        EXPECT_TRUE(canBeHad("other"));
    }
    EXPECT_EQ(1U, locks().size()) << "a killed process cannot clear up";
    EXPECT_TRUE(canBeHad("nemo"));
    EXPECT_THAT(locks(), IsEmpty());
}

TEST_F(ResponseLock, IsNotCarriedAwayByAFork) {
    auto lock = std::make_unique<NtResponseLock>("nemo");
    const Bystander child([](auto standStill) { standStill(); });
    EXPECT_FALSE(canBeHad("nemo"));
    lock.reset();
    EXPECT_TRUE(canBeHad("nemo"));
}

// --- The place ------------------------------------------------------------------------------------

TEST_F(ResponseLock, StandsInTheFirstFolderThatIsThere) {
    for (const char *parent : {"", "/var", "/var/run", "/run"}) {
        SCOPED_TRACE(parent);
        root_.makeFolder(std::string(parent) + "/");
        const NtResponseLock lock("nemo");
        ASSERT_TRUE(lock.isHeld());
        EXPECT_TRUE(root_.exists(std::string(parent) + "/" + kFolder));
    }
}

TEST_F(ResponseLock, SkipsAFolderInWhichOthersCanReplaceIt) {
    root_.makeFolder("/run");
    root_.makeFolder("/var");
    for (const mode_t mode : {0777U, 0775U, 0757U}) {
        setMode("/run", mode);
        const NtResponseLock lock("nemo");
        EXPECT_TRUE(root_.exists("/var/" + kFolder)) << mode;
        EXPECT_THAT(root_.list("/run"), IsEmpty());
    }
    setMode("/run", 01777);
    const NtResponseLock lock("nemo");
    EXPECT_TRUE(root_.exists("/run/" + kFolder));
}

TEST_F(ResponseLock, SkipsAFolderOfItsNameThatOthersCanEnter) {
    root_.makeFolder("/run/" + kFolder);
    root_.makeFolder("/var");
    for (const mode_t mode : {0755U, 0701U, 0740U}) {
        setMode(("/run/" + kFolder).c_str(), mode);
        const NtResponseLock lock("nemo");
        EXPECT_TRUE(root_.exists("/var/" + kFolder)) << mode;
        EXPECT_THAT(root_.list("/run/" + kFolder), IsEmpty());
    }
    setMode(("/run/" + kFolder).c_str(), 0700);
    const NtResponseLock lock("nemo");
    EXPECT_THAT(root_.list("/var/" + kFolder), IsEmpty());
    EXPECT_EQ(1U, root_.list("/run/" + kFolder).size());
}

TEST_F(ResponseLock, FollowsNoLinks) {
    root_.makeFolder("/elsewhere");
    root_.makeFolder("/var");
    std::filesystem::create_symlink(root_.path("/elsewhere"), root_.path("/run"));
    std::filesystem::create_symlink(root_.path("/elsewhere"), root_.path("/var/" + kFolder));
    const NtResponseLock lock("nemo");
    EXPECT_TRUE(lock.isHeld());
    EXPECT_THAT(root_.list("/elsewhere"), IsEmpty());
    EXPECT_TRUE(root_.exists("/" + kFolder));
}

TEST_F(ResponseLock, CannotBeHadWithoutAPlace) {
    setMode("/", 0777);
    EXPECT_FALSE(canBeHad("nemo"));
    EXPECT_THAT(root_.list("/"), IsEmpty());
}

TEST_F(ResponseLock, FolderOfAnotherUserIsNoPlace) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can give a folder away";
    }
    constexpr uid_t kNobody = 65534;
    for (const char *folder : {"/run", "/var/lanyard-0"}) {
        root_.makeFolder(folder);
        setMode(folder, 0700);
        ASSERT_EQ(0, chown(root_.path(folder).c_str(), kNobody, kNobody));
    }
    const NtResponseLock lock("nemo");
    EXPECT_TRUE(lock.isHeld());
    EXPECT_TRUE(root_.exists("/lanyard-0"));
    EXPECT_THAT(root_.list("/run"), IsEmpty());
    EXPECT_THAT(root_.list("/var/lanyard-0"), IsEmpty());
}

}  // namespace
}  // namespace lanyard::test::nt_response_lock_test
