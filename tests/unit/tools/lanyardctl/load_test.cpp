// What a load starts from: its users, and the servers that it may ask. And how far it is.
#include <string>
#include <vector>

#include <lanyard/radius/conf.h>
#include <lanyard/radius/frame.h>

#include "tests/support/test.h"
#include "tools/lanyardctl/configuration.h"
#include "tools/lanyardctl/failure.h"
#include "tools/lanyardctl/load_targets.h"
#include "tools/lanyardctl/load_users.h"
#include "tools/lanyardctl/progress.h"

namespace lanyard::test::load_test {
namespace {

using lanyardctl::asProgress;
using lanyardctl::Configuration;
using lanyardctl::Failure;
using lanyardctl::keepToTargets;
using lanyardctl::readLoadUsers;
using testing::HasSubstr;

// Why it is refused, with the exit status before it; "" when it is not.
template <typename Function>
std::string refusalOf(const Function &function) {
    try {
        function();
    } catch (const Failure &failure) {
        return std::to_string(failure.status()) + " " + failure.what();
    }
    return "";
}

class LoadUsers : public testing::Test {
  protected:
    std::string write(const std::string &text) {
        root_.write("/users", text);
        return root_.path("/users").string();
    }
    std::string refusal(const std::string &text) {
        const std::string file = write(text);
        return refusalOf([&] { readLoadUsers(file); });
    }

    TemporaryRoot root_;
};

TEST_F(LoadUsers, NameBlanksAndTheRestOfTheLine) {
    const auto users = readLoadUsers(write("alice wonderland\nbob \t a b \ncarol x"));
    ASSERT_EQ(3U, users.size());
    EXPECT_EQ("alice", users[0].name);
    EXPECT_EQ("wonderland", users[0].password.text());
    EXPECT_EQ("bob", users[1].name);
    EXPECT_EQ("a b ", users[1].password.text());
    EXPECT_EQ("x", users[2].password.text());
}

TEST_F(LoadUsers, OtherLines_AreRefused) {
    for (const char *line : {"", "alice", "alice ", " wonderland", " "}) {
        EXPECT_THAT(refusal(std::string("bob x\n") + line + "\n"), HasSubstr("2 line 2 of "))
            << line;
    }
    EXPECT_THAT(refusal(""), HasSubstr(" names no user"));
    EXPECT_THAT(refusal("bob x\nalice " + std::string(2000, 'x')), HasSubstr("line 2 of "));
    EXPECT_THAT(refusal("bob x\nalice " + std::string(2000, 'x')), HasSubstr(" is too long"));
}

TEST_F(LoadUsers, FileThatCannotBeRead_HasItsReason) {
    EXPECT_EQ("1 cannot read /none: No such file or directory",
              refusalOf([] { readLoadUsers("/none"); }));
    EXPECT_EQ("1 cannot read /tmp: Is a directory", refusalOf([] { readLoadUsers("/tmp"); }));
}

class LoadTargets : public testing::Test {
  protected:
    void SetUp() override { ASSERT_EQ(0, radLibInit(nullptr)); }
    void TearDown() override { radLibExit(); }

    // The hosts that are asked.
    static std::vector<std::string> hosts() {
        std::vector<std::string> hosts;
        for (const RadServer &server : Configuration::servers(RAD_SERVER_AUTH)) {
            hosts.emplace_back(server.host);
        }
        return hosts;
    }

    const TemporaryRoot root_;
};

TEST_F(LoadTargets, ServersOfThisMachine_StayAsTheyAre) {
    radConfAddAuthServ("127.0.0.1", 1812, 5, 2, "xyzzy", "gateway");
    radConfAddAuthServ("127.255.255.254", 1645, 1, 0, "plugh", nullptr);
    keepToTargets({});
    const auto servers = Configuration::servers(RAD_SERVER_AUTH);
    ASSERT_EQ(2U, servers.size());
    EXPECT_STREQ("127.0.0.1", servers[0].host);
    EXPECT_EQ(1812, servers[0].port);
    EXPECT_EQ(5, servers[0].timeout);
    EXPECT_EQ(2, servers[0].retries);
    EXPECT_STREQ("xyzzy", servers[0].secret);
    EXPECT_STREQ("gateway", servers[0].extra);
    EXPECT_STREQ("127.255.255.254", servers[1].host);
    EXPECT_EQ(nullptr, servers[1].extra);
}

TEST_F(LoadTargets, Name_BecomesItsAddress) {
    radConfAddAuthServ("localhost", 1812, 5, 2, "xyzzy", nullptr);
    keepToTargets({});
    EXPECT_EQ(std::vector<std::string>{"127.0.0.1"}, hosts());
}

TEST_F(LoadTargets, ServerElsewhere_NeedsItsVeryAddress) {
    radConfAddAuthServ("127.0.0.1", 1812, 5, 2, "xyzzy", nullptr);
    radConfAddAuthServ("192.0.2.10", 1812, 5, 2, "xyzzy", nullptr);
    radConfAddAuthServ("128.0.0.1", 1812, 5, 2, "xyzzy", nullptr);
    EXPECT_THAT(refusalOf([] { keepToTargets({}); }),
                HasSubstr("2 the server 192.0.2.10:1812 is not on this machine"));
    EXPECT_THAT(refusalOf([] { keepToTargets({"128.0.0.1"}); }),
                HasSubstr("--confirm-address 192.0.2.10"));
    EXPECT_THAT(refusalOf([] {
                    keepToTargets({"192.0.2.10", "127.0.0.1"});
                }),
                HasSubstr("--confirm-address 128.0.0.1"));
    EXPECT_EQ("", refusalOf([] { keepToTargets({"192.0.2.10", "128.0.0.1"}); }));
    EXPECT_EQ(3U, hosts().size());
}

TEST_F(LoadTargets, NameWithoutAddress_IsRefused) {
    radConfAddAuthServ("no-such-host.invalid", 1812, 5, 2, "xyzzy", nullptr);
    EXPECT_EQ("1 the name of the server no-such-host.invalid:1812 has no address",
              refusalOf([] { keepToTargets({}); }));
}

TEST(LoadProgress, BarAndPercentageGrowTogether) {
    EXPECT_EQ("[..........]   0 %", asProgress(0, 1000, 10));
    EXPECT_EQ("[####......]  49 %", asProgress(499, 1000, 10));
    EXPECT_EQ("[##########] 100 %", asProgress(1000, 1000, 10));
    EXPECT_EQ("[..........]   0 %", asProgress(0, 0, 10));
}

}  // namespace
}  // namespace lanyard::test::load_test
