// Asks the relay process of the tests, over the bus, what it holds.
#ifndef LANYARD_TESTS_LANYARDCTL_RELAY_VIEWER_H
#define LANYARD_TESTS_LANYARDCTL_RELAY_VIEWER_H

#include <optional>
#include <sys/types.h>
#include <vector>

#include <xbus.h>

#include "tools/lanyardctl/servers.h"

namespace lanyard::test {

// The servers in the relay's order, and its own count of them; its process, and how many messages
// that has handled beside this question.
struct RelayServers {
    pid_t process = -1;
    int messages = 0;
    int count = 0;
    int waitsBeforeNotice = 0;
    std::vector<lanyardctl::Server> servers;
};

class RelayViewer {
  public:
    RelayViewer();
    RelayViewer(const RelayViewer &) = delete;
    RelayViewer &operator=(const RelayViewer &) = delete;
    ~RelayViewer();

    // None when no relay answers.
    std::optional<RelayServers> look();
    // Puts a moment's wait into its queue.
    void haveWait();

  private:
    XbusCtx *context_ = nullptr;
};

}  // namespace lanyard::test

#endif
