// Runs part of a test in a process of its own: the test program again, in a role.
//
// Settings that are read once, process names and exit statuses can only be tested this way.
#ifndef LANYARD_TESTS_UNIT_PLATFORM_ROLE_H
#define LANYARD_TESTS_UNIT_PLATFORM_ROLE_H

#include <string>
#include <vector>

namespace lanyard::test {

// What a role does; its result is the exit status of the process.
using RoleFunction = int (*)(const std::vector<std::string> &arguments);

// Makes a role known. Defined at namespace scope beside the tests that use it.
class Role {
  public:
    Role(const char *name, RoleFunction function);
};

// What standard error of the process is.
enum class ErrorStream {
    kPipe,
    kPackets,   // a socket that keeps each write apart
    kFile,      // a regular file
    kTerminal,  // a pseudo-terminal
    kNull,      // /dev/null, as daemon() leaves it
};

struct RoleResult {
    int status = -1;  // exit status; -1 when a signal ended the process
    std::string out;
    std::vector<std::string> err;  // packets: one element a write; else one in all

    std::string allErr() const;
};

// Runs a role and waits for its end.
// `environment` is "NAME=value", added to the test's own without any PAL_* variable.
RoleResult runRole(const std::string &role, const std::vector<std::string> &environment = {},
                   ErrorStream stream = ErrorStream::kPipe);

// The argument vector after the program's own name that makes this program play a role.
constexpr const char *kRoleOption = "--role";

// For main(): plays the role that the arguments name. Returns false when they name none.
bool playRole(int argc, char **argv, int &status);

// Path of the test program.
std::string selfPath();

}  // namespace lanyard::test

#endif
