// Owner of a file descriptor.
#ifndef LANYARD_BASE_DESCRIPTOR_H
#define LANYARD_BASE_DESCRIPTOR_H

#include <utility>

#include <palcore.h>

namespace lanyard {

// A file descriptor, or none: -1.
class Descriptor {
  public:
    explicit Descriptor(int fd = -1) : fd_(fd) {}
    Descriptor(Descriptor &&other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    Descriptor &operator=(Descriptor &&other) noexcept {
        std::swap(fd_, other.fd_);
        other.reset();
        return *this;
    }
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;
    ~Descriptor() { reset(); }

    [[nodiscard]] int get() const { return fd_; }
    [[nodiscard]] bool isOpen() const { return fd_ >= 0; }

    void reset() {
        if (isOpen()) {
            palClose(std::exchange(fd_, -1));
        }
    }

  private:
    int fd_;
};

}  // namespace lanyard

#endif
