// The change service's place on the management bus, and the relay behind it.
#ifndef LANYARDCTL_BUS_H
#define LANYARDCTL_BUS_H

#include <chrono>
#include <memory>
#include <string>

#include <xbus.h>

#include "relay.h"

namespace lanyardctl {

// The change service's module on the bus. One process at a time has it, so there is never more than
// one that sends change notices.
inline constexpr uint32_t kServiceModule = 20;

// The name under which the relay runs as a task.
inline constexpr const char *kRelayTask = "tRadEap";

class Bus {
  public:
    // Throws a Failure when the bus cannot be reached.
    Bus();
    Bus(const Bus &) = delete;
    Bus &operator=(const Bus &) = delete;
    ~Bus();

    // False when another process has the module.
    bool join();

    // Waits that long at most, or until a signal comes. Messages are refused.
    void wait(std::chrono::microseconds time);

    [[nodiscard]] XbusCtx *context() const { return context_.get(); }

  private:
    struct Leaver {
        void operator()(XbusCtx *context) const { xbusUnRegister(context); }
    };

    std::unique_ptr<XbusCtx, Leaver> context_;
};

class BusRelay : public Relay {
  public:
    explicit BusRelay(const Bus &bus);

    int send(const RadDbUpdateInfo &notice, std::string oldValues) override;
    std::string instance() override;

  private:
    const Bus &bus_;
    std::string boot_;
};

}  // namespace lanyardctl

#endif
