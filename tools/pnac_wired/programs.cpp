#include "tools/pnac_wired/programs.h"

#include <csignal>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>
#include <utility>

#include "tools/pnac_wired/report.h"
#include "tools/spawn.h"

namespace lanyard::pnac {
namespace {

// With nothing of this process's but standard error, where its standard output goes too: ours is
// for events. In a group of its own, so that its own children end with it. Returns 0 when the program
// could not be started.
pid_t startProgram(const std::string &program, std::vector<std::string> environment) {
    try {
        return spawn({program}, std::move(environment),
                     {.out = STDERR_FILENO, .resetsSignals = true, .leadsGroup = true});
    } catch (const std::system_error &error) {
        (void)std::fprintf(stderr, "pnac-wired: cannot run %s: %s\n", program.c_str(),
                           std::strerror(error.code().value()));
        return 0;
    }
}

}  // namespace

Programs::Job Programs::jobOf(const std::string &program, const Event &event) const {
    Job job{.program = &program};
    job.environment = ownEnvironment();
    std::erase_if(job.environment,
                  [](const auto &variable) { return variable.starts_with("PNAC_"); });
    const auto set = [&](const char *name, std::string_view value) {
        job.environment.push_back(std::string(name) + '=' + std::string(value));
    };
    set("PNAC_EVENT", nameOf(event.kind));
    set("PNAC_REASON", nameOf(event.reason));
    set("PNAC_INTERFACE", settings_.interface);
    set("PNAC_ADDRESS", toText(event.address));
    set("PNAC_IDENTITY", escaped(event.identity));
    set("PNAC_IDENTITY_HEX", toHex(event.identity));
    set("PNAC_REAUTHENTICATION", event.reauthentication ? "1" : "0");
    if (!event.keyInfo.vlan.empty()) {
        set("PNAC_VLAN", escaped(event.keyInfo.vlan));
    }
    return job;
}

void Programs::run(const Event &event, Time now) {
    if (event.kind == EventKind::kFailed) {
        return;
    }
    const std::string &program =
        event.kind == EventKind::kAuthorized ? settings_.onAuthorized : settings_.onUnauthorized;
    if (program.empty()) {
        return;
    }
    const auto [slot, isNew] = slots_.try_emplace(event.address);
    slot->second.next = jobOf(program, event);
    if (isNew) {
        turns_.push_back(event.address);
    }
    startWaiting(now);
}

void Programs::startWaiting(Time now) {
    while (!turns_.empty() && running_ < settings_.limits.runningMax) {
        const auto slot = slots_.find(turns_.front());
        turns_.pop_front();
        start(slot->second, now);
        if (slot->second.pid == 0) {
            slots_.erase(slot);
        }
    }
}

void Programs::start(Slot &slot, Time now) {
    slot.pid = startProgram(*slot.next->program, std::move(slot.next->environment));
    slot.next.reset();
    slot.killAt = now + settings_.limits.lifetime;
    running_ += slot.pid != 0 ? 1 : 0;
    if (!killAt_) {
        killAt_ = slot.killAt;
    }
}

void Programs::reap(Time now) {
    for (auto entry = slots_.begin(); entry != slots_.end();) {
        Slot &slot = entry->second;
        const auto following = std::next(entry);
        if (slot.pid != 0 && waitpid(slot.pid, nullptr, WNOHANG) != 0) {
            slot.pid = 0;
            --running_;
            if (slot.next) {
                turns_.push_back(entry->first);
            } else {
                slots_.erase(entry);
            }
        }
        entry = following;
    }
    startWaiting(now);
}

void Programs::tick(Time now) {
    if (!killAt_ || *killAt_ > now) {
        return;
    }
    killAt_.reset();
    for (auto &[address, slot] : slots_) {
        if (slot.pid == 0) {
            continue;
        }
        if (slot.killAt <= now) {
            kill(-slot.pid, SIGKILL);
            slot.killAt = now + settings_.limits.lifetime;  // it ends when the kernel lets it
        }
        if (!killAt_ || slot.killAt < *killAt_) {
            killAt_ = slot.killAt;
        }
    }
}

void Programs::overtake(Time now) {
    for (auto &[address, slot] : slots_) {
        if (slot.pid != 0 && slot.next) {
            kill(-slot.pid, SIGKILL);
            --running_;
            start(slot, now);
        }
    }
}

void Programs::startAll(Time now) {
    settings_.limits.runningMax = SIZE_MAX;
    startWaiting(now);
}

}  // namespace lanyard::pnac
