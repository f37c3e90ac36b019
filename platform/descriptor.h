// Owner of a file descriptor.
#ifndef LANYARD_PLATFORM_DESCRIPTOR_H
#define LANYARD_PLATFORM_DESCRIPTOR_H

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>
#include <utility>

namespace lanyard::port {

// Closes its descriptor. `errno` stays as it is.
class Descriptor {
  public:
    Descriptor() = default;

    // Takes over a descriptor; -1 for none.
    explicit Descriptor(int fd) : fd_(fd) {
        // A program that was started without standard streams gets their numbers, where daemon()
        // would put /dev/null in the place of a registration.
        constexpr int kFirstFree = STDERR_FILENO + 1;
        if (fd >= 0 && fd < kFirstFree) {
            const int higher = fcntl(fd, F_DUPFD_CLOEXEC, kFirstFree);
            reset(higher);
        }
    }

    ~Descriptor() { reset(); }
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;
    Descriptor(Descriptor &&other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    Descriptor &operator=(Descriptor &&other) noexcept {
        reset(std::exchange(other.fd_, -1));
        return *this;
    }

    int get() const { return fd_; }
    bool isOpen() const { return fd_ != -1; }

    // Hands it to somebody who closes it; -1 for none.
    int release() { return std::exchange(fd_, -1); }

    void reset(int fd = -1) {
        const int error = errno;
        if (fd_ != -1) {
            close(fd_);
        }
        fd_ = fd;
        errno = error;
    }

  private:
    int fd_ = -1;
};

}  // namespace lanyard::port

#endif
