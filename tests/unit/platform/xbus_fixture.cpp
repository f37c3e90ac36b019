#include "tests/unit/platform/xbus_fixture.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <poll.h>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

namespace {

constexpr int kGateMilliseconds = 20000;

std::atomic<bool> waitsAreShort{false};
std::vector<std::chrono::nanoseconds> waitsAsked;

}  // namespace

// In front of the C library's: the bus waits with nothing else.
// NOLINTNEXTLINE(readability-inconsistent-declaration-parameter-name): its names are reserved.
extern "C" int ppoll(pollfd *fds, nfds_t count, const timespec *timeout, const sigset_t *mask) {
    timespec limit = timeout == nullptr ? timespec{} : *timeout;
    if (waitsAreShort && limit.tv_sec >= 1) {
        waitsAsked.push_back(std::chrono::seconds(limit.tv_sec) +
                             std::chrono::nanoseconds(limit.tv_nsec));
        limit = {0, 1'000'000};
    }
    return static_cast<int>(syscall(SYS_ppoll, fds, count, timeout == nullptr ? nullptr : &limit,
                                    mask, static_cast<size_t>(_NSIG) / 8));
}

namespace lanyard::test {

Module::Module(uint32_t number) : context_(xbusRegister(number, XBUS_MODE_HANDLER, handle, this)) {
    EXPECT_NE(nullptr, context_) << "module " << number << ": " << std::strerror(errno);
}

Module::~Module() {
    if (context_ != nullptr) {
        EXPECT_EQ(0, xbusUnRegister(context_));
    }
}

int Module::listen(std::chrono::microseconds timeout) {
    return xbusListen(context_, static_cast<uint32_t>(timeout.count()));
}

int Module::notify(uint32_t module, uint32_t command, const Bytes &buf) const {
    return xbusIoctl(context_, module, command, buf.data(), static_cast<uint32_t>(buf.size()),
                     nullptr, nullptr, XBUS_NO_WAIT, 0, 0);
}

int Module::call(uint32_t module, uint32_t command, const Bytes &buf, Bytes &out) const {
    auto outLength = static_cast<uint32_t>(out.size());
    const int result =
        xbusIoctl(context_, module, command, buf.data(), static_cast<uint32_t>(buf.size()),
                  out.data(), &outLength, XBUS_WAIT, 0, 0);
    out.resize(outLength);
    return result;
}

int Module::call(uint32_t module, uint32_t command) const {
    return xbusIoctl(context_, module, command, nullptr, 0, nullptr, nullptr, XBUS_WAIT, 0, 0);
}

std::vector<uint32_t> Module::receivedCommands() const {
    std::vector<uint32_t> commands;
    commands.reserve(received.size());
    for (const Received &message : received) {
        commands.push_back(message.command);
    }
    return commands;
}

int Module::handle(void * /*busArg1*/, void *self, uint32_t cmd, void *buf, uint32_t len, void *out,
                   uint32_t *outLen) {
    auto &module = *static_cast<Module *>(self);
    const std::span bufBytes(static_cast<uint8_t *>(buf), len);
    const std::span outBytes(static_cast<uint8_t *>(out), *outLen);
    if (module.handler) {
        return module.handler({cmd, bufBytes, outBytes, outLen});
    }
    Received message{cmd, {}, {}};
    if (buf != nullptr) {
        message.buf.emplace(bufBytes.begin(), bufBytes.end());
    }
    if (out != nullptr) {
        message.out.emplace(outBytes.begin(), outBytes.end());
    }
    module.received.push_back(std::move(message));
    return 0;
}

int ignore(void * /*busArg1*/, void * /*busArg2*/, uint32_t /*cmd*/, void * /*buf*/,
           uint32_t /*len*/, void * /*out*/, uint32_t * /*outLen*/) {
    return 0;
}

Child::Child(const std::function<int()> &part) {
    // What is not written yet is not for the child to write once more.
    (void)std::fflush(nullptr);
    pid_ = fork();
    if (pid_ == 0) {
        _exit(part());
    }
    EXPECT_GT(pid_, 0);
}

Child::~Child() {
    if (pid_ > 0) {
        kill();
        wait();
    }
}

int Child::wait() {
    int status = 0;
    while (waitpid(pid_, &status, 0) == -1 && errno == EINTR) {
    }
    pid_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

void Child::kill() const {
    ::kill(pid_, SIGKILL);
}

void Gate::open() const {
    EXPECT_EQ(1, write(pipe_.writeEnd.get(), "", 1));
}

bool Gate::pass() const {
    pollfd entry{pipe_.readEnd.get(), POLLIN, 0};
    char byte = 0;
    return poll(&entry, 1, kGateMilliseconds) == 1 && read(pipe_.readEnd.get(), &byte, 1) == 1;
}

RawPeer::RawPeer(const std::string &socketPath)
    : socket_(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0), "peer") {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (socketPath.size() >= sizeof address.sun_path) {
        throw std::runtime_error(socketPath);
    }
    socketPath.copy(address.sun_path, socketPath.size());
    // Above what any message takes, to send more than that.
    constexpr int kSendBuffer = 1 << 18;
    setsockopt(socket_.get(), SOL_SOCKET, SO_SNDBUF, &kSendBuffer, sizeof kSendBuffer);
    if (connect(socket_.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) {
        error_ = errno;
    }
}

bool RawPeer::send(const Bytes &packet) {
    const ssize_t sent = ::send(socket_.get(), packet.data(), packet.size(), MSG_NOSIGNAL);
    error_ = sent == -1 ? errno : 0;
    return sent == static_cast<ssize_t>(packet.size());
}

bool RawPeer::isClosed() const {
    pollfd entry{socket_.get(), POLLRDHUP, 0};
    return poll(&entry, 1, kGateMilliseconds) == 1;
}

FalseModule::FalseModule(const std::string &path)
    : listener_(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0), "module") {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    isThere_ =
        bind(listener_.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0 &&
        listen(listener_.get(), 10) == 0;
}

void FalseModule::answerOnce(const std::function<Bytes(port::bus::Head)> &answer) const {
    (void)answerFirst(answer);
}

bool FalseModule::answersInVain(const std::function<Bytes(port::bus::Head)> &answer) const {
    const FileDescriptor sender = answerFirst(answer);
    pollfd entry{sender.get(), POLLRDHUP, 0};
    return poll(&entry, 1, kPatienceMilliseconds) == 1;
}

FileDescriptor FalseModule::answerFirst(const std::function<Bytes(port::bus::Head)> &answer) const {
    FileDescriptor sender(accept(listener_.get(), nullptr, nullptr), "sender");
    port::bus::Head head;
    EXPECT_GE(recv(sender.get(), &head, sizeof head, 0), static_cast<ssize_t>(sizeof head));
    const Bytes packet = answer(head);
    EXPECT_EQ(static_cast<ssize_t>(packet.size()),
              send(sender.get(), packet.data(), packet.size(), 0));
    return sender;
}

Bytes packetOf(const port::bus::Head &head, const Bytes &buf, const Bytes &out) {
    Bytes packet(sizeof head);
    std::memcpy(packet.data(), &head, sizeof head);
    packet.insert(packet.end(), buf.begin(), buf.end());
    packet.insert(packet.end(), out.begin(), out.end());
    return packet;
}

port::bus::Head noticeHead(uint32_t command, uint32_t bufLength, uint32_t outLength) {
    port::bus::Head head;
    head.code = command;
    head.given = port::bus::Head::kBufGiven | port::bus::Head::kOutGiven;
    head.bufLength = bufLength;
    head.outLength = outLength;
    return head;
}

ShortWaits::ShortWaits() {
    waitsAsked.clear();
    waitsAreShort = true;
}

ShortWaits::~ShortWaits() {
    waitsAreShort = false;
}

std::vector<std::chrono::nanoseconds> ShortWaits::asked() {
    return waitsAsked;
}

std::string XbusTest::socketPath(uint32_t module) const {
    return root_.path("/run/xbus/" + std::to_string(module)).string();
}

}  // namespace lanyard::test
