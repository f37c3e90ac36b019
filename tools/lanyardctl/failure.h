// What went wrong, in words for the person who runs the program.
#ifndef LANYARDCTL_FAILURE_H
#define LANYARDCTL_FAILURE_H

#include <stdexcept>
#include <string>

namespace lanyardctl {

enum ExitCode {
    kDone = 0,
    kFailed = 1,    // the database, the bus or the machine did not allow it
    kRefused = 2,   // the command line is wrong, or names values that cannot be stored
    kNotFound = 3,  // there is no such server, attribute or vendor
    kNo = 4,        // the answer is no: login rejected, file or packet wrong or doubtful
    kNoAnswer = 5   // no valid answer came from a server
};

class Failure : public std::runtime_error {
  public:
    explicit Failure(const std::string &text, ExitCode status = kFailed)
        : std::runtime_error(text), status_(status) {}

    [[nodiscard]] ExitCode status() const { return status_; }

  private:
    ExitCode status_;
};

}  // namespace lanyardctl

#endif
