// What every login function and every sample program prints, logs and refuses: one row each.
#ifndef LANYARD_LOGIN_CONTRACT_H
#define LANYARD_LOGIN_CONTRACT_H

#include <array>
#include <cstdlib>
#include <string_view>

#include "base/log.h"

namespace lanyard {

// Where a line goes.
enum class Sink { kNowhere, kOutput, kTrace };

// Of which replies the attributes are shown, and the limits in them handed back.
enum class Shown { kNone, kAccepted, kAll };

// What is logged of inputs that are refused. Without a text they are refused without a word.
struct Refusal {
    int level = 0;
    const char *text = nullptr;
};

struct LoginContract {
    const char *function;  // the public function, the tag of every message
    Refusal refusal;
    Sink success;
    int failureLevel;  // log level of a failed login
    Shown shown;
    Sink heading;  // the line above the attributes
    bool asksEveryServer = false;
};

constexpr Refusal kNoRefusalText{};
constexpr const char *kBadPassword = "Invalid username or password\n";
constexpr const char *kBadResponse = "Invalid username, challenge or response\n";

// clang-format off
inline constexpr std::array kLogins{
    LoginContract{"radAuth", {kLogError, kBadPassword},
                  Sink::kOutput, kLogError, Shown::kAll, Sink::kOutput},
    LoginContract{"radAuthCheckAllServer", {kLogTrace, kBadPassword},
                  Sink::kTrace, kLogTrace, Shown::kAll, Sink::kTrace, true},
    LoginContract{"radAuthAndGetAttributes", {kLogError, kBadPassword},
                  Sink::kTrace, kLogTrace, Shown::kAll, Sink::kOutput},
    LoginContract{"radChapAuth", {kLogError, kBadResponse},
                  Sink::kOutput, kLogError, Shown::kAll, Sink::kOutput},
    LoginContract{"radChapAuthAndGetAttributes", {kLogTrace, kBadResponse},
                  Sink::kTrace, kLogTrace, Shown::kAll, Sink::kTrace},
    LoginContract{"radMschap", kNoRefusalText,
                  Sink::kOutput, kLogError, Shown::kNone, Sink::kNowhere},
    LoginContract{"radMschapAndGetAttributes", kNoRefusalText,
                  Sink::kTrace, kLogError, Shown::kAccepted, Sink::kNowhere},
    LoginContract{"radMschapv2", kNoRefusalText,
                  Sink::kOutput, kLogError, Shown::kNone, Sink::kNowhere},
    LoginContract{"radMschapv2AndGetAttributes", kNoRefusalText,
                  Sink::kTrace, kLogError, Shown::kAccepted, Sink::kNowhere},
};

// Those on a loop show nothing; the callback is told.
inline constexpr std::array kLoginStarts{
    LoginContract{"radAuthStart", {kLogError, kBadPassword},
                  Sink::kNowhere, kLogTrace, Shown::kNone, Sink::kNowhere},
    LoginContract{"radChapAuthStart", {kLogError, kBadResponse},
                  Sink::kNowhere, kLogTrace, Shown::kNone, Sink::kNowhere},
    LoginContract{"radMschapStart", {kLogError, kBadPassword},
                  Sink::kNowhere, kLogTrace, Shown::kNone, Sink::kNowhere},
    LoginContract{"radMschapv2Start", {kLogError, kBadPassword},
                  Sink::kNowhere, kLogTrace, Shown::kNone, Sink::kNowhere},
};
// clang-format on

// A sample program. Its usage line is printed on standard output where it has no log level.
struct SampleContract {
    const char *function;   // the entry point, the tag of every message
    const char *options;    // for getopt()
    const char *arguments;  // what the usage line names behind the common options
    int usageLevel;         // of the usage line
    int missingValueLevel;  // of an option without its value
    int startLevel;         // of a failed start
    int limitLevel = 0;  // of a name or password that is too long, where the program looks at them
};

constexpr int kPrinted = 0;
constexpr const char *kNameAndPassword = "<username> <password>";

// The programs of MS-CHAP know -u and -p, which nothing handles.
// clang-format off
inline constexpr std::array kSamples{
    SampleContract{"radAuthSampleMain", "vf:", kNameAndPassword,
                   kPrinted, kLogError, kLogError},
    SampleContract{"radAuthSampleMainCheckAllServer", "vf:", kNameAndPassword,
                   kLogTrace, kLogTrace, kLogTrace},
    SampleContract{"radAuthSampleMainCaptivePortal", "vf:", kNameAndPassword,
                   kPrinted, kLogError, kLogError},
    SampleContract{"radChapSampleMain", "vf:", kNameAndPassword,
                   kPrinted, kLogError, kLogError, kLogError},
    SampleContract{"radChapSampleMainCaptivePortal", "vf:", kNameAndPassword,
                   kLogTrace, kLogError, kLogTrace, kLogTrace},
    SampleContract{"radMschapSampleMain", "vf:u:p:", kNameAndPassword,
                   kPrinted, kLogError, kLogError},
    SampleContract{"radMschapSampleMainCaptivePortal", "vf:u:p:", kNameAndPassword,
                   kPrinted, kLogError, kLogError},
    SampleContract{"radMschapv2SampleMain", "vf:u:p:", kNameAndPassword,
                   kPrinted, kLogError, kLogError},
    SampleContract{"radMschapv2SampleMainCaptivePortal", "vf:u:p:", kNameAndPassword,
                   kPrinted, kLogError, kLogError},
    SampleContract{"radAcctSampleMain", "vf:s:", "[-s status]",
                   kPrinted, kLogError, kLogError},
};
// clang-format on

// The row of a function, as __func__ names it; a function without one does not compile.
template <typename Contract, size_t count>
consteval const Contract &rowOf(const std::array<Contract, count> &table,
                                std::string_view function) {
    for (const Contract &row : table) {
        if (function == row.function) {
            return row;
        }
    }
    std::abort();
}

}  // namespace lanyard

#endif
