// Programs that the port runs.
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <palcore.h>
#include <palroot.h>

#include "tests/support/temporary_folder.h"
#include "tests/unit/platform/role.h"
#include "tests/unit/platform/signals.h"
#include "tools/file_descriptor.h"

namespace lanyard::test::programs_test {
namespace {

namespace fs = std::filesystem;

// Runs this program in a role by palCmdExecArgv().
int runProgram(std::string program, const std::string &role,
               std::vector<std::string> arguments = {}) {
    std::vector<std::string> texts{std::move(program), kRoleOption, role};
    texts.insert(texts.end(), arguments.begin(), arguments.end());
    std::vector<char *> argv;
    argv.reserve(texts.size() + 1);
    for (std::string &text : texts) {
        argv.push_back(text.data());
    }
    argv.push_back(nullptr);
    return palCmdExecArgv(argv.data(), 0, 0);
}

const Role exitRole("exit-with", [](const std::vector<std::string> &arguments) {
    return std::stoi(arguments.at(0));
});

TEST(Programs, Exit_ReturnsTheStatus) {
    for (const int status : {0, 1, 7, 255}) {
        EXPECT_EQ(status, runProgram(selfPath(), "exit-with", {std::to_string(status)}));
    }
}

const Role argumentsRole("expect-arguments", [](const std::vector<std::string> &arguments) {
    const std::vector<std::string> expected{"", "two words", "$HOME;*`id`", "\xff\x01"};
    return arguments == expected ? 0 : 1;
});

TEST(Programs, Arguments_ArriveWithoutAShell) {
    EXPECT_EQ(0, runProgram(selfPath(), "expect-arguments",
                            {"", "two words", "$HOME;*`id`", "\xff\x01"}));
}

TEST(Programs, ProgramThatCannotBeRun_ReturnsMinusOne) {
    for (const auto &[program, error] :
         {std::pair{"/nonexistent/program", ENOENT}, std::pair{"/dev/null", EACCES},
          // Found along PATH by a shell, but not here.
          std::pair{"true", ENOENT}}) {
        errno = 0;
        EXPECT_EQ(-1, runProgram(program, "none")) << program;
        EXPECT_EQ(error, errno) << program;
    }
    char *const none[] = {nullptr};
    EXPECT_EQ(-1, palCmdExecArgv(none, 0, 0));
    EXPECT_EQ(-1, palCmdExecArgv(nullptr, 0, 0));
}

const Role killedRole("killed", [](const std::vector<std::string> & /*arguments*/) {
    (void)std::raise(SIGKILL);
    return 0;
});

TEST(Programs, ProgramThatASignalEnds_ReturnsMinusOne) {
    EXPECT_EQ(-1, runProgram(selfPath(), "killed"));
}

const Role closedRole("expect-closed", [](const std::vector<std::string> &arguments) {
    return fcntl(std::stoi(arguments.at(0)), F_GETFD) == -1 ? 0 : 1;
});

TEST(Programs, OpenDescriptor_NotInherited) {
    for (const int flags : {O_CLOEXEC, 0}) {
        const Pipe pipe(flags);
        EXPECT_EQ(0, runProgram(selfPath(), "expect-closed", {std::to_string(pipe.readEnd.get())}));
    }
}

const Role signalsRole("expect-signals", [](const std::vector<std::string> & /*arguments*/) {
    sigset_t blocked;
    sigprocmask(SIG_SETMASK, nullptr, &blocked);
    struct sigaction pipeAction {};
    sigaction(SIGPIPE, nullptr, &pipeAction);
    return sigismember(&blocked, SIGTERM) == 0 && pipeAction.sa_handler == SIG_DFL ? 0 : 1;
});

TEST(Programs, SignalsBlockedAndIgnored_DefaultInTheProgram) {
    sigset_t terminate;
    sigset_t before;
    sigemptyset(&terminate);
    sigaddset(&terminate, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &terminate, &before);
    struct sigaction ignore {};
    struct sigaction pipeBefore {};
    ignore.sa_handler = SIG_IGN;
    sigaction(SIGPIPE, &ignore, &pipeBefore);
    EXPECT_EQ(0, runProgram(selfPath(), "expect-signals"));
    sigaction(SIGPIPE, &pipeBefore, nullptr);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

const Role readRole("read-fifo", [](const std::vector<std::string> &arguments) {
    const int fd = open(arguments.at(0).c_str(), O_RDONLY | O_CLOEXEC);
    char byte = 0;
    return read(fd, &byte, 1) == 1 ? byte : 0;
});

TEST(Programs, SignalsWhileWaiting_NotSeen) {
    const TemporaryFolder folder;
    const std::string fifo = folder.path() / "fifo";
    ASSERT_EQ(0, mkfifo(fifo.c_str(), 0600));
    {
        const Interruptions interruptions(50, [fifo] {
            const FileDescriptor writer(open(fifo.c_str(), O_WRONLY | O_CLOEXEC), fifo);
            EXPECT_EQ(1, write(writer.get(), "A", 1));
        });
        EXPECT_EQ('A', runProgram(selfPath(), "read-fifo", {fifo}));
    }
}

TEST(Programs, ProgramUnderTheRoot_Found) {
    const TemporaryFolder folder;
    fs::create_directories(folder.path() / "bin");
    fs::create_symlink(selfPath(), folder.path() / "bin/program");
    palRootSet(folder.path().c_str());
    EXPECT_EQ(3, runProgram("/bin/program", "exit-with", {"3"}));
    EXPECT_EQ(-1, runProgram("/bin/true", "none"));
    palRootSet(nullptr);
}

TEST(Programs, StatusLost_ReturnsMinusOne) {
    struct sigaction ignore {};
    struct sigaction before {};
    ignore.sa_handler = SIG_IGN;
    sigaction(SIGCHLD, &ignore, &before);
    EXPECT_EQ(-1, runProgram(selfPath(), "exit-with", {"0"}));
    sigaction(SIGCHLD, &before, nullptr);
}

}  // namespace
}  // namespace lanyard::test::programs_test
