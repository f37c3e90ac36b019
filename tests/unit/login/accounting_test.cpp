// One accounting record: what goes out, what is said of the answer.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <lanyard/radius/error.h>
#include <lanyard/radius/methods.h>

#include "tests/support/failing_partition.h"
#include "tests/unit/login/outcome.h"

namespace lanyard::test::accounting_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::StrEq;

constexpr const char *kFailed = "RADIUS Accounting Exchange Failed\n";

Attributes record(uint32_t status) {
    return Attributes().addInteger(40, status).addAddress(4, kDeviceAddress);
}

Outcome account(uint32_t status) {
    return runAs("radAcct", [status] { return radAcct(status); });
}

TEST(Accounting, AnsweredRecordIsPrinted) {
    const OneAcctServer far({accountingResponse()});
    const Outcome run = account(1);
    EXPECT_EQ(0, run.result);
    EXPECT_EQ("RADIUS Accounting Exchange OK\n", run.output);
    EXPECT_THAT(run.told, IsEmpty());
    EXPECT_THAT(run.problems, IsEmpty());
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
    EXPECT_EQ(0, run.result);
    EXPECT_EQ(
        "RADIUS Accounting Exchange OK\n"
        "Attributes Received: \n"
        "Reply-Message: Noted\n"
        "Acct-Session-Id: 0x6131\n",
        run.output);
    EXPECT_THAT(run.told,
                ElementsAre(Logged(7, kDump, "radPairShow", "Acct-Delay-Time: 12\n"),
                            Logged(7, kDump, "radPairShow", "Acct-Status-Type: Accounting-On\n")));
    EXPECT_THAT(run.problems, IsEmpty());
}

TEST(Accounting, AnotherCodeIsAFailureAndItsAttributesAreShown) {
    for (const uint8_t code : Bytes{2, 3, 4, 11}) {
        const OneAcctServer far({answer(code, Attributes().addText(18, "What?"))});
        const Outcome run = account(1);
        EXPECT_EQ(-1, run.result);
        EXPECT_EQ("Attributes Received: \nReply-Message: What?\n", run.output);
        EXPECT_THAT(run.problems, ElementsAre(Logged(7, kError, "radAcct", kFailed)));
    }
}

TEST(Accounting, SilentServerIsAFailure) {
    const SilentPort silent;
    const ConfiguredLibrary library({.acctServers = {serverEntry(silent, 0, 2)}});
    const Outcome run = account(7);
    EXPECT_EQ(-1, run.result);
    EXPECT_EQ("", run.output);
    EXPECT_THAT(run.problems,
                ElementsAre(Logged(7, kError, "radSendtoServer",
                                   "radSendtoServer: No reply from RADIUS server 127.0.0.1:" +
                                       std::to_string(silent.port()) + "\n"),
                            Logged(7, kError, "radAcct", kFailed)));
    const std::vector<Bytes> received = silent.received();
    ASSERT_EQ(3U, received.size());
    EXPECT_BYTES_EQ(received[0], received[2]);
}

TEST(Accounting, ForgedAnswerIsAFailureAndNotShown) {
    const OneAcctServer far(
        {accountingResponse(Attributes().addText(18, "Noted")).withWrongAuthenticator()});
    const Outcome run = account(1);
    EXPECT_EQ(-1, run.result);
    EXPECT_EQ("", run.output);
    EXPECT_THAT(run.told, ElementsAre(Logged(7, kError, "radAcct", kFailed)));
}

TEST(Accounting, NextServerIsAskedWhenOneIsSilent) {
    const SilentPort silent;
    const ScriptedServer server(kSecret, {accountingResponse()});
    const ConfiguredLibrary library(
        {.acctServers = {serverEntry(silent, 0), serverEntry(server, kPatience)}});
    const Outcome run = account(2);
    EXPECT_EQ(0, run.result);
    EXPECT_EQ("RADIUS Accounting Exchange OK\n", run.output);
    EXPECT_THAT(run.told, IsEmpty());
    expectAccountingRequest(server.request(0), kSecret, record(2));
}

TEST(Accounting, AuthenticationServersAreNotAsked) {
    const OneAuthServer far({accountingResponse()});
    const Outcome run = account(1);
    EXPECT_EQ(-1, run.result);
    EXPECT_EQ("", run.output);
    EXPECT_THAT(run.problems,
                ElementsAre(Logged(7, kError, "radBuildAndSendReq",
                                   "radBuildAndSendReq: RADIUS is not configured properly\n"),
                            Logged(7, kError, "radAcct", kFailed)));
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
    EXPECT_EQ(3U, run.problems.size());
    expectSecrecy(run);
}

TEST(Accounting, RecordThatCannotBeMadeFailsWithoutAMessageOfItsOwn) {
    const OneAcctServer far({});
    failAllocation(1);
    const Outcome run = account(1);
    stopFailing();
    EXPECT_EQ(-1, run.result);
    EXPECT_EQ("", run.output);
    EXPECT_THAT(run.lines,
                ElementsAre(Logged(7, kMemory, "radPairNew", "radPairNew: out of memory\n")));
    EXPECT_EQ(0U, far.server.requestCount());
}

TEST(Accounting, RecordThatCannotBeMade_LeavesNoRecordOfAnEarlierFailure) {
    const ConfiguredLibrary library;
    EXPECT_EQ(-1, radAcct(1));
    ASSERT_NE(nullptr, radLastError());
    failAllocation(1);
    EXPECT_EQ(-1, radAcct(1));
    stopFailing();
    EXPECT_EQ(nullptr, radLastError());
}

TEST(Accounting, EveryAllocationMayFail) {
    OneAcctServer far({});
    far.server.otherwise(accountingResponse(Attributes().addText(18, "Noted").addInteger(41, 12)));
    const unsigned failed = forEachFailingAllocation([] {
        const Outcome run = account(1);
        EXPECT_EQ(allocationFailed() ? -1 : 0, run.result);
        EXPECT_THAT(run.output, allocationFailed() ? StrEq("")
                                                   : StrEq("RADIUS Accounting Exchange OK\n"
                                                           "Attributes Received: \n"
                                                           "Reply-Message: Noted\n"));
    });
    // Two pairs of the request, the request, the reply and its two pairs.
    EXPECT_GE(failed, 6U);
}

}  // namespace
}  // namespace lanyard::test::accounting_test
