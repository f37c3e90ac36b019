// The command-line programs of this build, configured for the real server.
#ifndef LANYARD_TESTS_INTEROP_PROGRAMS_H
#define LANYARD_TESTS_INTEROP_PROGRAMS_H

#include <gmock/gmock.h>
#include <string>
#include <vector>

#include "tests/interop/child_process.h"
#include "tests/interop/fixture.h"

namespace lanyard::test {

class Programs : public Interop {
  protected:
    void SetUp() override {
        Interop::SetUp();
        writeConfiguration("authserver " + entry(server().authPort()) + "\nacctserver " +
                           entry(server().acctPort()) + "\n");
    }

    // Runs a program of this build; whatever it does, it shows no secret and no sanitizer speaks
    // up.
    ProgramResult run(const std::string &program, const std::vector<std::string> &arguments) const {
        std::vector<std::string> command = {path(program)};
        command.insert(command.end(), arguments.begin(), arguments.end());
        ProgramResult result = runProgram(command, {"PAL_ROOT=" + root().path().string()});
        EXPECT_THAT(result.out, testing::Not(testing::HasSubstr(server().secret())));
        EXPECT_THAT(result.err, testing::Not(testing::HasSubstr(server().secret())));
        EXPECT_THAT(result.out + result.err, testing::Not(testing::HasSubstr("wonderland")));
        EXPECT_THAT(result.err, testing::Not(testing::HasSubstr("Sanitizer")));
        EXPECT_THAT(result.err, testing::Not(testing::HasSubstr("runtime error")));
        return result;
    }

    static std::string path(const std::string &program) {
        return std::string(LANYARD_PROGRAMS) + "/" + program;
    }

    static std::string address(uint16_t port) { return "127.0.0.1:" + std::to_string(port); }

    // The line that the programs print of a server that said no.
    static std::string rejectedBy(uint16_t port) {
        return "  " + address(port) + ": rejected by the server (Access-Reject)\n";
    }
    static std::string silenceOf(uint16_t port) {
        return "  " + address(port) +
               ": no reply in 1 try of 1 s: server down, wrong port, or wrong secret\n";
    }

    static std::string usage(const std::string &program) {
        return "Usage: " + path(program) + " [-v] [ -f confFile] <username> <password>\n";
    }
};

}  // namespace lanyard::test

#endif
