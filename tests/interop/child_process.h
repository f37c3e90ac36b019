// Runs programs: to their end, or beside the test.
#ifndef LANYARD_TESTS_INTEROP_CHILD_PROCESS_H
#define LANYARD_TESTS_INTEROP_CHILD_PROCESS_H

#include <filesystem>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace lanyard::test {

struct ProgramResult {
    int status = -1;  // exit status; -1 when a signal ended the program or it ran for too long
    std::string out;  // what it wrote to standard output
    std::string err;  // what it wrote to standard error
};

// Runs a program to its end, without standard input, for 20 seconds at most.
//
// `command`: path of the program and its arguments.
// `settings`: "NAME=value" to add to this process's environment.
ProgramResult runProgram(std::vector<std::string> command, std::vector<std::string> settings);

// A program that runs beside the test, without standard input, and is killed with this object at
// the latest. What it writes goes to a file, so that it never waits for a reader.
class RunningProgram {
  public:
    // `command`: path of the program and its arguments.
    // `settings`: "NAME=value" to add to this process's environment.
    // `output`: the file for standard output and standard error; an earlier one is replaced.
    RunningProgram(std::vector<std::string> command, std::vector<std::string> settings,
                   std::filesystem::path output);
    ~RunningProgram();
    RunningProgram(const RunningProgram &) = delete;
    RunningProgram &operator=(const RunningProgram &) = delete;
    RunningProgram(RunningProgram &&) = delete;
    RunningProgram &operator=(RunningProgram &&) = delete;

    [[nodiscard]] pid_t id() const { return pid_; }

    // What it has written so far.
    std::string output() const;
    // Waits until it has written a text, for 20 seconds at most.
    [[nodiscard]] bool waitForOutput(const std::string &text) const;

    pid_t process() const { return pid_; }
    void signal(int number) const;
    // Waits for its end, for 20 seconds at most.
    // Returns its exit status, -1 when a signal ended it; nothing while it runs.
    std::optional<int> wait();

  private:
    std::filesystem::path output_;
    pid_t pid_ = -1;
    std::optional<int> status_;
};

}  // namespace lanyard::test

#endif
