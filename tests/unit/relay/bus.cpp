#include "tests/unit/relay/bus.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <gtest/gtest.h>
#include <ostream>
#include <stdexcept>
#include <unistd.h>
#include <utility>

#include <lanyard/radius/eap.h>
#include <lanyard/radius/frame.h>

#include "tests/support/failing_call.h"

struct XbusCtx {
    int unused = 0;
};

namespace lanyard::test {
namespace {

constexpr size_t kWord = 4;
constexpr size_t kHead = 3 * kWord;

TestBus *active = nullptr;
XbusCtx theContext;

// The bus that is there; a call without one ends the program.
TestBus &bus() {
    if (active == nullptr) {
        throw std::logic_error("there is no bus");
    }
    return *active;
}

void note(const std::string &call) {
    bus().calls.push_back(call);
}

}  // namespace

uint32_t Sent::word(size_t index) const {
    uint32_t value = 0;
    if (record.size() < (index + 1) * kWord) {
        ADD_FAILURE() << "a record of " << record.size() << " bytes";
        return 0;
    }
    std::memcpy(&value, record.data() + index * kWord, kWord);
    return value;
}

Bytes Sent::payload() const {
    if (record.size() < kHead) {
        ADD_FAILURE() << "a record of " << record.size() << " bytes";
        return {};
    }
    return {record.begin() + kHead, record.end()};
}

void PrintTo(const Sent &sent, std::ostream *stream) {
    *stream << "{to module " << sent.module << ", command " << sent.command << ": "
            << toHex(sent.record) << '}';
}

TestBus::TestBus() {
    EXPECT_EQ(nullptr, active);
    EXPECT_EQ(0, sigaction(SIGTERM, nullptr, &termBefore_));
    active = this;
}

TestBus::~TestBus() {
    EXPECT_EQ(0, sigaction(SIGTERM, &termBefore_, nullptr));
    active = nullptr;
}

XbusCtx *TestBus::context() {
    return &theContext;
}

}  // namespace lanyard::test

using lanyard::test::bus;
using lanyard::test::following;
using lanyard::test::note;
using lanyard::test::theContext;

int xbusInit() {
    note("xbusInit");
    return bus().initResult;
}

XbusCtx *xbusRegister(uint32_t module, uint32_t mode, XbusHandler handler, void *arg) {
    note("xbusRegister " + std::to_string(module) + ' ' + std::to_string(mode));
    bus().handler = handler;
    bus().handlerArgument = arg;
    errno = bus().registerError;
    return bus().registerError == 0 ? &theContext : nullptr;
}

int xbusListen(XbusCtx *ctx, uint32_t timeoutMicroseconds) {
    EXPECT_EQ(&theContext, ctx);
    note("xbusListen " + std::to_string(timeoutMicroseconds));
    if (bus().listens.empty()) {
        radEapExit(SIGTERM);
        return 0;
    }
    auto step = bus().listens.front();
    bus().listens.pop_front();
    const int result = step();
    if (std::exchange(bus().again, false)) {
        bus().listens.push_front(std::move(step));
    }
    return result;
}

int xbusDescriptor(XbusCtx *ctx) {
    EXPECT_EQ(&theContext, ctx);
    return bus().descriptor.get();
}

int xbusIoctl(XbusCtx *ctx, uint32_t destModule, uint32_t cmd, const void *buf, uint32_t len,
              void *out, uint32_t *outLen, uint32_t flags, uint32_t reserved1, uint32_t reserved2) {
    const auto *bytes = static_cast<const uint8_t *>(buf);
    EXPECT_NE(nullptr, outLen);
    bus().sent.push_back({.ctx = ctx,
                          .module = destModule,
                          .command = cmd,
                          .record = {bytes, bytes + len},
                          .hasOut = out != nullptr,
                          .outLen = outLen != nullptr ? *outLen : UINT32_MAX,
                          .flags = flags,
                          .reserved1 = reserved1,
                          .reserved2 = reserved2});
    return bus().sendResult;
}

int xbusUnRegister(XbusCtx *ctx) {
    EXPECT_EQ(&theContext, ctx);
    note("xbusUnRegister");
    return 0;
}

int xbusDeInit() {
    note("xbusDeInit");
    return 0;
}

int daemon(int nochdir, int noclose) noexcept {
    note("daemon " + std::to_string(nochdir) + ' ' + std::to_string(noclose));
    bus().whenDetached();
    return 0;
}

int palTaskDelay(int milliseconds) {
    note("palTaskDelay " + std::to_string(milliseconds));
    return 0;
}

int palTaskNameToId(const char *name) {
    note(std::string("palTaskNameToId ") + name);
    if (bus().otherTasks == 0) {
        return -1;
    }
    --bus().otherTasks;
    return 4711;
}

int palListInit(PalList *list) {
    static auto *const real = following<decltype(palListInit)>("palListInit");
    // Tests that end a conversation do so without a bus as well.
    return lanyard::test::active != nullptr && bus().listInitResult != 0 ? bus().listInitResult
                                                                         : real(list);
}

int radLibInit(const char *confFile) {
    static auto *const real = following<decltype(radLibInit)>("radLibInit");
    return lanyard::test::active != nullptr && bus().startResult != 0 ? bus().startResult
                                                                      : real(confFile);
}
