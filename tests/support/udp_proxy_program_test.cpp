// The program udp-proxy: its command line and its commands.
#include <string>

#include "tests/interop/child_process.h"
#include "tests/support/test.h"

namespace lanyard::test::udp_proxy_program_test {
namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

// Runs it with these words on its command line and these lines on its standard input.
ProgramResult run(const std::string &arguments, const std::string &input = "") {
    return runProgram(
        {"/bin/sh", "-c", "printf '" + input + "' | '" + LANYARD_UDP_PROXY + "' " + arguments}, {});
}

TEST(UdpProxyProgram, Commands_AreAnsweredOneByOne) {
    const ProgramResult result =
        run("--server 127.0.0.1:9 --listen 127.0.0.2:0 --delay 5 --loss 0.5 --dead on",
            R"(delay 50\nloss 2\ncounters\nend\nloss 0\n)");
    EXPECT_EQ(0, result.status);
    EXPECT_EQ("", result.err);
    EXPECT_THAT(result.out, StartsWith("host=127.0.0.2\nport="));
    EXPECT_THAT(result.out, HasSubstr("\nready=yes\nok\nerror: not a number of 0 to 1"));
    EXPECT_THAT(result.out,
                EndsWith("\nrequests=0 replies=0 lost=0 ignored=0 swallowed=0 forged=0\n"));
}

TEST(UdpProxyProgram, WrongCommandLine_IsRefused) {
    EXPECT_NE(0, run("").status);
    EXPECT_THAT(run("--server 127.0.0.1").err, HasSubstr("not HOST:PORT: 127.0.0.1"));
    EXPECT_THAT(run("--server 127.0.0.1:65536").err, HasSubstr("not HOST:PORT"));
    EXPECT_THAT(run("--server 127.0.0.1:9 --loss 7").err, HasSubstr("not a number of 0 to 1"));
    EXPECT_THAT(run("--server nowhere:9").err, HasSubstr("no IPv4 address: nowhere"));
}

}  // namespace
}  // namespace lanyard::test::udp_proxy_program_test
