// The programs that are run on events: real ones, shell scripts in a temporary folder.
#include "tools/pnac_wired/programs.h"

#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/support/temporary_root.h"
#include "tests/unit/tools/pnac_wired/world.h"

namespace lanyard::test::programs_test {
namespace {

using namespace std::chrono_literals;
using pnac::Programs;

pnac::Event eventOf(EventKind kind, unsigned number, ByteView identity) {
    return {.kind = kind,
            .reason = kind == EventKind::kAuthorized ? Reason::kAccepted : Reason::kLogoff,
            .address = macOf(number),
            .identity = identity};
}

class ProgramsTest : public testing::Test {
  protected:
    // Writes a script and yields its path.
    std::string script(const char *name, const std::string &text) {
        root_.write(name, "#!/bin/sh\ncd '" + root_.folder().string() + "'\n" + text, 0755);
        return root_.path(name).string();
    }

    static Programs programs(const std::string &onAuthorized,
                             const std::string &onUnauthorized = {}, Programs::Limits limits = {}) {
        return Programs({.interface = "eth0",
                         .onAuthorized = onAuthorized,
                         .onUnauthorized = onUnauthorized,
                         .limits = limits});
    }

    // Waits until one has ended; until all have.
    void finishOne(Programs &programs) {
        siginfo_t ended = {};
        ASSERT_EQ(0, waitid(P_ALL, 0, &ended, WEXITED | WNOWAIT));
        programs.reap(now_);
    }
    void finish(Programs &programs) {
        while (!programs.idle()) {
            finishOne(programs);
        }
    }

    TemporaryRoot root_;
    const pnac::Time now_{1h};
};

TEST_F(ProgramsTest, AreToldAllInTheirEnvironment) {
    setenv("PNAC_STALE", "1", 1);
    Programs running =
        programs(script("/on", "env | grep ^PNAC_ | sort > told\necho $# >> told\n"));
    unsetenv("PNAC_STALE");
    running.run(eventOf(EventKind::kAuthorized, 1, fromText("alice")), now_);
    finish(running);
    EXPECT_EQ(
        "PNAC_ADDRESS=02:10:00:00:00:01\n"
        "PNAC_EVENT=authorized\n"
        "PNAC_IDENTITY=alice\n"
        "PNAC_IDENTITY_HEX=616c696365\n"
        "PNAC_INTERFACE=eth0\n"
        "PNAC_REASON=accepted\n"
        "PNAC_REAUTHENTICATION=0\n"
        "0\n",
        root_.read("/told"));
}

TEST_F(ProgramsTest, AreToldTheVlan) {
    Programs running = programs(script("/on", "env | grep ^PNAC_VLAN > told\n"));
    const Bytes alice = fromText("alice");
    const Bytes vlan = fromText("120\n");
    pnac::Event event = eventOf(EventKind::kAuthorized, 1, alice);
    event.keyInfo.vlan = vlan;
    running.run(event, now_);
    finish(running);
    EXPECT_EQ("PNAC_VLAN=120\\x0a\n", root_.read("/told"));
}

TEST_F(ProgramsTest, AreNotHandedToAShell) {
    const std::string path = script("/on authorized; touch harm", "touch ran\n");
    Programs running = programs(path);
    running.run(eventOf(EventKind::kAuthorized, 1, fromText("$(touch harm)`touch harm`\nX=1")),
                now_);
    finish(running);
    EXPECT_TRUE(root_.exists("/ran"));
    EXPECT_FALSE(root_.exists("/harm"));
}

TEST_F(ProgramsTest, SeeAnIdentityOnOneLine) {
    Programs running = programs(script("/on", "printf %s \"$PNAC_IDENTITY\" > told\n"));
    running.run(eventOf(EventKind::kAuthorized, 1, fromHex("61 0a 00 62")), now_);
    finish(running);
    EXPECT_EQ("a\\x0a\\x00b", root_.read("/told"));
}

TEST_F(ProgramsTest, AreForTheEventsThatTheyAreFor) {
    Programs running =
        programs(script("/on", "echo on >> order\n"), script("/off", "echo off >> order\n"));
    running.run(eventOf(EventKind::kAuthorized, 1, {}), now_);
    finish(running);
    running.run(eventOf(EventKind::kFailed, 1, {}), now_);
    EXPECT_TRUE(running.idle());
    running.run(eventOf(EventKind::kUnauthorized, 1, {}), now_);
    finish(running);
    EXPECT_EQ("on\noff\n", root_.read("/order"));

    Programs none = programs({});
    none.run(eventOf(EventKind::kAuthorized, 1, {}), now_);
    none.run(eventOf(EventKind::kUnauthorized, 1, {}), now_);
    EXPECT_TRUE(none.idle());
}

TEST_F(ProgramsTest, OfOneAddressRunOneAfterTheOther) {
    // The first one runs until the gate opens.
    ASSERT_EQ(0, mkfifo(root_.path("/gate").c_str(), 0600));
    Programs running = programs(script("/on", "read -r open < gate\necho on >> order\n"),
                                script("/off", "echo off >> order\n"));
    running.run(eventOf(EventKind::kAuthorized, 1, {}), now_);
    running.run(eventOf(EventKind::kUnauthorized, 1, {}), now_);
    EXPECT_EQ(1U, running.running());
    running.run(eventOf(EventKind::kUnauthorized, 2, {}), now_);
    EXPECT_EQ(2U, running.running());
    finishOne(running);
    EXPECT_EQ("off\n", root_.read("/order")) << "another address does not wait";
    root_.write("/gate", "open\n");
    finish(running);
    EXPECT_EQ("off\non\noff\n", root_.read("/order"));
}

TEST_F(ProgramsTest, BehindARunningOneOnlyTheLatestCounts) {
    ASSERT_EQ(0, mkfifo(root_.path("/gate").c_str(), 0600));
    Programs running =
        programs(script("/on", "read -r open < gate\necho $PNAC_IDENTITY >> order\n"),
                 script("/off", "echo off >> order\n"));
    running.run(eventOf(EventKind::kAuthorized, 1, fromText("first")), now_);
    for (int i = 0; i < 100; ++i) {
        running.run(eventOf(EventKind::kAuthorized, 1, fromText("between")), now_);
    }
    running.run(eventOf(EventKind::kUnauthorized, 1, {}), now_);
    root_.write("/gate", "open\n");
    finish(running);
    EXPECT_EQ("first\noff\n", root_.read("/order"));
}

TEST_F(ProgramsTest, RunABoundedNumberAtATime) {
    ASSERT_EQ(0, mkfifo(root_.path("/gate").c_str(), 0600));
    Programs running =
        programs(script("/on", "read -r open < gate\necho >> order\n"), {}, {.runningMax = 3});
    for (unsigned i = 0; i < 10; ++i) {
        running.run(eventOf(EventKind::kAuthorized, i, {}), now_);
    }
    EXPECT_EQ(3U, running.running());
    running.startAll(now_);
    EXPECT_EQ(10U, running.running());
    // A reader that was late would find the gate closed again: hold it open.
    std::string all;
    for (int i = 0; i < 10; ++i) {
        all += "open\n";
    }
    const int gate = open(root_.path("/gate").c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_LT(0, gate);
    ASSERT_EQ(static_cast<ssize_t>(all.size()), write(gate, all.data(), all.size()));
    finish(running);
    close(gate);
    EXPECT_EQ(std::string(10, '\n'), root_.read("/order"));
}

TEST_F(ProgramsTest, ThatHangAreOvertakenAtTheEnd) {
    Programs running = programs(script("/on", "sleep 1000\ntouch survived\n"),
                                script("/off", "echo $PNAC_ADDRESS >> order\n"));
    running.run(eventOf(EventKind::kAuthorized, 1, {}), now_);
    running.run(eventOf(EventKind::kUnauthorized, 1, {}), now_);
    running.startAll(now_);
    EXPECT_EQ(1U, running.running()) << "its time has not come";
    running.overtake(now_);
    EXPECT_EQ(1U, running.running());
    finish(running);
    EXPECT_EQ("02:10:00:00:00:01\n", root_.read("/order"));
    int status = 0;
    EXPECT_LT(0, waitpid(-1, &status, 0)) << "the one that hung";
    EXPECT_TRUE(WIFSIGNALED(status));
    EXPECT_FALSE(root_.exists("/survived"));
}

TEST_F(ProgramsTest, ThatCannotBeRunAreForgotten) {
    root_.write("/notes", "no program", 0644);
    Programs running = programs(root_.path("/notes").string());
    testing::internal::CaptureStderr();
    running.run(eventOf(EventKind::kAuthorized, 1, {}), now_);
    EXPECT_EQ("pnac-wired: cannot run " + root_.path("/notes").string() + ": Permission denied\n",
              testing::internal::GetCapturedStderr());
    EXPECT_TRUE(running.idle());
    EXPECT_EQ(0U, running.running());
}

TEST_F(ProgramsTest, ThatHangAreKilledWithTheirChildren) {
    Programs running =
        programs(script("/on", "sleep 1000 | cat\ntouch survived\n"), {}, {.lifetime = 10s});
    running.run(eventOf(EventKind::kAuthorized, 1, {}), now_);
    ASSERT_EQ(now_ + 10s, running.nextDeadline());
    running.tick(now_ + 10s - 1ms);
    running.reap(now_ + 10s);
    EXPECT_EQ(1U, running.running());
    running.tick(now_ + 10s);
    finish(running);
    EXPECT_FALSE(root_.exists("/survived"));
    running.tick(now_ + 1h);
    EXPECT_FALSE(running.nextDeadline());
}

TEST_F(ProgramsTest, HaveNoSignalBlocked) {
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    sigprocmask(SIG_BLOCK, &all, &before);
    Programs running = programs(script("/on", "grep ^SigBlk: /proc/self/status > told\n"));
    running.run(eventOf(EventKind::kAuthorized, 1, {}), now_);
    sigprocmask(SIG_SETMASK, &before, nullptr);
    finish(running);
    EXPECT_EQ("SigBlk:\t0000000000000000\n", root_.read("/told"));
}

}  // namespace
}  // namespace lanyard::test::programs_test
