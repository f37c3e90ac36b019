// Host names to addresses.
#include <arpa/inet.h>
#include <cerrno>
#include <string>

#include <lanyard/radius/engine.h>

#include "tests/support/test.h"
#include "tests/unit/client/fixture.h"
#include "tests/unit/client/system_calls.h"

namespace lanyard::test::resolver_test {
namespace {

constexpr uint32_t kNotFound = 0;
constexpr uint32_t kNoFile = 0xFFFFFFFF;

class ResolverTest : public EngineTest {
  protected:
    void writeHosts(const std::string &text) const { root_.write("/var/hosts", text); }

    static std::string couldNotResolve(const std::string &name) {
        return "error radGetIPByName: couldn't resolve hostname: " + name;
    }

    TemporaryRoot root_;
};

TEST_F(ResolverTest, TakesWhatTheResolverKnowsAndLeavesTheHostsFileAlone) {
    const ResolverEntry entry("radius-server", "127.0.0.9");
    const LogRecorder log;
    EXPECT_EQ(inet_addr("127.0.0.9"), radGetIPByName("radius-server"));
    EXPECT_EQ(inet_addr("127.0.0.1"), radGetIPByName("127.0.0.1"));
    EXPECT_EQ(inet_addr("127.0.0.1"), radGetIPByName("localhost"));
    EXPECT_FALSE(root_.exists("/var/hosts"));
    writeHosts("127.0.0.2 radius-server\n");
    EXPECT_EQ(inet_addr("127.0.0.9"), radGetIPByName("radius-server"));
    EXPECT_LOG(log);
}

TEST_F(ResolverTest, YieldsNetworkByteOrder) {
    const uint32_t address = radGetIPByName("127.1.2.3");
    EXPECT_BYTES_EQ("7f010203"_hex, ByteView(reinterpret_cast<const uint8_t *>(&address), 4));
}

TEST_F(ResolverTest, LooksIntoTheHostsFileForAllOthers) {
    writeHosts("127.0.0.2 first\n127.0.0.3 second\n127.0.0.4\t \tthird\n 127.0.0.5 fourth");
    const LogRecorder log;
    EXPECT_EQ(inet_addr("127.0.0.2"), radGetIPByName("first"));
    EXPECT_EQ(inet_addr("127.0.0.3"), radGetIPByName("second"));
    EXPECT_EQ(inet_addr("127.0.0.4"), radGetIPByName("third"));
    EXPECT_EQ(inet_addr("127.0.0.5"), radGetIPByName("fourth"));
    EXPECT_LOG(log, couldNotResolve("first"), couldNotResolve("second"), couldNotResolve("third"),
               couldNotResolve("fourth"));
}

TEST_F(ResolverTest, TakesTheFirstLineWithExactlyThatName) {
    const std::string text =
        "127.0.0.2 server\n127.0.0.3 server1\n127.0.0.4 Server1\n127.0.0.5 server1\n";
    writeHosts(text);
    EXPECT_EQ(inet_addr("127.0.0.3"), radGetIPByName("server1"));
    EXPECT_EQ(inet_addr("127.0.0.4"), radGetIPByName("Server1"));
    EXPECT_EQ(kNotFound, radGetIPByName("serve"));
    EXPECT_EQ(kNotFound, radGetIPByName("server11"));
    EXPECT_EQ(kNotFound, radGetIPByName("127.0.0.2 server"));
    EXPECT_EQ(text, root_.read("/var/hosts"));
}

TEST_F(ResolverTest, YieldsWhatInetAddrMakesOfTheFirstField) {
    writeHosts("127.2 short\n0x7f000003 number\n127.0.0.256 wrong\nword word\n");
    EXPECT_EQ(inet_addr("127.0.0.2"), radGetIPByName("short"));
    EXPECT_EQ(inet_addr("127.0.0.3"), radGetIPByName("number"));
    EXPECT_EQ(INADDR_NONE, radGetIPByName("wrong"));
    EXPECT_EQ(INADDR_NONE, radGetIPByName("word"));
}

TEST_F(ResolverTest, TakesNoFieldThatIsTooLong) {
    const std::string longest(31, 'n');
    const std::string tooLong(32, 'n');
    writeHosts("127.000.000.0002 other\n127.0.0.3 " + tooLong + "\n127.000.000.004 " + longest +
               "\n127.0.0.5 " + tooLong + "n\n127.000.000.0002 server\n127.0.0.6 server\n");
    EXPECT_EQ(inet_addr("127.0.0.4"), radGetIPByName(longest.c_str())) << "15 and 31 characters";
    EXPECT_EQ(kNotFound, radGetIPByName(tooLong.c_str()));
    EXPECT_EQ(inet_addr("127.0.0.6"), radGetIPByName("server"));
}

TEST_F(ResolverTest, ReadsAddressAndNameInTurnWhereverTheLinesEnd) {
    writeHosts("127.0.0.2\nfirst 127.0.0.3 second\n\n127.0.0.4\r\nthird");
    EXPECT_EQ(inet_addr("127.0.0.2"), radGetIPByName("first"));
    EXPECT_EQ(inet_addr("127.0.0.3"), radGetIPByName("second"));
    EXPECT_EQ(inet_addr("127.0.0.4"), radGetIPByName("third"));
}

TEST_F(ResolverTest, FindsNothingInAFileWithoutTheName) {
    for (const char *text : {"", "\n\n", "server\n", "127.0.0.2\n", "127.0.0.2 other\n"}) {
        writeHosts(text);
        const LogRecorder log;
        EXPECT_EQ(kNotFound, radGetIPByName("server")) << text;
        EXPECT_LOG(log, couldNotResolve("server"));
        EXPECT_EQ(text, root_.read("/var/hosts"));
    }
}

TEST_F(ResolverTest, CreatesAMissingHostsFileEmpty) {
    root_.makeFolder("/var");
    const LogRecorder log;
    EXPECT_EQ(kNotFound, radGetIPByName("server"));
    ASSERT_TRUE(root_.exists("/var/hosts"));
    EXPECT_EQ("", root_.read("/var/hosts"));
    EXPECT_LOG(log, couldNotResolve("server"));
}

TEST_F(ResolverTest, FailsWhenTheHostsFileCannotBeCreated) {
    const LogRecorder log;
    EXPECT_EQ(kNoFile, radGetIPByName("server"));  // there is no folder for it
    EXPECT_LOG(log, couldNotResolve("server"), "error radGetIPByName> failed to open /var/hosts");
}

TEST_F(ResolverTest, FindsNothingWithoutAName) {
    EXPECT_EQ(kNotFound, radGetIPByName(nullptr));
}

using HostAddress = ResolverTest;

TEST_F(HostAddress, IsTheAddressOfTheHostName) {
    const HostName name("gateway");
    writeHosts("127.0.0.7 gateway\n");
    EXPECT_EQ(inet_addr("127.0.0.7"), radGetHostIP());
    const ResolverEntry entry("gateway", "127.0.0.8");
    const LogRecorder log;
    EXPECT_EQ(inet_addr("127.0.0.8"), radGetHostIP());
    EXPECT_LOG(log);
}

TEST_F(HostAddress, IsNoneWithoutAHostName) {
    const FailingCall failure("gethostname", EFAULT);
    const LogRecorder log;
    EXPECT_EQ(kNotFound, radGetHostIP());
    EXPECT_LOG(log, "error radGetHostIP: couldn't get hostname");
}

TEST_F(HostAddress, IsNoneWhenTheHostNameIsKnownNowhere) {
    const HostName name("gateway");
    writeHosts("");
    const LogRecorder log;
    EXPECT_EQ(kNotFound, radGetHostIP());
    EXPECT_LOG(log, couldNotResolve("gateway"), "error radGetHostIP: couldn't get host IP address");
}

TEST_F(HostAddress, PassesAFailureOfTheHostsFileOnWithoutAMessageOfItsOwn) {
    const HostName name("gateway");
    const LogRecorder log;
    EXPECT_EQ(kNoFile, radGetHostIP());
    EXPECT_LOG(log, couldNotResolve("gateway"), "error radGetIPByName> failed to open /var/hosts");
}

}  // namespace
}  // namespace lanyard::test::resolver_test
