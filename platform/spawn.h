// Setting up a program for posix_spawn(). Uses nothing of this folder, so that the tools and the
// tests, which stand above it, start their programs in the same way.
#ifndef LANYARD_PLATFORM_SPAWN_H
#define LANYARD_PLATFORM_SPAWN_H

#include <csignal>
#include <spawn.h>
#include <sys/types.h>

#ifdef __GLIBC__
#if __GLIBC_PREREQ(2, 34)
#define LANYARD_HAVE_CLOSEFROM
#endif
#endif

namespace lanyard::port {

// What a program gets, where it is not what this process has. A step that fails shows in the result
// of spawn().
class SpawnPlan {
  public:
    SpawnPlan() {
        add(posix_spawnattr_init, &attributes_);
        haveAttributes_ = error_ == 0;
        add(posix_spawn_file_actions_init, &actions_);
        haveActions_ = error_ == 0;
    }
    ~SpawnPlan() {
        if (haveAttributes_) {
            posix_spawnattr_destroy(&attributes_);
        }
        if (haveActions_) {
            posix_spawn_file_actions_destroy(&actions_);
        }
    }
    SpawnPlan(const SpawnPlan &) = delete;
    SpawnPlan &operator=(const SpawnPlan &) = delete;
    SpawnPlan(SpawnPlan &&) = delete;
    SpawnPlan &operator=(SpawnPlan &&) = delete;

    // No signal is blocked or ignored in the program, as after a login.
    void resetSignals() {
        sigset_t none;
        sigset_t all;
        sigemptyset(&none);
        sigfillset(&all);
        add(posix_spawnattr_setsigmask, &attributes_, &none);
        add(posix_spawnattr_setsigdefault, &attributes_, &all);
        flags_ |= POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF;
    }

    // Opens a file as that descriptor.
    void openAs(int descriptor, const char *path, int flags) {
        add(posix_spawn_file_actions_addopen, &actions_, descriptor, path, flags, mode_t{0});
    }

    void duplicate(int descriptor, int as) {
        add(posix_spawn_file_actions_adddup2, &actions_, descriptor, as);
    }

    // Closes the descriptors from that one on, where the C library can: others than ours may lack
    // close-on-exec.
    void closeFrom([[maybe_unused]] int descriptor) {
#ifdef LANYARD_HAVE_CLOSEFROM
        add(posix_spawn_file_actions_addclosefrom_np, &actions_, descriptor);
#endif
    }

    // Makes the program the first of a process group.
    void leadGroup() {
        add(posix_spawnattr_setpgroup, &attributes_, pid_t{0});
        flags_ |= POSIX_SPAWN_SETPGROUP;
    }

    // Starts the program at the end of that path. Returns 0 or an error number.
    [[nodiscard]] int spawn(pid_t &child, const char *path, char *const argv[],
                            char *const environment[]) {
        add(posix_spawnattr_setflags, &attributes_, flags_);
        add(posix_spawn, &child, path, &actions_, &attributes_, argv, environment);
        return error_;
    }

  private:
    // Takes a step when all before it have succeeded.
    template <typename Step, typename... Arguments>
    void add(Step step, Arguments... arguments) {
        if (error_ == 0) {
            error_ = step(arguments...);
        }
    }

    posix_spawnattr_t attributes_{};
    posix_spawn_file_actions_t actions_{};
    bool haveAttributes_ = false;
    bool haveActions_ = false;
    short flags_ = 0;
    int error_ = 0;
};

}  // namespace lanyard::port

#endif
