// Accounting records against the real server: what arrives is what it writes down.
#include <gmock/gmock.h>
#include <tuple>

#include <lanyard/radius/methods.h>

#include "tests/interop/fixture.h"

namespace lanyard::test::accounting_test {
namespace {

using testing::HasSubstr;

class Accounting : public Interop {
  protected:
    static std::string servers(const std::string &secret) {
        return "authserver " + entry(server().authPort()) + "\nacctserver " +
               entry(server().acctPort(), secret) + "\n";
    }
};

class AccountingStatus : public Accounting,
                         public testing::WithParamInterface<std::tuple<uint32_t, const char *>> {};

TEST_P(AccountingStatus, EachStatus_IsRecordedByTheServer) {
    const uint32_t status = std::get<0>(GetParam());
    const std::string name = std::get<1>(GetParam());
    configure(servers(server().secret()));
    const size_t before = server().accountingRecords().size();
    int result = -2;
    const Written written = capture([&] { result = radAcct(status); });
    EXPECT_EQ(0, result);
    EXPECT_EQ("RADIUS Accounting Exchange OK\n", written.out);
    EXPECT_EQ("", written.err);
    const std::string record = server().accountingRecords().substr(before);
    EXPECT_EQ(1, occurrences(record, "Acct-Status-Type = "));
    EXPECT_THAT(record, HasSubstr("Acct-Status-Type = " + name + "\n"));
    EXPECT_EQ(1, occurrences(record, "NAS-IP-Address = "));
}

INSTANTIATE_TEST_SUITE_P(Kinds, AccountingStatus,
                         testing::Values(std::tuple{1U, "Start"}, std::tuple{2U, "Stop"},
                                         std::tuple{7U, "Accounting-On"},
                                         std::tuple{8U, "Accounting-Off"},
                                         std::tuple{4711U, "4711"}));

TEST_F(Accounting, WrongSharedSecret_MeetsSilence) {
    configure(servers("not-the-secret"));
    const std::string before = server().accountingRecords();
    int result = -2;
    const Written written = capture([&] { result = radAcct(7); });
    EXPECT_EQ(-1, result);
    EXPECT_EQ("", written.out);
    EXPECT_THAT(written.err, HasSubstr("RADIUS Accounting Exchange Failed"));
    EXPECT_EQ(before, server().accountingRecords());
}

TEST_F(Accounting, NoAccountingServer_Fails) {
    configure("authserver " + entry(server().authPort()) + "\n");
    int result = -2;
    const Written written = capture([&] { result = radAcct(7); });
    EXPECT_EQ(-1, result);
    EXPECT_THAT(written.err, HasSubstr("RADIUS is not configured properly"));
}

}  // namespace
}  // namespace lanyard::test::accounting_test
