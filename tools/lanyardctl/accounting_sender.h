// Takes what the accounting queue holds to the servers.
//
// In the order in which the records were made. One that nobody answers holds back the later ones of its session, and
// if it is about the device all later ones; none about the device overtakes any. So what a server hears of a session
// is in order. The others go on, for a server may be silent about one record alone; at the second session in a row
// that nobody answers, the servers are given up.
#ifndef LANYARDCTL_ACCOUNTING_SENDER_H
#define LANYARDCTL_ACCOUNTING_SENDER_H

#include <cstdint>
#include <vector>

#include <lanyard/radius/error.h>

#include "accounting_queue.h"

namespace lanyardctl {

struct Delivery {
    int64_t sent = 0;                   // records that were answered, and are in the queue no more
    double milliseconds = 0;            // from the first send of the last of them to its answer
    std::vector<RadLastError> servers;  // those that were asked for it
    int64_t unanswered = 0;             // records that were sent in vain
    std::vector<RadLastError> silent;   // those that were asked for the first of them
};

// The library has to be configured, and the caller has the turn.
// `only`: a record that was stored; takes it and what has to be in front of it, where it is 0 all there are.
Delivery deliver(const AccountingQueue &queue, int64_t only = 0);

}  // namespace lanyardctl

#endif
