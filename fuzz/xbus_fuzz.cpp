// Raw packets to a module of the bus, over real sockets: the input is a row of packets, and of peers that leave
// and come back. What is sound by another judgement, and nothing else, reaches the handler.
#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <optional>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <palroot.h>
#include <xbus.h>

#include "fuzz/environment.h"
#include "platform/xbus_message.h"
#include "tests/support/temporary_folder.h"

namespace {

using namespace lanyard::fuzz;
using lanyard::port::bus::Head;
using lanyard::port::bus::Kind;
using lanyard::port::bus::kPartMax;

constexpr uint32_t kModule = 8;
constexpr size_t kPeers = 3;
constexpr uint32_t kResult = 4711;

// What the handler is to be called with next; the peers are served in turn.
struct Expected {
    uint32_t command = 0;
    Bytes buf = {};
    Bytes out = {};
};

XbusCtx *module = nullptr;
std::string socketPath;
std::array<int, kPeers> peers = {-1, -1, -1};
std::vector<Expected> awaited;
Script *script = nullptr;

int handle(void * /*busArg1*/, void * /*argument*/, uint32_t command, void *buf, uint32_t length,
           void *out, uint32_t *outLength) {
    const auto *bytes = static_cast<const uint8_t *>(buf);
    const auto *more = static_cast<const uint8_t *>(out);
    const Expected got{
        .command = command, .buf = {bytes, bytes + length}, .out = {more, more + *outLength}};
    const auto place = std::find_if(awaited.begin(), awaited.end(), [&](const Expected &one) {
        return one.command == got.command && one.buf == got.buf && one.out == got.out;
    });
    require(place != awaited.end(), "the handler gets what was sent");
    awaited.erase(place);
    // An answer may claim any length; what is not there is not sent.
    *outLength = script->u8();
    return kResult;
}

int connectPeer() {
    const int peer = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    socketPath.copy(address.sun_path, sizeof(address.sun_path) - 1);
    const bool isConnected =
        connect(peer, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) == 0;
    require(isConnected, "a peer can connect");
    return peer;
}

void leave(int &peer) {
    if (peer >= 0) {
        close(peer);
        peer = -1;
    }
}

// Another reading of what a message is; see platform/xbus_message.h.
std::optional<Expected> readMessage(const Bytes &packet) {
    Head head;
    if (packet.size() < sizeof(head)) {
        return std::nullopt;
    }
    std::memcpy(&head, packet.data(), sizeof(head));
    const bool givesBuf = (head.given & Head::kBufGiven) != 0;
    const bool givesOut = (head.given & Head::kOutGiven) != 0;
    if (head.magic != 0x31425558 || head.given > 3 ||
        (head.kind != Kind::kCall && head.kind != Kind::kNotice) || head.bufLength > kPartMax ||
        head.outLength > kPartMax || (head.bufLength > 0 && !givesBuf) ||
        (head.outLength > 0 && !givesOut) ||
        packet.size() - sizeof(head) != uint64_t{head.bufLength} + head.outLength) {
        return std::nullopt;
    }
    const auto begin = packet.begin() + sizeof(head);
    return Expected{.command = head.code,
                    .buf = {begin, begin + head.bufLength},
                    .out = {begin + head.bufLength, packet.end()}};
}

// A sound message, or one with a number of its head changed, or any bytes.
Bytes packetFrom(uint8_t how) {
    if ((how & 3) == 3) {
        return script->longPart();
    }
    Head head{.kind = (how & 4) != 0 ? Kind::kCall : Kind::kNotice,
              .id = how,
              .code = script->u8(),
              .given = Head::kBufGiven | Head::kOutGiven};
    Bytes buf = script->part();
    const Bytes out = script->part();
    head.bufLength = static_cast<uint32_t>(buf.size());
    head.outLength = static_cast<uint32_t>(out.size());
    if ((how & 8) != 0) {
        auto *bytes = reinterpret_cast<uint8_t *>(&head);
        bytes[script->u8() % sizeof(head)] = script->u8();
    }
    Bytes packet(sizeof(head));
    std::memcpy(packet.data(), &head, sizeof(head));
    packet.insert(packet.end(), buf.begin(), buf.end());
    packet.insert(packet.end(), out.begin(), out.end());
    return packet;
}

void serve() {
    while (xbusListen(module, 0) == 1) {
    }
}

// What an answer may be: that of a call, in order.
void readAnswers(int peer) {
    Bytes answer(sizeof(Head) + kPartMax);
    for (;;) {
        const ssize_t size = recv(peer, answer.data(), answer.size(), MSG_DONTWAIT);
        if (size <= 0) {
            return;
        }
        Head head;
        require(static_cast<size_t>(size) >= sizeof(head), "an answer has a head");
        std::memcpy(&head, answer.data(), sizeof(head));
        require(head.magic == Head::kMagic && head.kind == Kind::kAnswer && head.code == kResult &&
                    head.bufLength == 0 &&
                    sizeof(head) + head.outLength == static_cast<size_t>(size),
                "an answer is as long as it says");
    }
}

void step() {
    const uint8_t how = script->u8();
    int &peer = peers[(how >> 4) % kPeers];
    if ((how & 0xc0) == 0xc0) {
        serve();  // or what it has sent may be lost
        leave(peer);
        return;
    }
    if (peer < 0) {
        peer = connectPeer();
    }
    const Bytes packet = packetFrom(how);
    const auto message = readMessage(packet);
    if (send(peer, packet.data(), packet.size(), MSG_NOSIGNAL | MSG_DONTWAIT) < 0) {
        leave(peer);
        return;
    }
    if (message) {
        awaited.push_back(*message);
    }
    serve();
    require(awaited.empty(), "what is sound is handled");
    readAnswers(peer);
    if (!message && !packet.empty()) {
        uint8_t byte = 0;
        require(recv(peer, &byte, 1, MSG_DONTWAIT) == 0 || errno == ECONNRESET,
                "who talks nonsense is dropped");
    }
    if (!message) {
        leave(peer);
    }
}

void start() {
    static const lanyard::test::TemporaryFolder folder;
    palRootSet(folder.path().c_str());
    require(xbusInit() == 0, "there is a bus");
    module = xbusRegister(kModule, XBUS_MODE_HANDLER, handle, nullptr);
    require(module != nullptr, "the module registers");
    socketPath = folder.path().string() + "/run/xbus/8";
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (module == nullptr) {
        start();
    }
    const int firstFree = dup(0);
    close(firstFree);
    Script theScript(data, size);
    script = &theScript;
    while (!theScript.atEnd()) {
        step();
    }
    for (int &peer : peers) {
        leave(peer);
    }
    serve();
    script = nullptr;
    const int stillFree = dup(0);
    close(stillFree);
    require(stillFree == firstFree, "every connection is closed");
    return 0;
}
