/**
 * @file
 * What a module sends.
 */
#ifndef LANYARD_PLATFORM_XBUS_OUTBOX_H
#define LANYARD_PLATFORM_XBUS_OUTBOX_H

#include <cstdint>
#include <vector>

#include "xbus_descriptor.h"
#include "xbus_folder.h"
#include "xbus_message.h"
#include "xbus_wait.h"

namespace port::bus {

/** What the caller of xbusIoctl() wants to reach a module. */
struct Request {
    uint32_t module = 0;
    uint32_t command = 0;
    Parts parts;
    uint32_t bufLength = 0;
    uint32_t outLength = 0;
};

/**
 * The connections to the modules that were sent to: one each, for calls and notices alike, so that
 * they arrive in order.
 *
 * Functions yield false on failure, with `errno` set.
 */
class Outbox {
  public:
    /** @param folder  outlives the outbox. */
    explicit Outbox(const Folder &folder) noexcept : folder_(folder) {}

    /** Hands a message over without waiting. Throws std::bad_alloc. */
    bool notify(const Request &request);

    /**
     * Hands a message over and waits for the answer, 5 seconds in all.
     * @param out     gets what comes back, at most `request.outLength` bytes.
     * @param answer  set to the answer's head.
     * Throws std::bad_alloc.
     */
    bool call(const Request &request, void *out, Head &answer);

  private:
    struct Link {
        uint32_t module = 0;
        Descriptor socket;
    };

    /** How long to wait; without a deadline not at all. */
    using Patience = const Clock::time_point *;

    /** @return the link that took the message, null with `errno` set when none did. */
    Link *send(const Request &request, const Head &head, Patience patience);
    Link *find(uint32_t module) noexcept;
    Link *open(uint32_t module, Patience patience);

    const Folder &folder_;
    std::vector<Link> links_;
    uint64_t lastId_ = 0;
};

}  // namespace port::bus

#endif
