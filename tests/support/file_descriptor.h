// Owner of a file descriptor.
#ifndef LANYARD_TESTS_SUPPORT_FILE_DESCRIPTOR_H
#define LANYARD_TESTS_SUPPORT_FILE_DESCRIPTOR_H

#include <cerrno>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace lanyard::test {

class FileDescriptor {
  public:
    // Takes what a system call returned; throws std::system_error with `errno` when it is negative.
    FileDescriptor(int fd, const char *what) : fd_(fd) {
        if (fd < 0) {
            throw std::system_error(errno, std::generic_category(), what);
        }
    }
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

}  // namespace lanyard::test

#endif
