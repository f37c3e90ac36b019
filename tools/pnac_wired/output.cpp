#include "tools/pnac_wired/output.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace lanyard::pnac {
namespace {

// The same file with an open file description of its own where one can be had: whoever shares the
// other one has not asked for writes that do not wait.
int openAgain(int fd) {
    const std::string path = "/proc/self/fd/" + std::to_string(fd);
    return open(path.c_str(), O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
}

std::optional<FileDescriptor> openWithoutWaiting(int fd) {
    struct stat status = {};
    if (fstat(fd, &status) != 0) {
        return std::nullopt;
    }
    // Opened again, a regular file would begin at its start. It never makes anyone wait.
    const bool isRegular = S_ISREG(status.st_mode);
    const int again = isRegular || S_ISSOCK(status.st_mode) ? -1 : openAgain(fd);
    if (again >= 0) {
        return FileDescriptor(again, "standard output");
    }
    FileDescriptor copy(fcntl(fd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1), "standard output");
    if (!isRegular) {
        fcntl(copy.get(), F_SETFL, fcntl(copy.get(), F_GETFL) | O_NONBLOCK);
    }
    return copy;
}

}  // namespace

Output::Output(int fd) : file_(openWithoutWaiting(fd)) {}

void Output::say(const std::string &line) {
    flush();
    if (!file_ || pending_.size() + line.size() > kPendingMax) {
        ++linesLost_;
        return;
    }
    pending_ += line;
    flush();
}

void Output::flush() {
    while (!pending_.empty()) {
        const ssize_t taken = write(file_->get(), pending_.data(), pending_.size());
        if (taken >= 0) {
            pending_.erase(0, static_cast<size_t>(taken));
        } else if (errno == EAGAIN) {
            return;
        } else if (errno != EINTR) {
            linesLost_ += static_cast<uint64_t>(std::count(pending_.begin(), pending_.end(), '\n'));
            pending_.clear();
        }
    }
}

}  // namespace lanyard::pnac
