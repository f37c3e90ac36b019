// The ten sample programs as a table, and a device on which one of them runs.
//
//     using Sample = SampleProgram;
//     INSTANTIATE_TEST_SUITE_P(Programs, Sample, testing::ValuesIn(programs()), nameOf<Program>);
#ifndef LANYARD_TESTS_UNIT_LOGIN_SAMPLE_PROGRAM_H
#define LANYARD_TESTS_UNIT_LOGIN_SAMPLE_PROGRAM_H

#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "tests/unit/login/methods.h"

namespace lanyard::test {

using Words = std::vector<std::string>;

inline constexpr const char *kDefaultFile = "/var/radius.conf";
inline constexpr const char *kMissingFile = "/etc/missing.conf";
inline constexpr int kAccounting = -1;

// What the stand-in for the crypto library's generator is to do, and what it saw.
struct Generator {
    unsigned failingCall = 0;  // 1: the next; 0: none
    std::vector<uint32_t> lengths;
    bool hadContext = false;
};

extern Generator generator;

// Levels of the log are words, as EXPECT_LOG has them.
struct Program {
    const char *name;
    int (*main)(int argc, char *argv[], uint32_t *idle, uint32_t *session);
    int methodRow;                  // in methods(), or kAccounting
    const char *usageLevel;         // of the log; "" prints the usage
    const char *missingValueLevel;  // of an option without its value
    const char *startLevel;         // of a failed start
    // Start of the line that refuses inputs of too many characters; "" where a name is refused without a word, and a password is cut.
    const char *limits;
    bool knowsUserOptions = false;  // -u and -p, which nothing handles

    [[nodiscard]] bool isAccounting() const { return methodRow == kAccounting; }
    [[nodiscard]] const Method &method() const { return methods()[static_cast<size_t>(methodRow)]; }
    [[nodiscard]] std::string line(const std::string &level, const std::string &text) const {
        return level + ' ' + name + "> " + text;
    }
};

const std::vector<Program> &programs();
std::vector<Program> programsThat(bool (*predicate)(const Program &program));

void PrintTo(const Program &program, std::ostream *stream);

class SampleProgram : public testing::TestWithParam<Program> {
  protected:
    SampleProgram();
    ~SampleProgram() override;

    static const Program &program() { return GetParam(); }
    static bool isAccounting() { return program().isAccounting(); }

    // A configuration file with both kinds of server, of which one is the program's.
    void configure(std::string_view path) const;

    // Runs it with these words, called "sample".
    static Outcome run(const Words &words, Limits *limits = nullptr);
    // The same. What is told is what `function` says: the program, or the function below it.
    static Outcome runTelling(const std::string &function, Arguments arguments,
                              Limits *limits = nullptr);

    // The inputs of a run that succeeds, after these options.
    static Words inputs(Words options = {});

    // Expects the index-th request to be that of inputs(), a record, or a login.
    void expectSent(size_t index);
    void expectRecord(size_t index, uint32_t status);
    void expectLoginSent(size_t index, std::string_view userName, std::string_view password);

    // Refused with the usage line, in the program's own way, before anything else was done.
    void expectUsage(const Outcome &refused, const std::string &calledAs = "sample") const;
    void expectNothingDone() const;

    ScriptedServer server_{kSecret};
    ScriptedServer otherServer_{kSecret};
    StoppedDevice device_;
    StandInProgram program_{device_.root(), answering(ntResponse())};
};

}  // namespace lanyard::test

#endif
