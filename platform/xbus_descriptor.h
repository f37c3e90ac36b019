/**
 * @file
 * Owner of a file descriptor of the bus.
 */
#ifndef LANYARD_PLATFORM_XBUS_DESCRIPTOR_H
#define LANYARD_PLATFORM_XBUS_DESCRIPTOR_H

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>
#include <utility>

namespace port::bus {

/** Closes its descriptor at the end. `errno` stays as it is. */
class Descriptor {
  public:
    Descriptor() noexcept = default;

    /** Takes over a descriptor; -1 for none. */
    explicit Descriptor(int fd) noexcept : fd_(fd) {
        // A program that was started without standard streams gets their numbers, where daemon()
        // would put /dev/null in the place of a registration.
        constexpr int firstFree = STDERR_FILENO + 1;
        if (fd >= 0 && fd < firstFree) {
            const int higher = fcntl(fd, F_DUPFD_CLOEXEC, firstFree);
            reset();
            fd_ = higher;
        }
    }

    ~Descriptor() { reset(); }
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;
    Descriptor(Descriptor &&other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    Descriptor &operator=(Descriptor &&other) noexcept {
        if (this != &other) {
            reset();
            fd_ = std::exchange(other.fd_, -1);
        }
        return *this;
    }

    [[nodiscard]] int get() const noexcept { return fd_; }
    [[nodiscard]] bool isOpen() const noexcept { return fd_ != -1; }

    void reset() noexcept {
        if (fd_ != -1) {
            const int error = errno;
            close(std::exchange(fd_, -1));
            errno = error;
        }
    }

  private:
    int fd_ = -1;
};

}  // namespace port::bus

#endif
