#include "bus.h"

#include <fcntl.h>
#include <fstream>
#include <sys/stat.h>

#include <lanyard/radius/eap.h>
#include <palcore.h>

#include "database.h"

namespace lanyardctl {

namespace {

int refuse(void * /*busArg1*/, void * /*busArg2*/, uint32_t /*cmd*/, void * /*buf*/,
           uint32_t /*len*/, void * /*out*/, uint32_t * /*outLen*/) {
    return -1;
}

// Numbers the start of the machine: no other identity of this file outlives one.
std::string bootId() {
    std::string id;
    std::ifstream("/proc/sys/kernel/random/boot_id") >> id;
    return id;
}

// The socket under which a module is found, made when the module was registered; "" when there is
// none. It stays the same while the module's process becomes a daemon.
std::string socketOf(uint32_t module) {
    // Appended: of "/run/xbus/" + std::to_string() g++ 12 warns without cause on 32-bit ARM.
    const std::string path = std::string("/run/xbus/").append(std::to_string(module));
    const int socket = palOpen(path.c_str(), O_PATH | O_NOFOLLOW, 0);
    struct stat made {};
    const bool isThere = socket != -1 && fstat(socket, &made) == 0;
    palClose(socket);
    return isThere ? "socket " + std::to_string(made.st_dev) + ":" + std::to_string(made.st_ino) +
                         " of " + std::to_string(made.st_mtim.tv_sec) + "." +
                         std::to_string(made.st_mtim.tv_nsec)
                   : "";
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
    context_.reset(xbusRegister(kServiceModule, XBUS_MODE_HANDLER, refuse, nullptr));
    return context_ != nullptr;
}

void Bus::wait(std::chrono::microseconds time) {
    xbusListen(context_.get(), static_cast<uint32_t>(time.count()));
}

int BusRelay::send(const RadDbUpdateInfo &notice, std::string oldValues) {
    auto length = static_cast<uint32_t>(oldValues.size());
    return xbusIoctl(bus_.context(), RAD_EAP_MODULE, RAD_EAP_CMD_DB_UPDATE, &notice, sizeof(notice),
                     length != 0 ? oldValues.data() : nullptr, &length, XBUS_WAIT, 0, 0);
}

BusRelay::BusRelay(const Bus &bus) : bus_(bus), boot_(bootId()) {}

// A vendor's bus may have no such sockets: there the relay's task has to do.
std::string BusRelay::instance() {
    std::string run = socketOf(RAD_EAP_MODULE);
    if (run.empty()) {
        const int task = palTaskNameToId(kRelayTask);
        run = task == -1 ? "" : "task " + std::to_string(task);
    }
    return run.empty() ? run : run + " since boot " + boot_;
}

}  // namespace lanyardctl
