// Where the programs that log a user in take the password from, and who else can see it.
#include <array>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iterator>
#include <poll.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/support/radius_wire.h"
#include "tests/support/scripted_server.h"
#include "tests/support/temporary_root.h"
#include "tools/file_descriptor.h"
#include "tools/spawn.h"

namespace lanyard::test::password_test {
namespace {

using testing::HasSubstr;
using testing::Not;

constexpr const char *kSecret = "xyzzy5461";

class Password : public testing::TestWithParam<const char *> {
  protected:
    Password() {
        root_.write("/var/hosts", "");
        root_.write("/var/radius.conf", "authserver 127.0.0.1:" + std::to_string(server_.port()) +
                                            ":1:0:" + kSecret + ":device\n");
    }

    // Runs it with these arguments and that on its standard input, as far as its first request, if it
    // makes one. Its exit status is -1 for a signal.
    int run(std::vector<std::string> arguments, const std::string &input) {
        arguments.insert(arguments.begin(), std::string(LANYARD_PROGRAMS) + "/" + GetParam());
        std::vector<std::string> environment = ownEnvironment();
        environment.push_back("PAL_ROOT=" + root_.folder().string());
        Pipe standardInput;
        EXPECT_EQ(static_cast<ssize_t>(input.size()),
                  write(standardInput.writeEnd.get(), input.data(), input.size()));
        standardInput.writeEnd.reset();
        port::SpawnPlan plan;
        plan.duplicate(standardInput.readEnd.get(), STDIN_FILENO);
        pid_t process = -1;
        EXPECT_EQ(0, plan.spawn(process, arguments[0].c_str(), pointersTo(arguments).data(),
                                pointersTo(environment).data()));
        pollfd request{.fd = server_.socket(), .events = POLLIN, .revents = 0};
        if (poll(&request, 1, input == kNothing ? 0 : 20000) == 1) {
            std::ifstream stream("/proc/" + std::to_string(process) + "/cmdline", std::ios::binary);
            commandLine_.assign(std::istreambuf_iterator<char>(stream), {});
        }
        int status = -1;
        EXPECT_EQ(process, waitpid(process, &status, 0));
        requests_ = server_.received();
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    static constexpr const char *kNothing = "";

    const TemporaryRoot root_;
    const SilentPort server_;
    std::string commandLine_;
    std::vector<Bytes> requests_;
};

INSTANTIATE_TEST_SUITE_P(Programs, Password,
                         testing::Values("radauth", "radauth-all", "radauth-portal", "radchap",
                                         "radchap-portal"));

TEST_P(Password, InArguments_IsWipedFromTheProcessList) {
    EXPECT_EQ(1, run({"-v", "-f", "/var/radius.conf", "alice", "wonderland"}, "unread\n"));
    ASSERT_EQ(1U, requests_.size());
    EXPECT_THAT(commandLine_, HasSubstr("alice"));
    EXPECT_THAT(commandLine_, HasSubstr("/var/radius.conf"));
    EXPECT_THAT(commandLine_, Not(HasSubstr("wonderland")));
}

TEST_P(Password, OnStandardInput_IsALine) {
    EXPECT_EQ(1, run({"alice", "-"}, "wonderland\nrest"));
    ASSERT_EQ(1U, requests_.size());
    if (std::string_view(GetParam()).starts_with("radauth")) {
        EXPECT_EQ("wonderland", revealPassword(requests_[0], kSecret));
    } else {
        const Bytes response = attributeValue(requests_[0], 3);
        const Digest digest = md5({ByteView(response).first(1), fromText("wonderland"),
                                   attributeValue(requests_[0], 60)});
        EXPECT_EQ(Bytes(digest.begin(), digest.end()), Bytes(response.begin() + 1, response.end()));
    }
}

TEST_P(Password, OnEmptyStandardInput_IsNone) {
    EXPECT_EQ(1, run({"alice", "-"}, kNothing));
    EXPECT_THAT(requests_, testing::IsEmpty());
}

}  // namespace
}  // namespace lanyard::test::password_test
