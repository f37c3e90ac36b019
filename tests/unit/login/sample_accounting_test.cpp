// What the sample program of accounting has alone: the status.

#include <lanyard/radius/frame.h>
#include <lanyard/radius/methods.h>
#include <palcore.h>

#include "tests/unit/login/sample_program.h"

namespace lanyard::test::sample_accounting_test {
namespace {

using SampleAccounting = SampleProgram;

INSTANTIATE_TEST_SUITE_P(Programs, SampleAccounting, testing::Values(programs().back()),
                         nameOf<Program>);

TEST_P(SampleAccounting, WithoutAStatusItSends0) {
    EXPECT_EQ(0, run({}).result);
    EXPECT_EQ(0, run({"-s", "7"}).result);
    EXPECT_EQ(0, run({}).result) << "that of an earlier call is forgotten";
    expectRecord(0, 0);
    expectRecord(1, 7);
    expectRecord(2, 0);
}

TEST_P(SampleAccounting, StatusIsTakenAsANumber) {
    struct Case {
        const char *text;
        uint32_t status;
    };
    size_t sent = 0;
    for (const auto &[text, status] :
         {Case{"7", 7}, Case{"08", 8}, Case{"+2", 2}, Case{" 1", 1}, Case{"2nd", 2},
          Case{"Start", 0}, Case{"", 0}, Case{"2147483647", 2147483647}, Case{"-1", UINT32_MAX}}) {
        SCOPED_TRACE(text);
        EXPECT_EQ(0, run({"-s", text}).result);
        expectRecord(sent++, status);
    }
}

TEST_P(SampleAccounting, OptionsMayBeJoinedAndRepeated) {
    EXPECT_EQ(0, run({"-vs7"}).result);
    EXPECT_EQ(0, run({"-v", "-v", "-s", "1", "-s", "2"}).result);
    expectRecord(0, 7);
    expectRecord(1, 2);
}

TEST_P(SampleAccounting, FailureIsTold) {
    server_.then(accept());
    EXPECT_THAT(runTelling("radAcct", {"sample", "-s", "1"}),
                Ended(-1, "", {"error radAcct> RADIUS Accounting Exchange Failed"}));
}

}  // namespace
}  // namespace lanyard::test::sample_accounting_test
