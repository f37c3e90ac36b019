/**
 * @file
 * Runs a program and collects what it writes.
 */
#ifndef LANYARD_TESTS_INTEROP_CHILD_PROCESS_H
#define LANYARD_TESTS_INTEROP_CHILD_PROCESS_H

#include <string>
#include <vector>

namespace lanyard::test {

struct ProgramResult {
    int status = -1; /**< exit status; -1 when a signal ended the program or it ran for too long */
    std::string out; /**< what it wrote to standard output */
    std::string err; /**< what it wrote to standard error */
};

/**
 * Runs a program to its end, without standard input, for 20 seconds at most.
 *
 * @param command   path of the program and its arguments.
 * @param settings  "NAME=value" to add to this process's environment.
 */
ProgramResult runProgram(std::vector<std::string> command, std::vector<std::string> settings);

}  // namespace lanyard::test

#endif
