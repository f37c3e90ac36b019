// One accounting record: what goes out, what is said of the answer.
#include <lanyard/radius/error.h>
#include <lanyard/radius/methods.h>

#include "tests/unit/login/outcome.h"

namespace lanyard::test::accounting_test {
namespace {

using namespace std::string_literals;

constexpr const char *kOk = "RADIUS Accounting Exchange OK\n";
constexpr const char *kFailed = "error radAcct> RADIUS Accounting Exchange Failed";

Attributes record(uint32_t status) {
    return Attributes().addInteger(40, status).addAddress(4, kDeviceAddress);
}

Outcome account(uint32_t status) {
    return runAs("radAcct", [status] { return radAcct(status); });
}

TEST(Accounting, AnsweredRecordIsPrinted) {
    const OneAcctServer far({accountingResponse()});
    const Outcome run = account(1);
    EXPECT_THAT(run, Ended(0, kOk));
    EXPECT_PROBLEMS(run);
    EXPECT_EQ(1U, far.server.requestCount());
}

TEST(Accounting, StatusIsSentAsGiven) {
    OneAcctServer far({});
    far.server.otherwise(accountingResponse());
    size_t sent = 0;
    for (const uint32_t status : {0U, 1U, 2U, 3U, 7U, 8U, 0x01020304U, UINT32_MAX}) {
        EXPECT_EQ(0, account(status).result);
        expectAccountingRequest(far.server.request(sent), kSecret, record(status));
        ++sent;
    }
}

TEST(Accounting, AttributesOfTheAnswerAreShownInOrder) {
    const OneAcctServer far({accountingResponse(
        Attributes().addText(18, "Noted").addInteger(41, 12).addText(44, "a1").addInteger(40, 7))});
    const Outcome run = account(7);
    EXPECT_THAT(run, Ended(0,
                           kOk + "Attributes Received: \n"s
                                 "Reply-Message: Noted\n"
                                 "Acct-Session-Id: 0x6131\n",
                           {"packet radPairShow> Acct-Delay-Time: 12",
                            "packet radPairShow> Acct-Status-Type: Accounting-On"}));
    EXPECT_PROBLEMS(run);
}

TEST(Accounting, AnotherCodeIsAFailureAndItsAttributesAreShown) {
    for (const uint8_t code : Bytes{2, 3, 4, 11}) {
        const OneAcctServer far({answer(code, Attributes().addText(18, "What?"))});
        const Outcome run = account(1);
        EXPECT_THAT(run, Ended(-1, "Attributes Received: \nReply-Message: What?\n", {kFailed}));
        EXPECT_PROBLEMS(run, kFailed);
    }
}

TEST(Accounting, SilentServerIsAFailure) {
    const SilentPort silent;
    const ConfiguredLibrary library({.acctServers = {serverEntry(silent, 0, 2)}});
    const Outcome run = account(7);
    EXPECT_THAT(run, Ended(-1, "", {kFailed}));
    EXPECT_PROBLEMS(run,
                    "error radSendtoServer: No reply from RADIUS server 127.0.0.1:" +
                        std::to_string(silent.port()),
                    kFailed);
    const std::vector<Bytes> received = silent.received();
    ASSERT_EQ(3U, received.size());
    EXPECT_BYTES_EQ(received[0], received[2]);
}

TEST(Accounting, ForgedAnswerIsAFailureAndNotShown) {
    const OneAcctServer far(
        {accountingResponse(Attributes().addText(18, "Noted")).withWrongAuthenticator()});
    EXPECT_THAT(account(1), Ended(-1, "", {kFailed}));
}

TEST(Accounting, NextServerIsAskedWhenOneIsSilent) {
    const SilentPort silent;
    const ScriptedServer server(kSecret, {accountingResponse()});
    const ConfiguredLibrary library(
        {.acctServers = {serverEntry(silent, 0), serverEntry(server, kPatience)}});
    EXPECT_THAT(account(2), Ended(0, kOk));
    expectAccountingRequest(server.request(0), kSecret, record(2));
}

TEST(Accounting, AuthenticationServersAreNotAsked) {
    const OneAuthServer far({accountingResponse()});
    const Outcome run = account(1);
    EXPECT_THAT(run, Ended(-1, "", {kFailed}));
    EXPECT_PROBLEMS(run, "error radBuildAndSendReq: RADIUS is not configured properly", kFailed);
    EXPECT_EQ(0U, far.server.requestCount());
}

TEST(Accounting, SecretStaysOutOfTheLog) {
    const SilentPort silent;
    const ScriptedServer forger(kSecret, {accountingResponse().withWrongAuthenticator()});
    ServerEntry first = serverEntry(silent, 0);
    first.secret = kSecret;
    const ConfiguredLibrary library({.acctServers = {first, serverEntry(forger, kPatience)}});
    const Outcome run = account(1);
    EXPECT_EQ(-1, run.result);
    EXPECT_EQ(3U, run.problemLog().size());
    expectSecrecy(run);
}

TEST(Accounting, RecordThatCannotBeMade_FailsWithoutAMessageOfItsOwn) {
    const OneAcctServer far({accept()});
    EXPECT_EQ(-1, account(1).result);
    ASSERT_NE(nullptr, radLastError());
    failAllocation(1);
    const Outcome run = account(1);
    stopFailing();
    EXPECT_THAT(run, EndedWithLog(-1, "", {"critical radPairNew: out of memory"}));
    EXPECT_EQ(nullptr, radLastError()) << "no record of an earlier failure";
    EXPECT_EQ(1U, far.server.requestCount());
}

TEST(Accounting, EveryAllocationMayFail) {
    OneAcctServer far({});
    far.server.otherwise(accountingResponse(Attributes().addText(18, "Noted").addInteger(41, 12)));
    const unsigned failed = forEachFailingAllocation([] {
        const Outcome run = account(1);
        EXPECT_EQ(allocationFailed() ? -1 : 0, run.result);
        EXPECT_EQ(allocationFailed() ? "" : kOk + "Attributes Received: \nReply-Message: Noted\n"s,
                  run.output);
    });
    // Two pairs of the request, the request, the reply and its two pairs.
    EXPECT_GE(failed, 6U);
}

}  // namespace
}  // namespace lanyard::test::accounting_test
