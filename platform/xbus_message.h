// A message of the bus: one packet of a head, the bytes of `buf`, then those of `out`. Both ends
// run on the same machine: words are in its byte order.
#ifndef LANYARD_PLATFORM_XBUS_MESSAGE_H
#define LANYARD_PLATFORM_XBUS_MESSAGE_H

#include <cstdint>
#include <span>

namespace lanyard::port::bus {

constexpr int kLogModule = 8;
constexpr int kLogError = 8;

constexpr uint32_t kPartMax = 64 * 1024;  // bytes in `buf` and in `out`, each
constexpr uint32_t kPartsMax = 2 * kPartMax;

enum class Kind : uint32_t {
    kCall = 1,    // asks for an answer
    kNotice = 2,  // does not
    kAnswer = 3,
};

struct Head {
    static constexpr uint32_t kMagic = 0x31425558;  // "XUB1" in memory
    static constexpr uint32_t kBufGiven = 1;
    static constexpr uint32_t kOutGiven = 2;

    uint32_t magic = kMagic;
    Kind kind = Kind::kNotice;
    uint64_t id = 0;         // an answer has that of its call
    uint32_t code = 0;       // the command; in an answer the handler's result
    uint32_t given = 0;      // which of the pointers were not null
    uint32_t bufLength = 0;  // 0 in an answer
    uint32_t outLength = 0;
};
static_assert(sizeof(Head) == 32, "no padding that would carry other memory along");

struct Message {
    Head head;
    const void *buf = nullptr;
    const void *out = nullptr;
};

// Sends without waiting. False with `errno` set: EAGAIN when the queue is full.
bool sendMessage(int socket, const Message &message);

// Who receives: a module gets calls and notices, a sender gets answers.
enum class Side { kModule, kSender };

// Receives without waiting. `parts` gets `buf` and, right after it, `out`; it has room for kPartsMax
// bytes, that of a sender for kPartMax, or for less where it does not read them. A head that this returns is sound and says what `parts`
// holds. False with `errno` set: EAGAIN when nothing is there, ECONNRESET when the other end is
// closed and everything that it sent was received, EBADMSG for a malformed message, of which an
// error is in the log. After the latter two the connection is to be closed.
bool receiveMessage(int socket, Side side, Head &head, std::span<uint8_t> parts);

// Logs who sent what nobody can read.
void logMalformed(int socket, Side side);

}  // namespace lanyard::port::bus

#endif
