// Random bytes of the kernel, and a thread's reserve of them.
#ifndef LANYARD_PLATFORM_KERNEL_RANDOM_H
#define LANYARD_PLATFORM_KERNEL_RANDOM_H

#include <cstddef>
#include <cstdint>
#include <span>

namespace lanyard::port {

// Asks the kernel. Returns false when it refuses.
[[nodiscard]] bool drawFromKernel(std::span<uint8_t> out);

// Random bytes that were drawn ahead, for one thread. Each byte is given out once and wiped.
//
// They are in a page that the kernel empties in a forked child, however it was forked: the child draws
// anew. Where there is no such page there is no reserve.
class RandomReserve {
  public:
    // One system call brings so many; they come whole, whatever signals arrive.
    static constexpr size_t kSize = 256;

    RandomReserve();
    RandomReserve(const RandomReserve &) = delete;
    RandomReserve &operator=(const RandomReserve &) = delete;
    RandomReserve(RandomReserve &&) = delete;
    RandomReserve &operator=(RandomReserve &&) = delete;
    ~RandomReserve();

    // Fills `out`. Returns false for more than kSize bytes, when the kernel gives none, and within a signal
    // handler that has interrupted it.
    [[nodiscard]] bool draw(std::span<uint8_t> out);

    // What it holds: zeros, then the bytes that are left.
    std::span<const uint8_t> bytes() const;

  private:
    struct Page;

    Page *page_ = nullptr;
};

}  // namespace lanyard::port

#endif
