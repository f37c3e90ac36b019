// The program over accounting: its command line and the start of the library.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <lanyard/radius/frame.h>
#include <lanyard/radius/methods.h>

#include "tests/support/failing_partition.h"
#include "tests/unit/login/outcome.h"

namespace lanyard::test::sample_accounting_test {
namespace {

using testing::AnyOf;
using testing::Contains;
using testing::ElementsAre;
using testing::Field;
using testing::IsEmpty;

constexpr const char *kDefaultFile = "/var/radius.conf";
constexpr const char *kOk = "RADIUS Accounting Exchange OK\n";
constexpr const char *kUsage = "Usage: radacct [-v] [ -f confFile] [-s status]\n";

Outcome account(Arguments arguments) {
    return runAs("radAcctSampleMain",
                 [&arguments] { return radAcctSampleMain(arguments.count(), arguments.vector()); });
}

class AccountingProgram : public testing::Test {
  protected:
    AccountingProgram() {
        server_.otherwise(accountingResponse());
        device_.configure(kDefaultFile, login_, server_);
    }

    void expectSent(size_t index, uint32_t status) {
        expectAccountingRequest(server_.request(index), kSecret,
                                Attributes().addInteger(40, status).addAddress(4, kDeviceAddress));
    }

    // Refused before anything else was done.
    void expectNothingStarted() const {
        EXPECT_EQ(0U, radMemPartId);
        EXPECT_EQ(0U, server_.requestCount());
    }

    ScriptedServer login_{kSecret};
    ScriptedServer server_{kSecret};
    StoppedDevice device_;
};

TEST(AccountingProgramInit, DoesNothing) {
    EXPECT_EQ(0, radAcctSampleInit());
    EXPECT_EQ(0U, radMemPartId);
}

TEST_F(AccountingProgram, WithoutArgumentsItSendsStatus0FromTheDefaultFile) {
    const Outcome run = account({"radacct"});
    EXPECT_EQ(0, run.result);
    EXPECT_EQ(kOk, run.output);
    EXPECT_THAT(run.told, IsEmpty());
    EXPECT_THAT(run.problems, IsEmpty());
    expectSent(0, 0);
    EXPECT_EQ(0U, login_.requestCount());
    expectSecrecy(run);
}

TEST_F(AccountingProgram, StatusIsTakenAsANumber) {
    struct Case {
        const char *text;
        uint32_t status;
    };
    size_t sent = 0;
    for (const auto &[text, status] :
         {Case{"7", 7}, Case{"08", 8}, Case{"+2", 2}, Case{" 1", 1}, Case{"2nd", 2},
          Case{"Start", 0}, Case{"", 0}, Case{"2147483647", 2147483647}, Case{"-1", UINT32_MAX}}) {
        SCOPED_TRACE(text);
        EXPECT_EQ(0, account({"radacct", "-s", text}).result);
        expectSent(sent, status);
        ++sent;
    }
}

TEST_F(AccountingProgram, OptionsMayBeJoinedAndRepeated) {
    EXPECT_EQ(0, account({"radacct", "-vs7"}).result);
    expectSent(0, 7);
    EXPECT_EQ(0, account({"radacct", "-v", "-v", "-s", "1", "-s", "2"}).result);
    expectSent(1, 2);
}

TEST_F(AccountingProgram, StatusOfAnEarlierCallIsForgotten) {
    EXPECT_EQ(0, account({"radacct", "-s", "7"}).result);
    EXPECT_EQ(0, account({"radacct"}).result);
    EXPECT_EQ(0, account({"radacct", "-v", "-s", "8"}).result);
    expectSent(0, 7);
    expectSent(1, 0);
    expectSent(2, 8);
}

TEST_F(AccountingProgram, OtherArgumentsAreIgnored) {
    EXPECT_EQ(0, account({"radacct", "-s", "7", "nemo", "arctangent"}).result);
    expectSent(0, 7);
}

TEST_F(AccountingProgram, FailureIsPassedOn) {
    server_.then(accept());
    const Outcome run = account({"radacct", "-s", "1"});
    EXPECT_EQ(-1, run.result);
    EXPECT_EQ("", run.output);
    EXPECT_THAT(run.problems,
                ElementsAre(Logged(7, kError, "radAcct", "RADIUS Accounting Exchange Failed\n")));
}

TEST_F(AccountingProgram, FileMayBeNamed) {
    device_.root().remove(kDefaultFile);
    device_.configure("/etc/other.conf", login_, server_);
    EXPECT_EQ(0, account({"radacct", "-s", "2", "-f", "/etc/other.conf"}).result);
    expectSent(0, 2);
}

TEST_F(AccountingProgram, PathMayHave99CharactersAndNoMore) {
    const std::string longest = "/var/" + std::string(94, 'x');
    const std::string tooLong = longest + 'x';
    device_.root().remove(kDefaultFile);
    device_.configure(longest, login_, server_);
    device_.configure(tooLong, login_, server_);

    const Outcome refused = account({"radacct", "-f", tooLong});
    EXPECT_EQ(-1, refused.result);
    EXPECT_EQ(kUsage, refused.output);
    EXPECT_THAT(refused.lines, IsEmpty());
    expectNothingStarted();

    EXPECT_EQ(0, account({"radacct", "-f", longest}).result);
    expectSent(0, 0);
}

TEST_F(AccountingProgram, UnknownOptionIsAUsageError) {
    for (const char *option : {"-x", "-vx", "-u", "-?", "--help", "-:"}) {
        SCOPED_TRACE(option);
        const Outcome run = account({"radacct", "-s", "7", option, "-v"});
        EXPECT_EQ(-1, run.result);
        EXPECT_EQ(kUsage, run.output);
        EXPECT_THAT(run.lines, IsEmpty());
    }
    expectNothingStarted();
    EXPECT_EQ(0, account({"radacct", "-s", "7"}).result);
    expectSent(0, 7);
}

TEST_F(AccountingProgram, OptionWithoutItsValueIsAnError) {
    for (const char *option : {"-s", "-f", "-vs", "-vf"}) {
        SCOPED_TRACE(option);
        const Outcome run = account({"radacct", option});
        EXPECT_EQ(-1, run.result);
        EXPECT_EQ("", run.output);
        EXPECT_THAT(run.lines, ElementsAre(Logged(7, kError, "radAcctSampleMain",
                                                  "ERROR: option value not specified \n")));
    }
    expectNothingStarted();
}

TEST_F(AccountingProgram, FileThatIsMissingIsAFailedStart) {
    const Outcome run = account({"radacct", "-f", "/var/missing.conf"});
    EXPECT_EQ(-1, run.result);
    EXPECT_EQ("", run.output);
    EXPECT_THAT(
        run.problems,
        ElementsAre(Logged(7, kError, "radConfigure",
                           "radConfigure: can't open /var/missing.conf: No such file or "
                           "directory\n"),
                    Logged(7, kError, "radAcctSampleMain", "Unable to initialize radius \n")));
    EXPECT_EQ(0U, server_.requestCount());

    EXPECT_EQ(0, account({"radacct"}).result) << "a later call tries again";
}

TEST_F(AccountingProgram, FirstConfigurationStays) {
    EXPECT_EQ(0, account({"radacct", "-s", "1"}).result);
    EXPECT_EQ(0, account({"radacct", "-s", "2", "-f", "/var/missing.conf"}).result);
    expectSent(1, 2);
}

// A dictionary of which a part is missing does not end the start, so what it lacks decides.
TEST_F(AccountingProgram, EveryAllocationMayFail) {
    unsigned withDictionary = 0;
    forEachFailingAllocation([&withDictionary] {
        const Outcome run = account({"radacct"});
        const auto isDictionary = Field(&LogLine::function, "radDictLoad");
        if (!allocationFailed()) {
            EXPECT_EQ(0, run.result);
        } else if (!testing::Value(run.problems, Contains(isDictionary))) {
            ++withDictionary;
            EXPECT_EQ(-1, run.result);
            EXPECT_EQ("", run.output);
            EXPECT_THAT(
                run.problems,
                Contains(
                    AnyOf(Logged(7, kError, "radAcctSampleMain", "Unable to initialize radius \n"),
                          Logged(7, kError, "radAcct", "RADIUS Accounting Exchange Failed\n"),
                          Logged(7, kMemory, "radPairNew", "radPairNew: out of memory\n"))));
        }
        stopLibrary();
    });
    // Two servers with two texts each, two numbers, and the exchange.
    EXPECT_GE(withDictionary, 10U);
}

}  // namespace
}  // namespace lanyard::test::sample_accounting_test
