// Lines for whoever reads them. A reader that stops holds nothing up: what it has not taken is kept
// up to a limit; lines beyond that, and for a reader that is gone, are lost and counted.
#ifndef LANYARD_TOOLS_PNAC_WIRED_OUTPUT_H
#define LANYARD_TOOLS_PNAC_WIRED_OUTPUT_H

#include <cstdint>
#include <optional>
#include <string>

#include "tools/file_descriptor.h"

namespace lanyard::pnac {

class Output {
  public:
    static constexpr size_t kPendingMax = size_t{1} << 20U;

    // Writes to the file that the descriptor stands for, a closed one included.
    explicit Output(int fd);

    // Takes a line with its end; never waits.
    void say(const std::string &line);

    // Hands over what the reader takes now.
    void flush();

    bool idle() const { return pending_.empty(); }
    // What to poll for room: flush() is due when it has some. -1 while nothing waits.
    int awaited() const { return idle() ? -1 : file_->get(); }

    uint64_t linesLost() const { return linesLost_; }

  private:
    std::optional<FileDescriptor> file_;
    std::string pending_;
    uint64_t linesLost_ = 0;
};

}  // namespace lanyard::pnac

#endif
