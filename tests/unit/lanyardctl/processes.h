// Processes of the tests: the relay, the service, and commands that run to their end.
#ifndef LANYARD_TESTS_LANYARDCTL_PROCESSES_H
#define LANYARD_TESTS_LANYARDCTL_PROCESSES_H

#include <chrono>
#include <cstdio>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <xbus.h>

#include "tests/interop/child_process.h"
#include "tools/file_descriptor.h"
#include "tools/lanyardctl/servers.h"

namespace lanyard::test {

// A process that runs beside the test and is killed with this object at the latest. What it writes
// can be waited for; its standard input ends with end().
class BackgroundProcess {
  public:
    BackgroundProcess(std::vector<std::string> command, std::vector<std::string> settings);
    BackgroundProcess(const BackgroundProcess &) = delete;
    BackgroundProcess &operator=(const BackgroundProcess &) = delete;
    ~BackgroundProcess();

    // Waits for a text in what it writes to standard output and standard error, 10 seconds at most.
    bool waitForOutput(const std::string &text);
    [[nodiscard]] const std::string &output() const { return output_; }

    void signal(int number) const;
    // Closes its standard input.
    void end();
    // Waits for its end, 10 seconds at most: its exit status; -1 when a signal ended it; none while
    // it still runs.
    std::optional<int> wait();

  private:
    bool readSome(std::chrono::milliseconds patience);

    std::optional<FileDescriptor> input_;
    std::optional<FileDescriptor> outputEnd_;
    std::string output_;
    pid_t pid_ = -1;
    std::optional<int> status_;
};

// Asks the condition until it holds, 10 seconds at most.
bool eventually(const std::function<bool()> &condition);

// What the relay on the bus holds: the servers in its order, and its own count of them. None when no
// relay answers.
struct RelayServers {
    int count = 0;
    std::vector<lanyardctl::Server> servers;
};
class RelayViewer {
  public:
    RelayViewer();
    RelayViewer(const RelayViewer &) = delete;
    RelayViewer &operator=(const RelayViewer &) = delete;
    ~RelayViewer();

    std::optional<RelayServers> look();

  private:
    XbusCtx *context_ = nullptr;
};

}  // namespace lanyard::test

#endif
