/**
 * @file
 * A message of the bus as one packet: a head, then the bytes of `buf`, then those of `out`.
 *
 * Both ends run on the same machine: words are in its byte order.
 */
#ifndef LANYARD_PLATFORM_XBUS_MESSAGE_H
#define LANYARD_PLATFORM_XBUS_MESSAGE_H

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace port::bus {

/** Whose messages the bus's own are in the module debug log. */
constexpr int logModule = 8;
constexpr int logError = 8;

/** The most bytes that `buf` and `out` may hold, each. */
constexpr uint32_t partMax = 64 * 1024;

enum class Kind : uint32_t {
    call = 1,   /**< Asks for an answer. */
    notice = 2, /**< Does not. */
    answer = 3,
};

struct Head {
    static constexpr uint32_t magicNumber = 0x31425558; /**< "XUB1" in memory. */
    static constexpr uint32_t bufGiven = 1;
    static constexpr uint32_t outGiven = 2;

    uint32_t magic = magicNumber;
    Kind kind = Kind::notice;
    uint64_t id = 0;        /**< An answer has that of its call. */
    uint32_t code = 0;      /**< The command; in an answer the handler's result. */
    uint32_t given = 0;     /**< Which of the pointers were not null. */
    uint32_t bufLength = 0; /**< An answer has no buf. */
    uint32_t outLength = 0;
};
static_assert(sizeof(Head) == 32, "no padding that would carry other memory along");

/** Bytes to send. */
struct Parts {
    const void *buf = nullptr;
    const void *out = nullptr;
};

/** Sends one message without waiting. @return false with `errno` set: EAGAIN, the queue is full. */
bool sendMessage(int socket, const Head &head, const Parts &parts) noexcept;

/** True for the errors of sendMessage() that tell that the other end is closed. */
bool isPeerGone(int error) noexcept;

enum class Arrival {
    message,
    nothing,
    end,       /**< The other end is closed and everything that it sent was received. */
    malformed, /**< The connection is to be closed; an error is in the log. */
};

/**
 * Looks at the head of the next message without taking it or waiting for it. A head that this
 * yields is well-formed and as long as the packet says.
 * @param function  for the log.
 */
Arrival peekMessage(const char *function, int socket, Head &head) noexcept;

/** Tells the log who sent what nobody can read. */
void logMalformed(const char *function, int socket) noexcept;

/**
 * Takes the message that was looked at.
 * @param buf  room for as many bytes as its head says; the rest of the message is dropped when this
 *             and `out` are null.
 * @param out  likewise.
 * @return false when it is not there any more.
 */
bool takeMessage(int socket, const Head &head, void *buf, void *out) noexcept;

/** Releases a block of the heap. Keys travel over the bus: nothing of a message is left behind. */
struct WipingDeleter {
    std::size_t size = 0;
    void operator()(void *block) const noexcept {
        explicit_bzero(block, size);
        std::free(block);
    }
};
using Block = std::unique_ptr<void, WipingDeleter>;

/** A block of its own for each part, so that an overrun in a handler does not stay hidden. */
inline Block allocateBlock(std::size_t size) noexcept {
    return {std::malloc(size == 0 ? 1 : size), WipingDeleter{size}};
}

}  // namespace port::bus

#endif
