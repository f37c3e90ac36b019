// The change service's place on the management bus, and the relay behind it.
#ifndef LANYARDCTL_BUS_H
#define LANYARDCTL_BUS_H

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include <xbus.h>

#include "relay.h"
#include "tools/file_descriptor.h"

namespace lanyardctl {

// Modules of the bus. One process at a time is the service, so there is never more than one that
// sends change notices; whoever asks it or the relay for something takes the first free number from
// kFirstClient.
inline constexpr uint32_t kServiceModule = 20;
inline constexpr uint32_t kFirstClient = 21;
inline constexpr uint32_t kLastClient = 28;

class Bus {
  public:
    // Handles a message and returns the result for its sender. Throws nothing.
    using Handler = std::function<int(uint32_t command, std::string_view data)>;

    // Throws a Failure when the bus cannot be reached.
    Bus();
    Bus(const Bus &) = delete;
    Bus &operator=(const Bus &) = delete;
    ~Bus();

    // False when another process has the module.
    bool join(uint32_t module, Handler handler);
    // Takes the first free module of those who ask, and returns it. Throws a Failure when there is none.
    uint32_t joinAsClient(const Handler &handler);

    // Readable while there is a message to handle; -1 where the platform's bus has no such thing.
    [[nodiscard]] int descriptor() const;
    // Waits for one message and handles it. False when none came.
    bool listen(std::chrono::milliseconds time);

    // Sends and waits for the result, 5 seconds at most: -1 without one. `out` travels too, and has
    // what came back afterwards.
    int call(uint32_t module, uint32_t command, std::string_view data, std::string *out = nullptr);
    // A connection to the process that has a module now, for xbusSend(); none when there is none, or
    // where the platform's bus has no such thing.
    std::optional<lanyard::FileDescriptor> connect(uint32_t module);
    // Sends without waiting. False when the module is not there.
    bool notify(uint32_t module, uint32_t command, std::string_view data);

  private:
    struct Leaver {
        void operator()(XbusCtx *context) const { xbusUnRegister(context); }
    };

    Handler handler_;
    std::unique_ptr<XbusCtx, Leaver> context_;
};

class BusRelay : public Relay {
  public:
    explicit BusRelay(Bus &bus) : bus_(bus) {}

    std::string run() override;
    bool isThere() override;
    bool queue(const std::string &run, const RadDbUpdateInfo &notice,
               std::string oldValues) override;
    Answer answer(std::chrono::milliseconds patience) override;
    bool end() override;

    // Readable once the relay has answered or ended; -1 while it has been sent nothing.
    [[nodiscard]] int descriptor() const { return connection_ ? connection_->get() : -1; }

  private:
    void listen();
    Answer call(const RadDbUpdateInfo &notice, std::string oldValues);

    Bus &bus_;
    std::optional<lanyard::FileDescriptor> connection_;
    std::string run_;    // that it leads to
    std::string ended_;  // a run that is known to have ended
    Answer answer_ = Answer::unknown;
};

// A descriptor that is readable once something was made, written or removed in one of these folders:
// the bus's, where a relay that starts makes its socket, and that of a file. It is read with drain().
// It saves waiting: where the system has no more of them to give, its descriptor is -1.
class FolderWatch {
  public:
    explicit FolderWatch(const std::string &file);

    [[nodiscard]] int descriptor() const { return inotify_ ? inotify_->get() : -1; }
    // False when nothing was.
    [[nodiscard]] bool drain() const;

  private:
    std::optional<lanyard::FileDescriptor> inotify_;
};

}  // namespace lanyardctl

#endif
