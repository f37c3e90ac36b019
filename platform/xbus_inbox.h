/**
 * @file
 * What comes in for a module.
 */
#ifndef LANYARD_PLATFORM_XBUS_INBOX_H
#define LANYARD_PLATFORM_XBUS_INBOX_H

#include <cstddef>
#include <poll.h>
#include <vector>

#include <xbus.h>

#include "xbus_descriptor.h"
#include "xbus_folder.h"
#include "xbus_message.h"
#include "xbus_wait.h"

namespace port::bus {

/**
 * A module's listening socket and the connections of its senders, one each.
 *
 * The queue is the kernel's: a message stays in its sender's socket until its turn has come, so
 * that messages of one sender keep their order, and senders take turns. No socket ever blocks.
 */
class Inbox {
  public:
    enum class Outcome { handled, nothing, failed };

    /** Who handles the messages. */
    struct Receiver {
        XbusHandler handler = nullptr;
        void *argument = nullptr;
    };

    /** @param folder  outlives the inbox. Throws std::bad_alloc. */
    Inbox(const Folder &folder, Descriptor listener, const Receiver &receiver);

    /** False when it could not be made; `errno` is set. */
    [[nodiscard]] bool isOpen() const noexcept { return events_.isOpen(); }

    /** Readable when there is something to handle. */
    [[nodiscard]] int descriptor() const noexcept { return events_.get(); }

    /** Handles one message, if one comes by the deadline. */
    Outcome handleOne(Clock::time_point deadline) noexcept;

  private:
    /** All that is waited for: the listening socket, then a place for each connection. */
    [[nodiscard]] bool addToEvents(const Descriptor &socket) const noexcept;
    void watch(bool withListener) noexcept;
    bool acceptSenders() noexcept;
    void dropClosed() noexcept;

    /** The next message, sender by sender. */
    Outcome handleNext() noexcept;
    Outcome handle(int socket, const Head &head) const noexcept;

    const Folder &folder_;
    Descriptor listener_;
    Descriptor events_; /**< An epoll set of the listening socket and the connections. */
    Receiver receiver_;
    std::vector<Descriptor> senders_;
    std::vector<pollfd> watched_;
    std::size_t next_ = 0; /**< The sender whose turn it is. */
};

}  // namespace port::bus

#endif
