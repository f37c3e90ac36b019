// One run of the device's NT-Response program for one user name at a time: all runs for a name write
// the same file.
#ifndef LANYARD_LOGIN_NT_RESPONSE_LOCK_H
#define LANYARD_LOGIN_NT_RESPONSE_LOCK_H

#include <array>

#include "base/descriptor.h"

namespace lanyard {

// Excludes threads and processes of this user. It is a lock on a file in a folder that nobody else
// can enter, so that no other user can hold it. The file is there only while somebody needs it, the
// folder stays, and the kernel gives the lock back when its process ends.
class NtResponseLock {
  public:
    // Long beside any run of the program, also where many logins of one name queue up.
    static constexpr int kPatience = 30000;

    // Waits for the lock, for `patience` milliseconds at most.
    explicit NtResponseLock(const char *userName, int patience = kPatience);
    NtResponseLock(const NtResponseLock &) = delete;
    NtResponseLock &operator=(const NtResponseLock &) = delete;
    ~NtResponseLock();

    [[nodiscard]] bool isHeld() const { return file_.isOpen(); }

  private:
    enum class Outcome { kHeld, kBusy, kNoPlace, kFailed };

    Outcome take();
    Outcome takeBelow(const char *parentPath);

    std::array<char, sizeof "lanyard-4294967295"> folderName_{};
    std::array<char, sizeof "0123456789abcdef"> fileName_{};
    Descriptor folder_;
    Descriptor file_;
};

}  // namespace lanyard

#endif
