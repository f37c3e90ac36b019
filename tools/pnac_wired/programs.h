// The programs that the operator wants to be run on events.
//
// A program is started directly, without a shell and without arguments; what it needs is in its
// environment. Programs of one address run one after the other, never two at once, so that they
// take effect in the order of the events. While one runs, only the latest event behind it is kept:
// a program sets the port to a state, so earlier states need not be passed through.
#ifndef LANYARD_TOOLS_PNAC_WIRED_PROGRAMS_H
#define LANYARD_TOOLS_PNAC_WIRED_PROGRAMS_H

#include <deque>
#include <map>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

#include "tools/pnac_wired/event.h"

namespace lanyard::pnac {

class Programs {
  public:
    struct Limits {
        size_t runningMax = 32;
        Duration lifetime = std::chrono::seconds(60);  // then it is killed
    };

    struct Settings {
        std::string interface = {};
        std::string onAuthorized = {};  // paths; empty for none
        std::string onUnauthorized = {};
        Limits limits = {};
    };

    explicit Programs(Settings settings) : settings_(std::move(settings)) {}

    // Starts the event's program, now or when others have ended. Never waits.
    void run(const Event &event, Time now);

    // Takes note of programs that have ended; call it on SIGCHLD.
    void reap(Time now);

    // Kills programs that run too long.
    void tick(Time now);
    std::optional<Time> nextDeadline() const { return killAt_; }

    // From now on starts programs however many run: this one ends.
    void startAll(Time now);

    // Starts what waits behind programs that still run, which are killed: there is no time left.
    void overtake(Time now);

    bool idle() const { return slots_.empty(); }
    size_t running() const { return running_; }

  private:
    struct Job {
        const std::string *program = nullptr;
        std::vector<std::string> environment = {};
    };

    // The programs of one address.
    struct Slot {
        pid_t pid = 0;  // 0 while it waits for its turn
        Time killAt = {};
        std::optional<Job> next = {};
    };

    Job jobOf(const std::string &program, const Event &event) const;
    void start(Slot &slot, Time now);
    void startWaiting(Time now);

    Settings settings_;
    std::map<Mac, Slot> slots_;
    std::deque<Mac> turns_;  // addresses whose next program may start
    size_t running_ = 0;
    std::optional<Time> killAt_;  // the earliest of all, or earlier
};

}  // namespace lanyard::pnac

#endif
