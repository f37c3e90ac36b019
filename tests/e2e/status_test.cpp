// What pnac-wired tells of its supplicants, and which of them it does not listen to.
#include <csignal>
#include <string>

#include "tests/e2e/end_to_end.h"
#include "tests/interop/wait_until.h"

namespace lanyard::test::status_test {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

class StatusTest : public EndToEnd {
  protected:
    // A supplicant that has started a login at an authenticator that runs.
    static std::unique_ptr<Supplicant> start(const std::string &password) {
        auto made = std::make_unique<Supplicant>(wire(), md5Account("alice", password));
        made->awaitReady();
        made->start();
        return made;
    }
};

TEST_F(StatusTest, SupplicantLogsIn_StatusTellsOfIt) {
    const auto alice = connect(md5Account("alice", "wonderland"));
    ASSERT_TRUE(device().firstEventOf(VirtualWire::kUserAddress));
    const nlohmann::json status = device().status();
    EXPECT_EQ(VirtualWire::kPort, status.at("interface"));
    ASSERT_THAT(status.at("sessions"), SizeIs(1));
    const nlohmann::json &session = status.at("sessions")[0];
    EXPECT_EQ(VirtualWire::kUserAddress, session.at("address"));
    EXPECT_EQ("alice", session.at("identity"));
    EXPECT_EQ("terminate", session.at("then"));
    EXPECT_LT(session.at("since"), session.at("until"));
    EXPECT_THAT(status.at("attempts"), IsEmpty());
    EXPECT_EQ(1, status.at("counters").at("authorized"));

    const ProgramResult table = device().showStatus({VirtualWire::kPort});
    EXPECT_EQ(0, table.status) << table.err;
    EXPECT_THAT(table.out, HasSubstr("1 authorized, 0 logging in, 0 quiet\n"));
    EXPECT_THAT(table.out, HasSubstr("\"alice\"\n"));

    alice->logOff();
    EXPECT_TRUE(waitUntil([&] { return device().status().at("sessions").empty(); }));
}

TEST_F(StatusTest, NobodyRuns_Fails) {
    const ProgramResult result = device().showStatus({});
    EXPECT_EQ(1, result.status);
    EXPECT_EQ("pnac-wired: does not run\n", result.err);
    device().startAuthenticator();
    EXPECT_EQ(1, device().showStatus({"another"}).status);
    device().signalAuthenticator(SIGTERM);
    EXPECT_EQ(0, device().awaitAuthenticatorsEnd());
    EXPECT_EQ(1, device().showStatus({}).status);
}

TEST_F(StatusTest, WrongPassword_NextLoginIsNotHeard) {
    device().startAuthenticator();
    EXPECT_TRUE(start("looking-glass")->fails());
    const auto second = start("wonderland");
    EXPECT_TRUE(waitUntil(
        [&] { return device().status().at("counters").at("frames_while_quiet").get<int>() > 0; }));
    const nlohmann::json status = device().status();
    ASSERT_THAT(status.at("quiet"), SizeIs(1));
    EXPECT_EQ(VirtualWire::kUserAddress, status.at("quiet")[0].at("address"));
    EXPECT_THAT(status.at("sessions"), IsEmpty());
    EXPECT_THAT(status.at("attempts"), IsEmpty());
    // Others are.
    EXPECT_EQ("authorized", knock(md5Account("alice", "wonderland")).at("event"));
}

TEST_F(StatusTest, WrongPasswordWithoutAQuietPeriod_NextLoginAccepted) {
    device().startAuthenticator({"--quiet-period", "0"});
    EXPECT_TRUE(start("looking-glass")->fails());
    EXPECT_TRUE(start("wonderland")->succeeds());
}

}  // namespace
}  // namespace lanyard::test::status_test
