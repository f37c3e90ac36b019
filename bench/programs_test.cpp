// The benchmarks of whole exchanges, at each other: that they run, and give no figures for exchanges
// that failed.
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "tests/interop/child_process.h"
#include "tests/support/temporary_folder.h"

namespace lanyard::test::bench_programs_test {
namespace {

using testing::HasSubstr;
using testing::MatchesRegex;

std::string path(const std::string &program) {
    return std::string(LANYARD_PROGRAMS) + "/" + program;
}

auto lineOf(int count) {
    return MatchesRegex("n=" + std::to_string(count) +
                        " rate=[1-9][0-9]* p50=[0-9.]+ p99=[0-9.]+ cpu=[0-9.]+\n");
}

class BenchPrograms : public testing::Test {
  protected:
    void SetUp() override { ASSERT_TRUE(responder_.waitForOutput("\n")) << responder_.output(); }

    ProgramResult run(const std::string &program, const std::vector<std::string> &options = {},
                      const std::string &secret = "testing123") const {
        std::vector<std::string> command = {path(program), "127.0.0.1", port(), secret, "20"};
        command.insert(command.end(), options.begin(), options.end());
        return runProgram(command, {"PAL_ROOT=" + folder_.path().string()});
    }

    TemporaryFolder folder_;

  private:
    std::string port() const {
        std::string line = responder_.output();
        return line.substr(5, line.find('\n') - 5);  // "port=N"
    }

    RunningProgram responder_{{path("responder"), "--threads", "2", "--seconds", "60"},
                              {},
                              folder_.path() / "responder.log"};
};

struct Form {
    const char *program;
    std::vector<std::string> options;
    int exchanges = 20;
};

class BenchForms : public BenchPrograms, public testing::WithParamInterface<Form> {};

INSTANTIATE_TEST_SUITE_P(
    Forms, BenchForms,
    testing::Values(Form{"floor", {}}, Form{"floor", {"--reuse"}},
                    Form{"floor", {"--in-flight", "4"}}, Form{"floor", {"--threads", "2"}, 40},
                    Form{"login_bench", {}}, Form{"login_bench", {"--threads", "2"}, 40},
                    Form{"login_bench", {"--method", "chap"}},
                    Form{"login_bench", {"--method", "mschap"}},
                    Form{"login_bench", {"--method", "mschapv2"}}, Form{"loop_bench", {}},
                    Form{"loop_bench", {"--in-flight", "16"}},
                    Form{"loop_bench", {"--threads", "2"}, 40}),
    [](const auto &form) { return form.param.program + std::to_string(form.index); });

TEST_P(BenchForms, EveryExchangeSucceeds_PrintsOneLine) {
    const ProgramResult result = run(GetParam().program, GetParam().options);
    EXPECT_EQ(0, result.status) << result.err;
    EXPECT_THAT(result.out, lineOf(GetParam().exchanges));
    EXPECT_EQ("", result.err);
}

class EachBenchProgram : public BenchPrograms, public testing::WithParamInterface<std::string> {};

INSTANTIATE_TEST_SUITE_P(Programs, EachBenchProgram,
                         testing::Values("floor", "login_bench", "loop_bench"));

TEST_P(EachBenchProgram, RepliesAreNotAuthentic_FailsWithoutALine) {
    const ProgramResult result = run(GetParam(), {}, "another secret");
    EXPECT_EQ(1, result.status);
    EXPECT_EQ("", result.out);
    EXPECT_THAT(result.err, HasSubstr(GetParam() + ": "));
}

TEST_F(BenchPrograms, DeviceProgram_ComputesTheResponses) {
    const auto program = folder_.path() / "nexa2.0/bin/orvane_getNTResponse";
    folder_.write(program, "#!/bin/sh\necho run >>\"$PAL_ROOT/runs\"\nexit 1\n");
    std::filesystem::permissions(program, std::filesystem::perms::owner_all);
    std::filesystem::create_directory(folder_.path() / "tmp");
    const ProgramResult result = run("login_bench", {"--method", "mschapv2", "--device-program"});
    EXPECT_EQ(0, result.status) << result.err;
    EXPECT_THAT(result.out, lineOf(20));
    EXPECT_EQ(20 * std::string("run\n").size(),
              std::filesystem::file_size(folder_.path() / "runs"));
}

}  // namespace
}  // namespace lanyard::test::bench_programs_test
