// Many MS-CHAP and MS-CHAPv2 logins of one user name at once, right and wrong passwords mixed: none
// may get the result of another.
#include <cstdio>
#include <gtest/gtest.h>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <lanyard/radius/frame.h>
#include <lanyard/radius/methods.h>

#include "tests/interop/fixture.h"

namespace lanyard::test::mschap_storm_test {
namespace {

constexpr int kProcesses = 8;
constexpr int kThreads = 16;

// All of them together are more than 1,000 logins.
struct Storm {
    const char *name;
    int (*login)(const char *userName, const char *password);
    bool isBuiltin;
    int turns;  // logins of each process and thread
};

class MschapStorm : public Interop, public testing::WithParamInterface<Storm> {
  protected:
    void SetUp() override {
        Interop::SetUp();
        installNtResponse();
        // The machine is busy: an answer may take its time.
        configure("authserver 127.0.0.1:" + std::to_string(server().authPort()) +
                  ":10:2:" + server().secret() + "\n");
        radOptionSet(RAD_OPTION_STANDARD_SHA1, 1);
        radOptionSet(RAD_OPTION_BUILTIN_NT_RESPONSE, GetParam().isBuiltin ? 1 : 0);
    }

    void TearDown() override {
        radOptionSet(RAD_OPTION_STANDARD_SHA1, 0);
        radOptionSet(RAD_OPTION_BUILTIN_NT_RESPONSE, 0);
        Interop::TearDown();
    }

    struct Mistakes {
        int letIn = 0;
        int keptOut = 0;
    };

    // Logs in with the right and a wrong password by turns, as the worker of that number.
    static Mistakes work(int worker) {
        Mistakes mistakes;
        for (int turn = 0; turn < GetParam().turns; ++turn) {
            const bool isRight = (worker + turn) % 2 == 0;
            const int result = GetParam().login("alice", isRight ? "wonderland" : "looking-glass");
            if (isRight && result != 0) {
                ++mistakes.keptOut;
            } else if (!isRight && result == 0) {
                ++mistakes.letIn;
            }
        }
        return mistakes;
    }

    // Returns a child process that works and ends with its mistakes as its exit status.
    static pid_t startProcess(int worker) {
        const pid_t pid = fork();
        if (pid == 0) {
            const Mistakes mistakes = work(worker);
            std::fflush(stdout);
            _exit(mistakes.letIn * kMistakesMax + mistakes.keptOut);
        }
        return pid;
    }

    static Mistakes mistakesOf(pid_t pid) {
        int status = 0;
        EXPECT_EQ(pid, waitpid(pid, &status, 0));
        EXPECT_TRUE(WIFEXITED(status)) << status;
        return {WEXITSTATUS(status) / kMistakesMax, WEXITSTATUS(status) % kMistakesMax};
    }

  private:
    static constexpr int kMistakesMax = 16;
};

INSTANTIATE_TEST_SUITE_P(Methods, MschapStorm,
                         testing::Values(Storm{"MschapWithTheProgram", radMschap, false, 12},
                                         Storm{"Mschapv2WithTheProgram", radMschapv2, false, 12},
                                         Storm{"MschapInTheProcess", radMschap, true, 21},
                                         Storm{"Mschapv2InTheProcess", radMschapv2, true, 21}),
                         [](const auto &instance) { return std::string(instance.param.name); });

TEST_P(MschapStorm, ManyLoginsOfOneName_EachGetsItsOwnResult) {
    std::vector<Mistakes> all(kThreads);
    const Written written = capture([&all] {
        // The processes first, while there is but one thread to fork and nothing to write twice.
        std::vector<pid_t> processes;
        processes.reserve(kProcesses);
        for (int worker = 0; worker < kProcesses; ++worker) {
            processes.push_back(startProcess(worker));
        }
        std::vector<std::thread> threads;
        threads.reserve(kThreads);
        for (int worker = 0; worker < kThreads; ++worker) {
            threads.emplace_back([&all, worker] { all[worker] = work(worker); });
        }
        for (std::thread &thread : threads) {
            thread.join();
        }
        for (const pid_t process : processes) {
            all.push_back(mistakesOf(process));
        }
    });
    Mistakes sum;
    for (const Mistakes &mistakes : all) {
        sum.letIn += mistakes.letIn;
        sum.keptOut += mistakes.keptOut;
    }
    EXPECT_EQ(0, sum.letIn) << "wrong passwords let in";
    EXPECT_EQ(0, sum.keptOut) << "right passwords refused";
    // Half of the workers begin with the right password, the others with a wrong one.
    const int half = (kProcesses + kThreads) * GetParam().turns / 2;
    EXPECT_EQ(half, occurrences(written.out, "RADIUS Authentication OK\n"));
    EXPECT_EQ(half, occurrences(written.err, "RADIUS Authentication failure\n"));
    EXPECT_EQ(half, occurrences(written.err, "\n")) << written.err;
}

}  // namespace
}  // namespace lanyard::test::mschap_storm_test
