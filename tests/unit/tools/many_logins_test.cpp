// The example of many logins: all users of a file at once, from one loop.
#include <array>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <set>
#include <string>
#include <unistd.h>

#include "tests/interop/child_process.h"
#include "tests/support/radius_wire.h"
#include "tests/support/scripted_server.h"
#include "tests/support/temporary_root.h"

namespace lanyard::test::many_logins_test {
namespace {

using testing::EndsWith;
using testing::HasSubstr;

constexpr const char *kSecret = "xyzzy5461";
constexpr size_t kUsers = 200;

std::string userName(size_t user) {
    return "user-" + std::to_string(user);
}

// Accepts those who have their own name as the password, for an hour.
Action judge() {
    return respond([](const ReceivedRequest &request) {
        const std::string name = toText(attributeValue(request, 1));
        return revealPassword(request, kSecret) == name
                   ? makeReply(2, request, kSecret, Attributes().addInteger(27, 3600))
                   : makeReply(3, request, kSecret);
    });
}

class ManyLogins : public testing::Test {
  protected:
    ManyLogins() {
        std::array<char, 256> name{};
        EXPECT_EQ(0, gethostname(name.data(), name.size() - 1));
        root_.write("/var/hosts", std::string("127.0.0.1 ") + name.data() + "\n");
        server_.otherwise(judge());
        root_.write("/var/radius.conf", "authserver 127.0.0.1:" + std::to_string(server_.port()) +
                                            ":20:5:" + kSecret + "\n");
    }

    [[nodiscard]] ProgramResult run(const std::string &users) const {
        root_.write("/var/users", users);
        return runProgram(
            {LANYARD_MANY_LOGINS, "/var/radius.conf", root_.path("/var/users").string()},
            {"PAL_ROOT=" + root_.folder().string()});
    }

    const TemporaryRoot root_;
    ScriptedServer server_{kSecret};
};

TEST_F(ManyLogins, TwoHundredUsers_LoggedInFromOneSocket) {
    std::string users;
    for (size_t user = 0; user < kUsers; ++user) {
        users += userName(user) + " " + (user == 7 ? "wrong" : userName(user)) + "\n";
    }
    const ProgramResult result = run(users);
    EXPECT_EQ(1, result.status);
    EXPECT_EQ("", result.err);
    EXPECT_THAT(result.out, EndsWith("\n199 of 200 may come in\n"));
    EXPECT_THAT(result.out,
                HasSubstr("user-7 may not come in: 127.0.0.1:" + std::to_string(server_.port()) +
                          ": rejected by the server (Access-Reject)\n"));
    for (const size_t user : {size_t{0}, size_t{6}, kUsers - 1}) {
        EXPECT_THAT(result.out, HasSubstr(userName(user) + " may come in, for 60 minutes"));
    }
    std::set<uint16_t> sockets;
    std::set<uint8_t> identifiers;
    for (const ReceivedRequest &request : server_.requests()) {
        sockets.insert(request.sourcePort);
        identifiers.insert(request.identifier());
    }
    EXPECT_EQ(1U, sockets.size());
    EXPECT_EQ(kUsers, identifiers.size()) << "all of them were in flight at once";
}

TEST_F(ManyLogins, RightPasswordsOnly_ExitWithZero) {
    const ProgramResult result = run("alice alice\nbob bob\n");
    EXPECT_EQ(0, result.status);
    EXPECT_THAT(result.out, EndsWith("2 of 2 may come in\n"));
}

TEST_F(ManyLogins, NoUsers_ExitWithTwo) {
    EXPECT_EQ(2, run("").status);
}

}  // namespace
}  // namespace lanyard::test::many_logins_test
