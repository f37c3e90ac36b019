#include "login/nt_response_lock.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include <palcore.h>

namespace lanyard {
namespace {

// Where the folder of the lock may stand, best place first. All processes of a user have to come to
// the same one, so the next is tried only where the one before can be used by none of them. Root
// finds its place before the last; the others have that one, where somebody has not prepared a
// better one.
constexpr std::array kParents = {"/run", "/var/run", "/var", "/", "/tmp"};

constexpr int kFolderFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

// Whether no process of this user can use a place, in contrast to a want that may pass.
bool isNoPlace(int error) {
    return error == ENOENT || error == ENOTDIR || error == ELOOP || error == EACCES ||
           error == EPERM || error == EROFS;
}

// Whether no other user can put another folder in the place of ours.
bool keepsEntries(const struct stat &parent) {
    const bool isTrusted = parent.st_uid == 0 || parent.st_uid == geteuid();
    const bool isShared = (parent.st_mode & (S_IWGRP | S_IWOTH)) != 0;
    return isTrusted && (!isShared || (parent.st_mode & S_ISVTX) != 0);
}

bool isOurs(const struct stat &folder) {
    return folder.st_uid == geteuid() && (folder.st_mode & (S_IRWXG | S_IRWXO)) == 0;
}

// FNV-1a: a name may be long and hold any byte, a file name not. Two names with the same hash wait
// for each other, which does no harm.
uint64_t hashOf(const char *text) {
    uint64_t hash = 0xcbf29ce484222325;
    for (; *text != '\0'; ++text) {
        hash = (hash ^ static_cast<uint8_t>(*text)) * 0x100000001b3;
    }
    return hash;
}

int64_t nowInMilliseconds() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
}

}  // namespace

NtResponseLock::NtResponseLock(const char *userName, int patience) {
    std::snprintf(folderName_.data(), folderName_.size(), "lanyard-%u",
                  static_cast<unsigned>(geteuid()));
    std::snprintf(fileName_.data(), fileName_.size(), "%016llx",
                  static_cast<unsigned long long>(hashOf(userName)));
    const int64_t deadline = nowInMilliseconds() + patience;
    while (take() == Outcome::kBusy) {
        const int64_t left = deadline - nowInMilliseconds();
        if (left <= 0) {
            return;
        }
        // Who has waited for long asks more often, so that nobody waits in vain in a crowd.
        palTaskDelay(static_cast<int>(std::clamp<int64_t>(left / 3000, 1, 10)));
    }
}

NtResponseLock::~NtResponseLock() {
    if (!isHeld()) {
        return;
    }
    unlinkat(folder_.get(), fileName_.data(), 0);
    // Closing would not do: a process that was forked meanwhile holds the descriptor as well.
    flock(file_.get(), LOCK_UN);
}

NtResponseLock::Outcome NtResponseLock::take() {
    for (const char *parent : kParents) {
        const Outcome outcome = takeBelow(parent);
        if (outcome != Outcome::kNoPlace) {
            return outcome;
        }
    }
    return Outcome::kFailed;
}

NtResponseLock::Outcome NtResponseLock::takeBelow(const char *parentPath) {
    const auto failure = [] { return isNoPlace(errno) ? Outcome::kNoPlace : Outcome::kFailed; };
    struct stat status {};

    const Descriptor parent(palOpen(parentPath, kFolderFlags, 0));
    if (!parent.isOpen()) {
        return failure();
    }
    if (fstat(parent.get(), &status) != 0 || !keepsEntries(status)) {
        return Outcome::kNoPlace;
    }

    const bool isThere = mkdirat(parent.get(), folderName_.data(), S_IRWXU) == 0 || errno == EEXIST;
    if (!isThere && !isNoPlace(errno)) {
        return Outcome::kFailed;
    }
    Descriptor folder(openat(parent.get(), folderName_.data(), kFolderFlags));
    if (!folder.isOpen()) {
        // Somebody is clearing up.
        return isThere && errno == ENOENT ? Outcome::kBusy : failure();
    }
    if (fstat(folder.get(), &status) != 0 || !isOurs(status)) {
        return Outcome::kNoPlace;
    }

    Descriptor file(openat(folder.get(), fileName_.data(),
                           O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC,
                           S_IRUSR | S_IWUSR));
    if (!file.isOpen()) {
        return errno == ENOENT ? Outcome::kBusy : failure();
    }
    if (flock(file.get(), LOCK_EX | LOCK_NB) != 0) {
        return errno == EWOULDBLOCK || errno == EINTR ? Outcome::kBusy : Outcome::kFailed;
    }
    // A file that its last holder has removed excludes nobody any more.
    if (fstat(file.get(), &status) != 0 || status.st_nlink == 0) {
        return Outcome::kBusy;
    }
    folder_ = std::move(folder);
    file_ = std::move(file);
    return Outcome::kHeld;
}

}  // namespace lanyard
