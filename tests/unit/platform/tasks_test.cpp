// Tasks, which are processes with a name.
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <sys/prctl.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include <palcore.h>

#include "tests/unit/platform/role.h"
#include "tests/unit/platform/signals.h"
#include "tools/file_descriptor.h"

namespace lanyard::test::tasks_test {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

// A name that no other process on the machine has.
std::string uniqueName(const char *suffix) {
    return "pt" + std::to_string(getpid()) + suffix;
}

void setTaskName(const std::string &name) {
    palDaemonOpt = {};
    name.copy(palDaemonOpt.taskName, sizeof palDaemonOpt.taskName - 1);
}

// A process that prepares itself, reports its id and then waits until it is let go.
class OtherProcess {
  public:
    // `prepare` runs in the process; it may fork and leave the rest to its child.
    explicit OtherProcess(const std::function<void()> &prepare) {
        Pipe report;
        child_ = fork();
        if (child_ == 0) {
            report.readEnd.reset();
            hold_.writeEnd.reset();
            prctl(PR_SET_PDEATHSIG, SIGKILL);  // A process that hangs ends with the test.
            prepare();
            const pid_t self = getpid();
            char byte = 0;
            _exit(write(report.writeEnd.get(), &self, sizeof self) == sizeof self &&
                          read(hold_.readEnd.get(), &byte, 1) == 0
                      ? 0
                      : 1);
        }
        report.writeEnd.reset();
        hold_.readEnd.reset();
        EXPECT_EQ(static_cast<ssize_t>(sizeof id_), read(report.readEnd.get(), &id_, sizeof id_));
    }
    ~OtherProcess() {
        letGo();
        reap();
    }
    OtherProcess(const OtherProcess &) = delete;
    OtherProcess &operator=(const OtherProcess &) = delete;
    OtherProcess(OtherProcess &&) = delete;
    OtherProcess &operator=(OtherProcess &&) = delete;

    pid_t id() const { return id_; }

    void letGo() { hold_.writeEnd.reset(); }

    // Waits for the end of the process but leaves it a zombie.
    void awaitZombie() {
        letGo();
        siginfo_t info{};
        EXPECT_EQ(0, waitid(P_PID, static_cast<id_t>(child_), &info, WEXITED | WNOWAIT));
    }

    void reap() {
        if (child_ != -1) {
            waitpid(child_, nullptr, 0);
            child_ = -1;
        }
    }

  private:
    pid_t child_ = -1;
    pid_t id_ = -1;
    Pipe hold_;
};

// As the relay's handler of SIGTERM does, but not for ever.
bool awaitGone(const std::string &name) {
    const auto deadline = Clock::now() + std::chrono::seconds(10);
    while (palTaskNameToId(name.c_str()) != -1) {
        if (Clock::now() > deadline) {
            return false;
        }
        palTaskDelay(1);
    }
    return true;
}

TEST(Tasks, Daemon_FoundByItsTaskName) {
    const std::string name = uniqueName("d");
    OtherProcess other([&name] {
        setTaskName(name);
        if (daemon(1, 1) != 0) {
            _exit(1);
        }
    });
    EXPECT_EQ(other.id(), palTaskNameToId(name.c_str()));
    EXPECT_EQ(-1, palTaskNameToId(name.substr(0, name.size() - 1).c_str()));
    EXPECT_EQ(-1, palTaskNameToId((name + "x").c_str()));
    other.letGo();
    EXPECT_TRUE(awaitGone(name));
}

TEST(Tasks, ProcessInTheForeground_FoundAfterItsFirstTaskCall) {
    const std::string name = uniqueName("f");
    const OtherProcess other([&name] {
        setTaskName(name);
        // From a thread as well it is the process that gets the name.
        std::thread([] { palTaskDelay(0); }).join();
    });
    EXPECT_EQ(other.id(), palTaskNameToId(name.c_str()));
}

TEST(Tasks, LongName_FifteenBytesCount) {
    const std::string name = (uniqueName("l") + "0123456789abcdef").substr(0, 15);
    const OtherProcess other([&name] {
        setTaskName(name);
        palTaskDelay(0);
    });
    EXPECT_EQ(other.id(), palTaskNameToId(name.c_str()));
    EXPECT_EQ(other.id(), palTaskNameToId((name + "more").c_str()));
}

TEST(Tasks, NameWithParenthesesAndSpaces_Found) {
    const std::string name = uniqueName(") (");
    const OtherProcess other([&name] {
        setTaskName(name);
        palTaskDelay(0);
    });
    EXPECT_EQ(other.id(), palTaskNameToId(name.c_str()));
    EXPECT_EQ(-1, palTaskNameToId(uniqueName("").c_str()));
}

TEST(Tasks, NoTaskName_KeepsTheNameOfTheProcess) {
    palTaskDelay(0);
    char name[17] = "";
    prctl(PR_GET_NAME, name);
    EXPECT_EQ("platform_test", std::string(name));
}

TEST(Tasks, OwnName_NotFound) {
    const OtherProcess other([] {
        const std::string name = uniqueName("s");
        setTaskName(name);
        bool alone = palTaskNameToId(name.c_str()) == -1;
        std::thread([&] {
            alone = alone && palTaskNameToId(name.c_str()) == -1;
            prctl(PR_SET_NAME, name.c_str());
            alone = alone && palTaskNameToId(name.c_str()) == -1;
        }).join();
        if (!alone) {
            _exit(1);
        }
    });
    EXPECT_GT(other.id(), 0) << "it found itself";
}

TEST(Tasks, EndedTaskThatIsNotReaped_NotFound) {
    const std::string name = uniqueName("z");
    OtherProcess other([&name] {
        setTaskName(name);
        palTaskDelay(0);
    });
    EXPECT_EQ(other.id(), palTaskNameToId(name.c_str()));
    other.awaitZombie();
    EXPECT_EQ(-1, palTaskNameToId(name.c_str()));
}

TEST(Tasks, ProcessOfAnotherUser_NotFound) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can start a process of another user";
    }
    const std::string name = uniqueName("u");
    const OtherProcess other([&name] {
        setTaskName(name);
        palTaskDelay(0);
        if (setuid(65534) != 0) {
            _exit(1);
        }
        // Changing the user hides a process from /proc; make it look like any other again.
        prctl(PR_SET_DUMPABLE, 1);
    });
    ASSERT_GT(other.id(), 0);
    EXPECT_EQ(-1, palTaskNameToId(name.c_str()));
}

TEST(Tasks, NullEmptyOrUnknownName_NotFound) {
    EXPECT_EQ(-1, palTaskNameToId(nullptr));
    EXPECT_EQ(-1, palTaskNameToId(""));
    EXPECT_EQ(-1, palTaskNameToId(uniqueName("none").c_str()));
}

TEST(Tasks, DelayWithSignals_LastsAsLongAsAsked) {
    const auto start = Clock::now();
    {
        const Interruptions interruptions(20, [] {});
        EXPECT_EQ(0, palTaskDelay(50));
        EXPECT_GE(Clock::now() - start, milliseconds(50));
    }
}

TEST(Tasks, DelayOfNothing_ReturnsAtOnce) {
    EXPECT_EQ(0, palTaskDelay(0));
    EXPECT_EQ(0, palTaskDelay(-1));
}

TEST(Tasks, AnyCall_LeavesErrnoAlone) {
    errno = EXDEV;
    EXPECT_EQ(-1, palTaskNameToId(uniqueName("none").c_str()));
    EXPECT_EQ(EXDEV, errno);
    palTaskDelay(1);
    EXPECT_EQ(EXDEV, errno);
}

volatile std::sig_atomic_t handlerRuns = 0;

void pollFromHandler(int /*signal*/) {
    palTaskDelay(1);
    if (palTaskNameToId("tNoSuchTask") == -1) {
        handlerRuns = handlerRuns + 1;
    }
}

TEST(Tasks, CallsInASignalHandler_ComeBack) {
    // The handler breaks into the allocator, the partitions and the log; if it needed any of their
    // locks the process would stand still.
    const OtherProcess other([] {
        struct sigaction action {};
        action.sa_handler = pollFromHandler;
        action.sa_flags = SA_RESTART;
        sigaction(SIGALRM, &action, nullptr);
        // Each shot is fired by the loop, or a slow handler would leave it no time at all.
        const itimerval soon{{0, 0}, {0, 200}};
        for (int fired = 0; fired < 20; ++fired) {
            const int before = handlerRuns;
            setitimer(ITIMER_REAL, &soon, nullptr);
            while (handlerRuns == before) {
                palMemPartFree(0, palMemPartAlloc(0, 64));
                palModuleDebug(7, 128, "test", 1, "not shown\n");
                if (DIR *folder = opendir("/proc")) {
                    closedir(folder);
                }
            }
        }
    });
    EXPECT_GT(other.id(), 0) << "the process did not come through";
}

}  // namespace
}  // namespace lanyard::test::tasks_test
