// The text form of server lists.
#include <ostream>
#include <string>
#include <vector>

#include "tests/support/test.h"
#include "tests/unit/conf/conf_fixture.h"

namespace lanyard::test::server_syntax_test {
namespace {

using testing::ElementsAre;

struct ListCase {
    const char *text;
    std::vector<Slot> servers;
};

void PrintTo(const ListCase &listCase, std::ostream *stream) {
    *stream << testing::PrintToString(listCase.text);
}

const std::vector<ListCase> kLists = {
    // Fields from the second on are numbers only as long as another one follows.
    {"h:s", {{"h", 1812, -1, -1, "s"}}},
    {"h:1645:s", {{"h", 1645, -1, -1, "s"}}},
    {"h:1645:5:s", {{"h", 1645, 5, -1, "s"}}},
    {"h:1645:5:3:s", {{"h", 1645, 5, 3, "s"}}},
    {"h:1645:5:3:s:x", {{"h", 1645, 5, 3, "s", "x"}}},
    {"h:1645:5:3:s:x:y:z", {{"h", 1645, 5, 3, "s", "x"}}},
    {"h:abc", {{"h", 1812, -1, -1, "abc"}}},
    {"h:1645:abc", {{"h", 1645, -1, -1, "abc"}}},
    {"h:1645:5:abc", {{"h", 1645, 5, -1, "abc"}}},
    {"h:1645:5:3", {{"h", 1645, 5, -1, "3"}}},
    // Numbers.
    {"h:0:0:0:s", {{"h", 1812, 0, 0, "s"}}},
    {"h:0007:08:09:s", {{"h", 7, 8, 9, "s"}}},
    {"h:12ab:5x:3y:s", {{"h", 12, 5, 3, "s"}}},
    {"h:70000:s", {{"h", 4464, -1, -1, "s"}}},
    // -1 leaves the place open for the next field.
    {"h:1812:-1:5:s", {{"h", 1812, 5, -1, "s"}}},
    {"h:1812:-1:s", {{"h", 1812, -1, -1, "s"}}},
    {"h:1812:-1:-1:s", {{"h", 1812, -1, -1, "s"}}},
    {"h:1812:-1:-1:-1:s", {{"h", 1812, -1, -1, "s"}}},
    {"h:1812:-1:5:3:s:x", {{"h", 1812, 5, 3, "s", "x"}}},
    {"h:1812:5:-1:3:s", {{"h", 1812, 5, 3, "s"}}},
    {"h:1812:5:-1:s", {{"h", 1812, 5, -1, "s"}}},
    {"h:1812:-1x:5:s", {{"h", 1812, 5, -1, "s"}}},
    // Empty fields vanish.
    {"h::s", {{"h", 1812, -1, -1, "s"}}},
    {"h:1645::5:s", {{"h", 1645, 5, -1, "s"}}},
    {":h:s", {{"h", 1812, -1, -1, "s"}}},
    {"h:s:", {{"h", 1812, -1, -1, "s"}}},
    {"h:1645:5:3:s::x:", {{"h", 1645, 5, 3, "s", "x"}}},
    // Several entries; empty ones vanish.
    {"h1:s1,h2:1645:s2", {{"h1", 1812, -1, -1, "s1"}, {"h2", 1645, -1, -1, "s2"}}},
    {" ,h1:s1 ,\t, h2:s2\th3:s3, ",
     {{"h1", 1812, -1, -1, "s1"}, {"h2", 1812, -1, -1, "s2"}, {"h3", 1812, -1, -1, "s3"}}},
    {"h:s1 h:s2", {{"h", 1812, -1, -1, "s1"}, {"h", 1812, -1, -1, "s2"}}},
};

class ServerList : public ConfTest, public testing::WithParamInterface<ListCase> {};

TEST_P(ServerList, AddsItsEntriesInOrder) {
    EXPECT_EQ(0, radConfSetServers(GetParam().text, RAD_SERVER_AUTH));
    EXPECT_PROBLEMS(log);
    const std::vector<Slot> &expected = GetParam().servers;
    EXPECT_EQ(static_cast<int>(expected.size()), radConfGetNumServers(RAD_SERVER_AUTH));
    const std::vector<RadServer> found = slots(RAD_SERVER_AUTH);
    for (size_t index = 0; index < found.size(); ++index) {
        EXPECT_THAT(found[index], Holds(index < expected.size() ? expected[index] : kFreeSlot));
    }
    EXPECT_EQ(0, radConfGetNumServers(RAD_SERVER_ACCT));
}

TEST_P(ServerList, AddsAccountingServersWithoutExtraField) {
    EXPECT_EQ(0, radConfSetServers(GetParam().text, RAD_SERVER_ACCT));
    EXPECT_PROBLEMS(log);
    const std::vector<Slot> &expected = GetParam().servers;
    EXPECT_EQ(static_cast<int>(expected.size()), radConfGetNumServers(RAD_SERVER_ACCT));
    const std::vector<RadServer> found = slots(RAD_SERVER_ACCT);
    for (size_t index = 0; index < found.size(); ++index) {
        Slot slot = index < expected.size() ? expected[index] : kFreeSlot;
        slot.extra = nullptr;
        // 1812 stands in the cases where no port is given, and where 1812 is.
        const bool givenPort = std::string(GetParam().text).find("1812") != std::string::npos;
        slot.port = slot.port == 1812 && !givenPort ? 1813 : slot.port;
        EXPECT_THAT(found[index], Holds(slot));
    }
    EXPECT_EQ(0, radConfGetNumServers(RAD_SERVER_AUTH));
}

TEST_P(ServerList, LeavesNothingBehindWhicheverAllocationFails) {
    const size_t extras = std::string(GetParam().text).find(":x") != std::string::npos ? 1 : 0;
    const unsigned failures = forEachFailingAllocation([] {
        radConfSetServers(GetParam().text, RAD_SERVER_AUTH);
        EXPECT_EQ(0, radConfDelAuthServ());
    });
    EXPECT_EQ(1 + 2 * GetParam().servers.size() + extras, failures);
}

INSTANTIATE_TEST_SUITE_P(All, ServerList, testing::ValuesIn(kLists));

class ServerListText : public ConfTest {
  protected:
    // Expects a list to be refused with that message after it has added the named hosts.
    void expectRefused(const char *text, const std::string &message,
                       const std::vector<std::string> &added = {}) {
        SCOPED_TRACE(text);
        for (const uint32_t type : {RAD_SERVER_AUTH, RAD_SERVER_ACCT}) {
            log.clear();
            EXPECT_EQ(-1, radConfSetServers(text, type));
            if (message.empty()) {
                EXPECT_PROBLEMS(log);
            } else {
                EXPECT_ONLY_PROBLEM(log, 8, "radConfSetServers", message);
            }
            EXPECT_EQ(static_cast<int>(added.size()), radConfGetNumServers(static_cast<int>(type)));
            for (size_t index = 0; index < added.size(); ++index) {
                EXPECT_EQ(added[index], slots(type)[index].host);
            }
            EXPECT_EQ(0, radConfDelAuthServ());
            EXPECT_EQ(0, radConfDelAcctServ());
            EXPECT_EQ(0U, liveBlocks());
        }
    }
};

TEST_F(ServerListText, HasPortsThatStartWithADigit) {
    expectRefused("h:abc:s", "radConfSetServers: Invalid Port abc for server h: \n");
    expectRefused("h:-1:s", "radConfSetServers: Invalid Port -1 for server h: \n");
    expectRefused("h:+5:s", "radConfSetServers: Invalid Port +5 for server h: \n");
    expectRefused("h1:s1,h2:abc:5:3:s2,h3:s3",
                  "radConfSetServers: Invalid Port abc for server h2: \n", {"h1"});
}

TEST_F(ServerListText, HasTimeoutsThatStartWithADigitOrAreUnset) {
    expectRefused("h:1812:abc:s", "radConfSetServers: Invalid Timeout abc for server h: \n");
    expectRefused("h:1812:-2:s", "radConfSetServers: Invalid Timeout -2 for server h: \n");
    expectRefused("h:1812:+5:3:s", "radConfSetServers: Invalid Timeout +5 for server h: \n");
    expectRefused("h:1812:-1:abc:s", "radConfSetServers: Invalid Timeout abc for server h: \n");
    expectRefused("h1:s1,h2:1:x:s2", "radConfSetServers: Invalid Timeout x for server h2: \n",
                  {"h1"});
}

TEST_F(ServerListText, HasRetryCountsThatStartWithADigitOrAreUnset) {
    expectRefused("h:1812:5:abc:s", "radConfSetServers: Invalid Retry Count abc for server h: \n");
    expectRefused("h:1812:5:-3:s", "radConfSetServers: Invalid Retry Count -3 for server h: \n");
    expectRefused("h:1812:5:-1:x:s", "radConfSetServers: Invalid Retry Count x for server h: \n");
    expectRefused("h1:s1,h2:s2,h3:1:2:x:s3",
                  "radConfSetServers: Invalid Retry Count x for server h3: \n", {"h1", "h2"});
}

TEST_F(ServerListText, HasASecretInEveryEntry) {
    expectRefused("h", "");
    expectRefused("h:", "");
    expectRefused(":", "");
    expectRefused("h1:s1,h2,h3:s3", "", {"h1"});
}

TEST_F(ServerListText, EndsAtTheNinthServer) {
    const char *text = "a:s b:s c:s d:s e:s f:s g:s h:s i:s j:s";
    EXPECT_EQ(-1, radConfSetServers(text, RAD_SERVER_AUTH));
    EXPECT_PROBLEMS(log, "error radConfAddAuthServ: Cannot Add Server i: Too Many Servers");
    EXPECT_EQ(8, radConfGetNumServers(RAD_SERVER_AUTH));
    EXPECT_STREQ("h", slots(RAD_SERVER_AUTH)[7].host);
    log.clear();
    EXPECT_EQ(-1, radConfSetServers(text, RAD_SERVER_ACCT));
    EXPECT_PROBLEMS(log, "error radConfAddAcctServ: Cannot Add Server i: Too Many Servers");
    EXPECT_EQ(8, radConfGetNumServers(RAD_SERVER_ACCT));
    EXPECT_STREQ("h", slots(RAD_SERVER_ACCT)[7].host);
}

TEST_F(ServerListText, MayHoldNoEntry) {
    EXPECT_EQ(0, radConfSetServers("", RAD_SERVER_AUTH));
    EXPECT_EQ(0, radConfSetServers(" ,\t", RAD_SERVER_ACCT));
    expectSilence();
    EXPECT_FALSE(isSet(RAD_CONF_AUTH_SERVERS));
    EXPECT_FALSE(isSet(RAD_CONF_ACCT_SERVERS));
}

TEST_F(ServerListText, IsOfOneOfTwoKinds) {
    EXPECT_EQ(-1, radConfSetServers("h:s", 2));
    EXPECT_EQ(-1, radConfSetServers("h:s", UINT32_MAX));
    EXPECT_EQ(-1, radConfSetServers(nullptr, RAD_SERVER_AUTH));
    EXPECT_EQ(-1, radConfSetServers(nullptr, RAD_SERVER_ACCT));
    expectSilence();
    EXPECT_EQ(0U, liveBlocks());
}

TEST_F(ServerListText, IsNotChanged) {
    const std::string text = "h1:1812:5:3:s1:x,h2:s2";
    EXPECT_EQ(0, radConfSetServers(text.c_str(), RAD_SERVER_AUTH));
    EXPECT_EQ("h1:1812:5:3:s1:x,h2:s2", text);
}

TEST_F(ServerListText, TakesTheDefaultPortFromTheServicesDatabase) {
    addService("radius", 1645);
    addService("radacct", 1646);
    EXPECT_EQ(0, radConfSetServers("h1:s1, h2:1812:s2", RAD_SERVER_AUTH));
    EXPECT_EQ(0, radConfSetServers("h1:s1, h2:1813:s2", RAD_SERVER_ACCT));
    EXPECT_EQ(1645, slots(RAD_SERVER_AUTH)[0].port);
    EXPECT_EQ(1812, slots(RAD_SERVER_AUTH)[1].port);
    EXPECT_EQ(1646, slots(RAD_SERVER_ACCT)[0].port);
    EXPECT_EQ(1813, slots(RAD_SERVER_ACCT)[1].port);
}

TEST_F(ServerListText, IsAddedToAListThatIsSet) {
    EXPECT_EQ(0, radConfSetServers("h1:s1", RAD_SERVER_AUTH));
    EXPECT_EQ(0, radConfSetServers("h2:s2", RAD_SERVER_AUTH));
    EXPECT_EQ(0, radConfSetServers("h3:s3", RAD_SERVER_ACCT));
    EXPECT_EQ(0, radConfSetServers("h4:s4", RAD_SERVER_ACCT));
    EXPECT_EQ(2, radConfGetNumServers(RAD_SERVER_AUTH));
    EXPECT_EQ(2, radConfGetNumServers(RAD_SERVER_ACCT));
    EXPECT_STREQ("h2", slots(RAD_SERVER_AUTH)[1].host);
    EXPECT_STREQ("h4", slots(RAD_SERVER_ACCT)[1].host);
}

TEST_F(ServerListText, SetsTheOptionOnce) {
    EXPECT_EQ(0, radConfSetAuthServ("h1:1812:5:3:s1:x"));
    EXPECT_EQ(0, radConfSetAcctServ("h2:s2"));
    log.clear();
    EXPECT_EQ(-1, radConfSetAuthServ("h3:s3"));
    EXPECT_EQ(-1, radConfSetAcctServ("h3:s3"));
    expectSilence();
    EXPECT_THAT(slots(RAD_SERVER_AUTH),
                ElementsAre(Holds({"h1", 1812, 5, 3, "s1", "x"}), Holds(kFreeSlot),
                            Holds(kFreeSlot), Holds(kFreeSlot), Holds(kFreeSlot), Holds(kFreeSlot),
                            Holds(kFreeSlot), Holds(kFreeSlot)));
    EXPECT_EQ(1, radConfGetNumServers(RAD_SERVER_AUTH));
    EXPECT_EQ(1, radConfGetNumServers(RAD_SERVER_ACCT));
    EXPECT_STREQ("h2", slots(RAD_SERVER_ACCT)[0].host);

    EXPECT_EQ(0, radConfDelAuthServ());
    EXPECT_EQ(0, radConfDelAcctServ());
    EXPECT_EQ(0, radConfSetAuthServ("h3:s3"));
    EXPECT_EQ(0, radConfSetAcctServ("h4:s4"));
    EXPECT_STREQ("h3", slots(RAD_SERVER_AUTH)[0].host);
    EXPECT_STREQ("h4", slots(RAD_SERVER_ACCT)[0].host);
}

TEST_F(ServerListText, SetsNoOptionWithoutText) {
    for (const char *text : {static_cast<const char *>(nullptr), ""}) {
        EXPECT_EQ(-1, radConfSetAuthServ(text));
        EXPECT_EQ(-1, radConfSetAcctServ(text));
    }
    expectSilence();
    EXPECT_FALSE(isSet(RAD_CONF_AUTH_SERVERS));
    EXPECT_FALSE(isSet(RAD_CONF_ACCT_SERVERS));
}

TEST_F(ServerListText, FailsInSilenceWhenItCannotBeCopied) {
    failAllocation(1);
    EXPECT_EQ(-1, radConfSetServers("h:s", RAD_SERVER_AUTH));
    EXPECT_TRUE(allocationFailed());
    expectSilence();
    failAllocation(2);
    EXPECT_EQ(-1, radConfSetServers("h:s", RAD_SERVER_AUTH));
    EXPECT_TRUE(allocationFailed());
    expectSilence();
    EXPECT_FALSE(isSet(RAD_CONF_AUTH_SERVERS));
    EXPECT_EQ(0U, liveBlocks());
}

}  // namespace
}  // namespace lanyard::test::server_syntax_test
