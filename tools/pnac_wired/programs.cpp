#include "tools/pnac_wired/programs.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <iterator>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

#include "tools/pnac_wired/report.h"

namespace lanyard::pnac {
namespace {

// Owners of what posix_spawn() takes.
class FileActions {
  public:
    FileActions() { posix_spawn_file_actions_init(&actions_); }
    ~FileActions() { posix_spawn_file_actions_destroy(&actions_); }
    FileActions(const FileActions &) = delete;
    FileActions &operator=(const FileActions &) = delete;
    posix_spawn_file_actions_t *get() { return &actions_; }

  private:
    posix_spawn_file_actions_t actions_ = {};
};

class SpawnAttributes {
  public:
    SpawnAttributes() { posix_spawnattr_init(&attributes_); }
    ~SpawnAttributes() { posix_spawnattr_destroy(&attributes_); }
    SpawnAttributes(const SpawnAttributes &) = delete;
    SpawnAttributes &operator=(const SpawnAttributes &) = delete;
    posix_spawnattr_t *get() { return &attributes_; }

  private:
    posix_spawnattr_t attributes_ = {};
};

// With nothing of this process's but standard error, where its standard output goes too: ours is
// for events. Yields 0 when the program could not be started.
pid_t spawn(const std::string &program, const std::vector<std::string> &environment) {
    FileActions actions;
    posix_spawn_file_actions_addopen(actions.get(), STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(actions.get(), STDERR_FILENO, STDOUT_FILENO);

    sigset_t none;
    sigset_t all;
    sigemptyset(&none);
    sigfillset(&all);
    SpawnAttributes attributes;
    posix_spawnattr_setsigmask(attributes.get(), &none);
    posix_spawnattr_setsigdefault(attributes.get(), &all);
    posix_spawnattr_setpgroup(attributes.get(), 0);  // so that its own children end with it
    posix_spawnattr_setflags(
        attributes.get(), POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP);

    std::string name = program;
    char *const arguments[] = {name.data(), nullptr};
    std::vector<std::string> strings = environment;
    std::vector<char *> pointers;
    pointers.reserve(strings.size() + 1);
    for (std::string &string : strings) {
        pointers.push_back(string.data());
    }
    pointers.push_back(nullptr);

    pid_t pid = 0;
    const int error = posix_spawn(&pid, program.c_str(), actions.get(), attributes.get(), arguments,
                                  pointers.data());
    if (error != 0) {
        (void)std::fprintf(stderr, "pnac-wired: cannot run %s: %s\n", program.c_str(),
                           std::strerror(error));
        return 0;
    }
    return pid;
}

}  // namespace

Programs::Job Programs::jobOf(const std::string &program, const Event &event) const {
    Job job{.program = &program};
    for (char **variable = environ; *variable; ++variable) {
        if (std::strncmp(*variable, "PNAC_", 5) != 0) {
            job.environment.emplace_back(*variable);
        }
    }
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
    slot.pid = spawn(*slot.next->program, slot.next->environment);
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
