// The nine login functions as a table, for the tests of what they share: what each one sends, prints,
// logs and refuses, and from which replies it hands out limits.
//
//     class LoginContract : public testing::TestWithParam<Method> {};
//     INSTANTIATE_TEST_SUITE_P(Methods, LoginContract, testing::ValuesIn(methods()), nameOf<Method>);
#ifndef LANYARD_TESTS_UNIT_LOGIN_METHODS_H
#define LANYARD_TESTS_UNIT_LOGIN_METHODS_H

#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "tests/unit/login/nt_response_program.h"
#include "tests/unit/login/outcome.h"

namespace lanyard::test {

inline constexpr const char *kPassword = "arctangent";
inline constexpr uint32_t kMicrosoft = 311;
inline constexpr uint32_t kUntouched = 4711;

struct Limits {
    uint32_t idle = kUntouched;
    uint32_t session = kUntouched;

    bool operator==(const Limits &) const = default;
};

void PrintTo(const Limits &limits, std::ostream *stream);

// What the requests of one way to log in have in common.
struct Family {
    std::vector<int> types;  // of all attributes, in order
    unsigned ownPairs;       // that the method adds itself, in front of the NAS attribute
    bool runsProgram;        // the NT-Response program
    const char *refusal;     // of inputs; "" where they are refused without a word
    // The attributes of a request in front of the NAS attribute. What is random in it is taken from
    // it; NT-Responses are those of a stand-in for the program.
    Attributes (*attributes)(const ReceivedRequest &sent, std::string_view userName,
                             std::string_view password);
};

// Functions, so that they are there before any table is made of them.
const Family &pap();
const Family &chap();
const Family &mschap();
const Family &mschapv2();

// Expects the request of a login, signed, with the NAS-Identifier or else the device's address.
void expectLogin(const Family &family, const ReceivedRequest &sent, std::string_view userName,
                 std::string_view password, std::string_view nasIdentifier = {});

enum class Shown { kNever, kAccepted, kAlways };
enum class Heading { kNone, kPrinted, kTraced };

// Levels of the log are words, as EXPECT_LOG has them.
struct Method {
    const char *name;
    int (*login)(const char *userName, const char *password, uint32_t *idle, uint32_t *session);
    const Family &(*family)();
    const char *refusalLevel;
    const char *failureLevel;
    bool printsSuccess;  // on standard output, else it is traced
    Shown shown;         // the attributes of which replies
    Heading heading;
    bool handsOutLimits = false;
    bool asksEveryServer = false;

    // A line that it logs.
    [[nodiscard]] std::string line(const std::string &level, const std::string &text) const {
        return level + ' ' + name + "> " + text;
    }
};

const std::vector<Method> &methods();
std::vector<Method> methodsWithLimits();
std::vector<Method> mschapMethods();

void PrintTo(const Method &method, std::ostream *stream);

template <typename Row>
std::string nameOf(const testing::TestParamInfo<Row> &info) {
    return info.param.name;
}

// Makes the call with places for the limits. What it must be given beyond that is made up.
Outcome logIn(const Method &method, const char *userName = "nemo", const char *password = kPassword,
              Limits *limits = nullptr);

// One attribute of each kind that is shown differently: printed, or logged.
Attributes grant();

// Matches a login that succeeded or failed: without a reply that is shown, or with grant() and what
// else is logged of it.
testing::Matcher<const Outcome &> Verdict(const Method &method, bool accepted,
                                          const std::string &userName = "nemo");
testing::Matcher<const Outcome &> VerdictWithGrant(const Method &method, bool accepted,
                                                   const std::string &alsoLogged = "");

// Matches one whose inputs were refused: nothing else is said.
testing::Matcher<const Outcome &> Refused(const Method &method);

// A server and a stand-in for the NT-Response program, which some methods run.
struct FarEnd : OneAuthServer {
    explicit FarEnd(std::vector<Action> script) : OneAuthServer(std::move(script)) {}

    StandInProgram program{library.root(), answering(ntResponse())};
};

}  // namespace lanyard::test

#endif
