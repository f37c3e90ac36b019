// lanyardctl as a person or a script meets it, with the real server at the far end.
#ifndef LANYARD_TESTS_INTEROP_LANYARDCTL_H
#define LANYARD_TESTS_INTEROP_LANYARDCTL_H

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tests/interop/child_process.h"
#include "tests/interop/fixture.h"

namespace lanyard::test {

class Ctl : public Interop {
  protected:
    // Runs lanyardctl ARGUMENTS; whatever it does, it shows no secret and no sanitizer speaks up.
    ProgramResult run(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), LANYARDCTL);
        ProgramResult result = runProgram(arguments, {"PAL_ROOT=" + root().path().string()});
        const std::string all = result.out + result.err;
        EXPECT_THAT(all, testing::Not(testing::HasSubstr(server().secret())));
        EXPECT_THAT(all, testing::Not(testing::HasSubstr("wonderland")));
        EXPECT_THAT(all, testing::Not(testing::HasSubstr("Sanitizer")));
        EXPECT_THAT(all, testing::Not(testing::HasSubstr("runtime error")));
        return result;
    }

    // The one document that a command answers with --json.
    nlohmann::json document(std::vector<std::string> arguments, int status) const {
        arguments.insert(arguments.begin(), "--json");
        const ProgramResult result = run(std::move(arguments));
        EXPECT_EQ(status, result.status) << result.out << result.err;
        EXPECT_EQ("", result.err);
        nlohmann::json parsed = nlohmann::json::parse(result.out, nullptr, false);
        EXPECT_FALSE(parsed.is_discarded()) << result.out;
        return parsed;
    }

    // Path of a file with a text.
    std::string file(const std::string &name, const std::string &text) const {
        root().write(name, text);
        return (root().path() / name).string();
    }

    std::vector<std::string> login(const std::string &user, const std::string &password,
                                   const std::string &method = "pap") const {
        return {"login",           user,
                "--method",        method,
                "--password-file", file("password", password + "\n")};
    }

    static std::string at(uint16_t port) { return "127.0.0.1:" + std::to_string(port); }
};

}  // namespace lanyard::test

#endif
