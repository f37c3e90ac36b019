#include "tests/unit/tools/lanyardctl/recording_relay.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include <lanyard/radius/conf.h>
#include <lanyard/radius/eap.h>
#include <lanyard/radius/frame.h>
#include <lanyard/radius/mgmt.h>

#include "tests/unit/tools/lanyardctl/library_relay.h"

namespace lanyard::test {

namespace {

constexpr uint32_t kListenMicroseconds = 10000;

bool isAboutServers(const RecordingRelay::Message &message) {
    return message.record.starts_with(std::string("radiusClient") + '\0');
}

}  // namespace

RecordingRelay::RecordingRelay(const std::string &file) {
    if (radiusMgmtInit(file.c_str(), "radEap") != 0 || radLibInit(nullptr) != 0 ||
        xbusInit() != 0 ||
        !(context_ = xbusRegister(RAD_EAP_MODULE, XBUS_MODE_HANDLER, take, this))) {
        throw std::runtime_error("the relay does not start");
    }
    thread_ = std::thread([this] {
        while (!ends_) {
            xbusListen(context_, kListenMicroseconds);
        }
    });
}

RecordingRelay::~RecordingRelay() {
    ends_ = true;
    thread_.join();
    xbusUnRegister(context_);
    radiusMgmtDeInit();
    radLibExit();
}

std::vector<RecordingRelay::Message> RecordingRelay::notices() {
    const std::lock_guard lock(mutex_);
    std::vector<Message> found;
    std::copy_if(messages_.begin(), messages_.end(), std::back_inserter(found), isAboutServers);
    return found;
}

size_t RecordingRelay::messages() {
    const std::lock_guard lock(mutex_);
    return messages_.size();
}

std::vector<lanyardctl::Server> RecordingRelay::servers() {
    const std::lock_guard lock(mutex_);
    return LibraryRelay::held();
}

int RecordingRelay::count() {
    const std::lock_guard lock(mutex_);
    return radConfGetNumServers(RAD_SERVER_AUTH);
}

int RecordingRelay::take(void * /*busArg1*/, void *relay, uint32_t command, void *buf,
                         uint32_t length, void *out, uint32_t *outLength) {
    const auto textOf = [](const void *octets, uint32_t size) {
        return octets ? std::string(static_cast<const char *>(octets), size) : std::string();
    };
    return static_cast<RecordingRelay *>(relay)->handle(
        {command, textOf(buf, length), textOf(out, outLength ? *outLength : 0)});
}

int RecordingRelay::handle(const Message &message) {
    const std::lock_guard lock(mutex_);
    messages_.push_back(message);
    std::string old = message.oldValues;
    return radiusMgmtDBUpdateHandler(
        message.record.data(), static_cast<uint32_t>(message.record.size()),
        old.empty() ? nullptr : old.data(), static_cast<uint32_t>(old.size()));
}

}  // namespace lanyard::test
