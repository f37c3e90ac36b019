// Captures what the process writes to standard output, by whatever means.
//
//     StdoutCapture output;
//     radLibVersion();
//     EXPECT_EQ("Lanyard RADIUS 2.0.0\n", output.text());
//
// Standard output is itself again when the object goes, or after finish(). What was captured is
// repeated there when the test has failed, so that no message of a failed assertion is lost.
#ifndef LANYARD_TESTS_SUPPORT_STDOUT_CAPTURE_H
#define LANYARD_TESTS_SUPPORT_STDOUT_CAPTURE_H

#include <string>

#include "tools/file_descriptor.h"

namespace lanyard::test {

class StdoutCapture {
  public:
    StdoutCapture();
    StdoutCapture(const StdoutCapture &) = delete;
    StdoutCapture &operator=(const StdoutCapture &) = delete;
    ~StdoutCapture();

    // All that was written since the start.
    [[nodiscard]] std::string text() const;

    // Ends the capture and returns text().
    std::string finish();

  private:
    FileDescriptor file_;
    FileDescriptor original_;
    bool active_ = true;
};

}  // namespace lanyard::test

#endif
