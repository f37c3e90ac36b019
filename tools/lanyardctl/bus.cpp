#include "bus.h"

#include <lanyard/radius/eap.h>
#include <palcore.h>

#include "database.h"

namespace lanyardctl {

namespace {

constexpr uint32_t kRegisterMode = 2;
constexpr uint32_t kWaitForResult = 0;

int refuse(void * /*busArg1*/, void * /*busArg2*/, uint32_t /*cmd*/, void * /*buf*/,
           uint32_t /*len*/, void * /*out*/, uint32_t * /*outLen*/) {
    return -1;
}

}  // namespace

Bus::Bus() {
    if (xbusInit() != 0) {
        throw Failure("cannot reach the management bus");
    }
}

Bus::~Bus() {
    context_.reset();
    xbusDeInit();
}

bool Bus::join() {
    context_.reset(xbusRegister(kServiceModule, kRegisterMode, refuse, nullptr));
    return context_ != nullptr;
}

void Bus::wait(std::chrono::microseconds time) {
    xbusListen(context_.get(), static_cast<uint32_t>(time.count()));
}

int BusRelay::send(const RadDbUpdateInfo &notice, std::string oldValues) {
    auto length = static_cast<uint32_t>(oldValues.size());
    return xbusIoctl(bus_.context(), RAD_EAP_MODULE, RAD_EAP_CMD_DB_UPDATE, &notice, sizeof(notice),
                     length != 0 ? oldValues.data() : nullptr, &length, kWaitForResult, 0, 0);
}

int BusRelay::instance() {
    return palTaskNameToId(task_.c_str());
}

}  // namespace lanyardctl
