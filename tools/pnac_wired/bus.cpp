#include "tools/pnac_wired/bus.h"

#include <cerrno>
#include <exception>
#include <system_error>
#include <utility>

#include <lanyard/radius/eap.h>

#include "tools/pnac_wired/relay_record.h"

// The project's own bus has it; a vendor's may not.
#pragma weak xbusDescriptor

namespace lanyard::pnac {
namespace {

[[noreturn]] void refuse(const char *what) {
    throw std::system_error(errno, std::generic_category(), what);
}

}  // namespace

Bus::Bus(std::function<void(ByteView)> receiver) : receiver_(std::move(receiver)) {
    if (xbusInit() != 0) {
        refuse("management bus");
    }
    context_ = xbusRegister(RAD_EAP_PNAC_MODULE, XBUS_MODE_HANDLER, handle, this);
    if (!context_) {
        const int error = errno;
        xbusDeInit();
        errno = error;
        refuse("management bus, module 6");
    }
    if (xbusDescriptor) {
        descriptor_ = xbusDescriptor(context_);
    }
}

Bus::~Bus() {
    xbusUnRegister(context_);
    xbusDeInit();
}

HandOver Bus::send(ByteView record) {
    uint32_t outLen = 0;
    errno = 0;  // a vendor's bus may not set it
    if (xbusIoctl(context_, RAD_EAP_MODULE, kRecordCommand, record.data(),
                  static_cast<uint32_t>(record.size()), nullptr, &outLen, XBUS_NO_WAIT, 0,
                  0) == 0) {
        return HandOver::kTaken;
    }
    return errno == ENOENT || errno == ECONNREFUSED ? HandOver::kNobody : HandOver::kBusy;
}

bool Bus::listen(std::chrono::microseconds wait) {
    const bool came = xbusListen(context_, static_cast<uint32_t>(wait.count())) == 1;
    if (failure_) {
        std::rethrow_exception(std::exchange(failure_, nullptr));
    }
    return came;
}

int Bus::handle(void * /*busArg1*/, void *busArg2, uint32_t cmd, void *buf, uint32_t len,
                void * /*out*/, uint32_t *outLen) {
    if (outLen) {
        *outLen = 0;
    }
    if (cmd != kRecordCommand || !buf) {
        return -1;
    }
    auto *self = static_cast<Bus *>(busArg2);
    try {
        self->receiver_({static_cast<const uint8_t *>(buf), len});
    } catch (...) {
        self->failure_ = std::current_exception();  // the bus lets none through
    }
    return 0;
}

}  // namespace lanyard::pnac
