// The nine login functions as a table, for the tests of what they share: what each one sends, prints,
// logs and refuses, and from which replies it hands out limits.
//
//     class LoginContract : public testing::TestWithParam<Method> {};
//     INSTANTIATE_TEST_SUITE_P(Methods, LoginContract, testing::ValuesIn(methods()), nameOf<Method>);
#ifndef LANYARD_TESTS_UNIT_LOGIN_METHODS_H
#define LANYARD_TESTS_UNIT_LOGIN_METHODS_H

#include <cstdint>
#include <gtest/gtest.h>
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

struct Method {
    const char *name;
    int (*login)(const char *userName, const char *password, uint32_t *idle, uint32_t *session);
    const Family &(*family)();
    // "LEVEL: TEXT" of the line that refuses inputs; "" where they are refused without a word.
    const char *refusal;
    bool printsSuccess;  // on standard output, else logged at level 128
    int failureLevel;
    Shown shown;  // the attributes of which replies
    Heading heading;
    bool handsOutLimits = false;
    bool asksEveryServer = false;
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

// Lines of the library as text: "LEVEL FUNCTION: TEXT".
std::vector<std::string> texts(const std::vector<LogLine> &lines);

// One attribute of each kind that is shown differently, and how: printed, or logged.
Attributes grant();
inline constexpr const char *kPrintedGrant = "Reply-Message: Hello\nState: 0x6162\n";
inline constexpr const char *kLoggedGrant = "256 radPairShow: Session-Timeout: 7201\n";

// Expects what the method says of an accept or of a refusal, without a reply or with grant() and
// what else is logged of it.
void expectSaid(const Method &method, const Outcome &run, bool accepted,
                const std::string &userName = "nemo");
void expectSaidWithGrant(const Method &method, const Outcome &run, bool accepted,
                         const std::string &alsoLogged = "");

// A server and a stand-in for the NT-Response program, which some methods run.
struct FarEnd : OneAuthServer {
    explicit FarEnd(std::vector<Action> script) : OneAuthServer(std::move(script)) {}

    StandInProgram program{library.root(), answering(ntResponse())};
};

}  // namespace lanyard::test

#endif
