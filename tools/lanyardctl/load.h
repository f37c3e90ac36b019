// Many logins, so many at a time, and what became of them.
#ifndef LANYARDCTL_LOAD_H
#define LANYARDCTL_LOAD_H

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <string>

#include "histogram.h"
#include "load_users.h"
#include "login.h"

namespace lanyardctl {

struct LoadPlan {
    MethodName method{};
    uint64_t logins = 0;
    unsigned atOnce = 0;
    std::deque<LoadUser> users;  // in turn
};

struct LoadFigures {
    uint64_t accepted = 0;
    uint64_t rejected = 0;
    uint64_t challenged = 0;
    std::map<std::string, uint64_t>
        failures;          // logins without a valid answer, by the reason at the last server asked
    Histogram times;       // from the first send to a valid answer
    uint64_t waiting = 0;  // logins without an answer when they were given up
    double seconds = 0;    // from the first start to the last end

    [[nodiscard]] uint64_t failed() const;
    [[nodiscard]] uint64_t ended() const { return accepted + rejected + challenged + failed(); }
};

// Runs the logins over one loop of the library, which has to be configured. SIGINT and SIGTERM end it early.
// `look` is called now and then with what there is so far. Throws a Failure for a user whom the library refuses.
LoadFigures runLoad(const LoadPlan &plan, const std::function<void(const LoadFigures &)> &look);

}  // namespace lanyardctl

#endif
