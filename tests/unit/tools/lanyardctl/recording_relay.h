// The library of this very process as module 8 of a real bus, on a thread of its own. It takes notices
// as the relay does and keeps the octets of each that came.
#ifndef LANYARD_TESTS_LANYARDCTL_RECORDING_RELAY_H
#define LANYARD_TESTS_LANYARDCTL_RECORDING_RELAY_H

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <xbus.h>

#include "tools/lanyardctl/servers.h"

namespace lanyard::test {

class RecordingRelay {
  public:
    struct Message {
        uint32_t command;
        std::string record;     // `buf`
        std::string oldValues;  // `out`

        bool operator==(const Message &) const = default;
    };

    // Comes up as a relay does: with the database open and without a server.
    explicit RecordingRelay(const std::string &file);
    RecordingRelay(const RecordingRelay &) = delete;
    RecordingRelay &operator=(const RecordingRelay &) = delete;
    ~RecordingRelay();

    // The messages about the table "radiusClient" so far.
    std::vector<Message> notices();
    // All messages so far.
    size_t messages();
    // What it holds.
    std::vector<lanyardctl::Server> servers();
    int count();

  private:
    static int take(void *busArg1, void *relay, uint32_t command, void *buf, uint32_t length,
                    void *out, uint32_t *outLength);
    int handle(const Message &message);

    std::mutex mutex_;  // guards the library as well
    std::vector<Message> messages_;
    XbusCtx *context_ = nullptr;
    std::atomic<bool> ends_{false};
    std::thread thread_;
};

}  // namespace lanyard::test

#endif
