// The command line: `lanyardctl db init|add|set|del|list|serve|replay`.
#ifndef LANYARDCTL_CLI_H
#define LANYARDCTL_CLI_H

namespace lanyardctl {

enum ExitCode {
    kDone = 0,
    kFailed = 1,   // the database, the bus or the machine did not allow it
    kRefused = 2,  // the command line is wrong, or names values that cannot be stored
    kNotFound = 3  // there is no such server
};

int run(int argc, char **argv);

}  // namespace lanyardctl

#endif
