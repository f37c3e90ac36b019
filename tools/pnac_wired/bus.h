// The authenticator's place on the management bus: module 6, with the EAP relay at module 8.
#ifndef LANYARD_TOOLS_PNAC_WIRED_BUS_H
#define LANYARD_TOOLS_PNAC_WIRED_BUS_H

#include <chrono>
#include <cstdint>
#include <exception>
#include <functional>

#include <xbus.h>

#include "tools/pnac_wired/event.h"

namespace lanyard::pnac {

class Bus {
  public:
    // Throws std::system_error when the bus refuses.
    explicit Bus(std::function<void(ByteView record)> receiver);
    ~Bus();
    Bus(const Bus &) = delete;
    Bus &operator=(const Bus &) = delete;

    // Hands a record to the relay without waiting.
    HandOver send(ByteView record);

    // What to poll for input: listen() without a wait has something to do when it is readable. -1
    // where the bus of this device has no descriptor; then only a listen() that waits is woken by it.
    int awaited() const { return descriptor_; }

    // Hands one record to the receiver, whose exceptions come out of here; waits for it at most that
    // long. True when one came.
    bool listen(std::chrono::microseconds wait = {});

  private:
    static int handle(void *busArg1, void *busArg2, uint32_t cmd, void *buf, uint32_t len,
                      void *out, uint32_t *outLen);

    std::function<void(ByteView)> receiver_;
    std::exception_ptr failure_ = {};  // of the receiver
    XbusCtx *context_ = nullptr;
    int descriptor_ = -1;  // the bus's own
};

}  // namespace lanyard::pnac

#endif
