// Owner of a file descriptor, for programs on ordinary machines and for tests.
#ifndef LANYARD_TOOLS_FILE_DESCRIPTOR_H
#define LANYARD_TOOLS_FILE_DESCRIPTOR_H

#include <array>
#include <cerrno>
#include <fcntl.h>
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
    ~FileDescriptor() { reset(); }

    [[nodiscard]] int get() const { return fd_; }

    // Closes it now.
    void reset() {
        if (fd_ >= 0) {
            close(std::exchange(fd_, -1));
        }
    }

  private:
    int fd_;
};

// A pipe.
struct Pipe {
    explicit Pipe(int flags = O_CLOEXEC) : Pipe(make(flags)) {}

    FileDescriptor readEnd;
    FileDescriptor writeEnd;

  private:
    explicit Pipe(const std::array<int, 2> &ends)
        : readEnd(ends[0], "pipe"), writeEnd(ends[1], "pipe") {}

    static std::array<int, 2> make(int flags) {
        std::array<int, 2> ends = {};
        checked(pipe2(ends.data(), flags), "pipe");
        return ends;
    }
};

}  // namespace lanyard

#endif
