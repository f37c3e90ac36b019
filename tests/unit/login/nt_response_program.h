// The NT-Response program of the device and the random source of Peer-Challenges, in tests.
//
//     const InstalledProgram program(root);            // the real one, as a child process
//
//     StandInProgram program(root, answering(bytes));  // a function in its place, which is fast
//     EXPECT_EQ("wonderland", program.call(0).password);
//
//     StandInRandom random({peerChallenge});           // what /dev/urandom gives, one after another
//     EXPECT_EQ(1U, random.draws());
//
//     const RefusedRemovals removals(1);               // the OS layer removes one file, then no more
//
// The test program itself defines palCmdExecArgv(), palOpen() and palUnlink(); without one of these
// objects they hand on to the OS layer's. One object of a kind may be there at a time.
#ifndef LANYARD_TESTS_UNIT_LOGIN_NT_RESPONSE_PROGRAM_H
#define LANYARD_TESTS_UNIT_LOGIN_NT_RESPONSE_PROGRAM_H

#include <cstddef>
#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "tests/support/test.h"

namespace lanyard::test {

// Where the device has the program.
inline constexpr const char *kNtResponseProgram = "/nexa2.0/bin/orvane_getNTResponse";

// The program of this build, installed below a root folder, which its processes share. The folder
// gets a /tmp as well.
class InstalledProgram {
  public:
    explicit InstalledProgram(const TemporaryRoot &root);
    InstalledProgram(const InstalledProgram &) = delete;
    InstalledProgram &operator=(const InstalledProgram &) = delete;
    ~InstalledProgram();
};

class StandInProgram {
  public:
    // One run of the program: its whole argument vector, and what the arguments mean.
    struct Call {
        std::vector<std::string> arguments;
        std::string password;
        Bytes challenge;
        std::string file;
        int reserved1 = 0;
        int reserved2 = 0;
    };

    // What the program does: writes its file, or not, and returns what palCmdExecArgv() does.
    using Run = std::function<int(const TemporaryRoot &root, const Call &call)>;

    StandInProgram(const TemporaryRoot &root, Run run);
    StandInProgram(const StandInProgram &) = delete;
    StandInProgram &operator=(const StandInProgram &) = delete;
    ~StandInProgram();

    [[nodiscard]] size_t callCount() const { return calls_.size(); }
    // The index-th run; an empty one with a failed test when there are not that many.
    [[nodiscard]] Call call(size_t index) const;
    void replace(Run run) { run_ = std::move(run); }

    // Called by the function that stands in for the OS layer's.
    int run(char *const argv[], int reserved1, int reserved2);

  private:
    const TemporaryRoot &root_;
    Run run_;
    std::vector<Call> calls_;
};

// An NT-Response of 24 different bytes, for programs that need not compute one.
Bytes ntResponse();

// A program that writes these bytes and ends with that result.
StandInProgram::Run answering(const Bytes &content, int result = 0);
// One that writes nothing and ends with that result.
StandInProgram::Run endingWith(int result);

class StandInRandom {
  public:
    // After the last of the challenges there is none: /dev/urandom cannot be opened.
    explicit StandInRandom(std::vector<Bytes> challenges);
    StandInRandom(const StandInRandom &) = delete;
    StandInRandom &operator=(const StandInRandom &) = delete;
    ~StandInRandom();

    // How often it was asked, in vain included.
    [[nodiscard]] size_t draws() const { return draws_; }

    // Called by the function that stands in for the OS layer's.
    int open(int flags);

  private:
    std::vector<Bytes> challenges_;
    size_t draws_ = 0;
};

// From now on palUnlink() fails with EPERM, except for the first calls.
class RefusedRemovals {
  public:
    explicit RefusedRemovals(int allowed);
    RefusedRemovals(const RefusedRemovals &) = delete;
    RefusedRemovals &operator=(const RefusedRemovals &) = delete;
    ~RefusedRemovals();

    // Called by the function that stands in for the OS layer's.
    bool refuses() { return allowed_-- <= 0; }

  private:
    int allowed_;
};

// The library computes NT-Responses itself for as long as the object lives.
class BuiltinNtResponse {
  public:
    explicit BuiltinNtResponse(int value = 1);
    BuiltinNtResponse(const BuiltinNtResponse &) = delete;
    BuiltinNtResponse &operator=(const BuiltinNtResponse &) = delete;
    ~BuiltinNtResponse();
};

// What radMschapNtResponse() returns and writes; without a response the bytes stay as they were.
inline const Bytes kNoResponse = Bytes(24, 0x77);

struct Answer {
    int result = -2;
    Bytes response = kNoResponse;

    bool operator==(const Answer &) const = default;
};

void PrintTo(const Answer &answer, std::ostream *stream);

Answer ask(const Bytes &challenge = "0102030405060708"_hex, const char *password = "arctangent",
           const char *userName = "nemo");

// Expects that each of the four arguments is refused when it is missing, and nothing written.
void expectMissingArgumentsRefused();

// Calls with challenge and response at the edge of memory, and expects this response.
void expectWithinArguments(const Bytes &challenge, const Bytes &response);

// How many descriptors the process has open.
long openDescriptors();

}  // namespace lanyard::test

#endif
