// Several servers: who is asked, and whose answer counts.
#include <array>
#include <gmock/gmock.h>

#include <lanyard/radius/engine.h>
#include <lanyard/radius/methods.h>

#include "tests/interop/fixture.h"

namespace lanyard::test::server_choice_test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

class ServerChoice : public Interop {
  protected:
    const SilentServer &silent() const { return silent_; }

  private:
    SilentServer silent_;
};

TEST_F(ServerChoice, SilentServer_PassedOver) {
    configure("authserver " + entry(silent().port()) + ", " + entry(server().authPort()) + "\n");
    int result = -2;
    const Written written = capture([&] { result = radAuth("alice", "wonderland"); });
    EXPECT_EQ(0, result);
    EXPECT_EQ(1, silent().packets());
    EXPECT_THAT(written.err, HasSubstr("No reply from RADIUS server 127.0.0.1:" +
                                       std::to_string(silent().port())));
    EXPECT_THAT(written.out, HasSubstr("Welcome, alice"));
}

TEST_F(ServerChoice, SilentServer_AskedAgainAsOftenAsConfigured) {
    configure("authserver 127.0.0.1:" + std::to_string(silent().port()) +
              ":1:1:" + server().secret() + " " + entry(server().authPort()) + "\n");
    int result = -2;
    capture([&] { result = radAuth("alice", "wonderland"); });
    EXPECT_EQ(0, result);
    EXPECT_EQ(2, silent().packets());
}

TEST_F(ServerChoice, SilentAccountingServer_PassedOver) {
    configure("authserver " + entry(server().authPort()) + "\nacctserver " +
              entry(silent().port()) + " " + entry(server().acctPort()) + "\n");
    const size_t before = server().accountingRecords().size();
    int result = -2;
    capture([&] { result = radAcct(7); });
    EXPECT_EQ(0, result);
    EXPECT_EQ(1, silent().packets());
    // The record that failed over carries no attribute twice.
    const std::string record = server().accountingRecords().substr(before);
    EXPECT_EQ(1, occurrences(record, "NAS-IP-Address = "));
    EXPECT_THAT(record, HasSubstr("Acct-Status-Type = Accounting-On\n"));
}

TEST_F(ServerChoice, Reject_IsFinal) {
    configure("authserver " + entry(server().authPort()) + " " + entry(silent().port()) + "\n");
    int result = -2;
    capture([&] { result = radAuth("alice", "wrong"); });
    EXPECT_EQ(-1, result);
    EXPECT_EQ(0, silent().packets());
}

TEST_F(ServerChoice, AllServers_AskedAndReportedInOrder) {
    configure("authserver " + entry(server().authPort()) + " " + entry(silent().port()) + " " +
              entry(server().signedPort()) + "\n");
    std::array<int32_t, 4> results = {0, 0, 0, 4711};
    int right = -2;
    capture([&] { right = radAuthCheckAllServer("alice", "wonderland", results.data()); });
    EXPECT_EQ(0, right);
    EXPECT_THAT(results, ElementsAre(RAD_CODE_ACCESS_ACCEPT, -1, RAD_CODE_ACCESS_ACCEPT, 4711));
    EXPECT_EQ(1, silent().packets());

    int wrong = -2;
    capture([&] { wrong = radAuthCheckAllServer("alice", "wrong", results.data()); });
    EXPECT_EQ(-1, wrong);
    EXPECT_THAT(results, ElementsAre(RAD_CODE_ACCESS_REJECT, -1, RAD_CODE_ACCESS_REJECT, 4711));
}

}  // namespace
}  // namespace lanyard::test::server_choice_test
