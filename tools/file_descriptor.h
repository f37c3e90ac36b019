// Owner of a file descriptor, for programs on ordinary machines and for tests.
#ifndef LANYARD_TOOLS_FILE_DESCRIPTOR_H
#define LANYARD_TOOLS_FILE_DESCRIPTOR_H

#include <cerrno>
#include <string>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace lanyard {

// Throws std::system_error with `errno` when a system call has failed.
inline int checked(int result, const std::string &what) {
    if (result < 0) {
        throw std::system_error(errno, std::generic_category(), what);
    }
    return result;
}

class FileDescriptor {
  public:
    FileDescriptor(int fd, const std::string &what) : fd_(checked(fd, what)) {}
    FileDescriptor(FileDescriptor &&other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    FileDescriptor(const FileDescriptor &) = delete;
    FileDescriptor &operator=(const FileDescriptor &) = delete;
    FileDescriptor &operator=(FileDescriptor &&) = delete;
    ~FileDescriptor() {
        if (fd_ >= 0) {
            close(fd_);
        }
    }

    [[nodiscard]] int get() const { return fd_; }

  private:
    int fd_;
};

}  // namespace lanyard

#endif
