// Addresses without a question to the resolver: this device's own, for a second, and dotted ones.
#include <arpa/inet.h>
#include <optional>
#include <string>

#include "tests/support/test.h"
#include "tests/unit/client/exchange_fixture.h"

namespace lanyard::test::own_address_test {
namespace {

constexpr uint32_t kFirst = 0x7f010203;  // of ExchangeTest
constexpr uint32_t kSecond = 0x7f010204;

class OwnAddressTest : public ExchangeTest {
  protected:
    OwnAddressTest() { clock_.advance(2); }  // past what an earlier test has left

    // The NAS-IP-Address of a request; 0 where it has none. No server is asked.
    static uint32_t sentAddress() {
        const PairList pairs = nemo();
        RadPair *list = nullptr;
        EXPECT_EQ(-1, radBuildAndSendReq(kAccess, pairs.get(), &list));
        const RadPair *pair = radPairGet(pairs.get(), RAD_ATTR_NAS_IP_ADDRESS);
        return pair ? pair->numValue : 0;
    }

    const ClockAhead clock_;
    const ConfiguredLibrary library_{{.authServers = {{.host = "0.0.0.0", .secret = kSecret}}}};
};

TEST_F(OwnAddressTest, AnswerOfTheResolver_HoldsForASecond) {
    EXPECT_EQ(kFirst, sentAddress());
    const ResolverEntry changed("gateway", "127.1.2.4");
    const int asked = resolverCalls();
    clock_.advance(0.9);
    EXPECT_EQ(kFirst, sentAddress());
    EXPECT_EQ(asked, resolverCalls());
    clock_.advance(0.2);
    EXPECT_EQ(kSecond, sentAddress());
    EXPECT_EQ(asked + 1, resolverCalls());
}

TEST_F(OwnAddressTest, NewHostName_CountsAtOnce) {
    EXPECT_EQ(kFirst, sentAddress());
    const HostName renamed("gateway2");
    const ResolverEntry entry("gateway2", "127.1.2.4");
    EXPECT_EQ(kSecond, sentAddress());
}

TEST_F(OwnAddressTest, Failure_IsNotKept) {
    const HostName renamed("gateway2");
    EXPECT_EQ(0U, sentAddress());
    const ResolverEntry entry("gateway2", "127.1.2.4");
    EXPECT_EQ(kSecond, sentAddress());
}

TEST_F(OwnAddressTest, AddressZero_IsRefusedEachTime) {
    const HostName renamed("gateway2");
    std::optional<ResolverEntry> entry(std::in_place, "gateway2", "0.0.0.0");
    const LogRecorder log;
    EXPECT_EQ(0U, sentAddress());
    EXPECT_EQ(0U, sentAddress());
    EXPECT_LOG(log, "error radGetHostIP: couldn't get host IP address",
               "error radGetHostIP: couldn't get host IP address");
}

TEST_F(OwnAddressTest, AddressOfTheHostsFile_IsComplainedOfAtEachRequest) {
    const HostName renamed("gateway2");
    library_.root().write("/var/hosts", "127.1.2.4 gateway2\n");
    const LogRecorder log;
    EXPECT_EQ(kSecond, sentAddress());
    EXPECT_EQ(kSecond, sentAddress());
    EXPECT_LOG(log, "error radGetIPByName: couldn't resolve hostname: gateway2",
               "error radGetIPByName: couldn't resolve hostname: gateway2");
}

TEST_F(OwnAddressTest, PublicLookup_AlwaysAsks) {
    EXPECT_EQ(kFirst, ntohl(radGetHostIP()));
    const ResolverEntry changed("gateway", "127.1.2.4");
    EXPECT_EQ(kSecond, ntohl(radGetHostIP()));
}

TEST_F(OwnAddressTest, DigitsAndDots_AskNoResolver) {
    const int asked = resolverCalls();
    EXPECT_EQ(0x7f000001U, ntohl(radGetIPByName("127.0.0.1")));
    EXPECT_EQ(0x7f000001U, ntohl(radGetIPByName("127.1")));
    EXPECT_EQ(0x7f000001U, ntohl(radGetIPByName("2130706433")));
    EXPECT_EQ(INADDR_NONE, radGetIPByName("255.255.255.255"));
    EXPECT_EQ(asked, resolverCalls());
}

TEST_F(OwnAddressTest, OtherNames_AskIt) {
    for (const char *name :
         {"127.0.0.256", "127.0.0.1.", "1.2.3.4.5", "0x7f000001", "127.0.0.1 ", "", "."}) {
        const int asked = resolverCalls();
        radGetIPByName(name);
        EXPECT_EQ(asked + 1, resolverCalls()) << name;
    }
}

}  // namespace
}  // namespace lanyard::test::own_address_test
