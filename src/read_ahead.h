// Asking for what a loop will read, so that it is in the cache by then.
#pragma once

#include <algorithm>
#include <cstddef>

namespace velmora {

// An array that a loop comes to after the one that it goes through.
class ReadAhead {
 public:
  ReadAhead() = default;
  // Of so many elements, of so many bytes each.
  ReadAhead(const void* array, std::size_t count, std::size_t width) noexcept
      : array_(static_cast<const std::byte*>(array)), count_(count), width_(width) {}

  // Asks for the elements from first up to but without end, as far as they are there. Inlined
  // always: gcc leaves calls of a function out that does nothing but prefetch.
  [[gnu::always_inline]] void prefetch(std::size_t first, std::size_t end) const noexcept {
    constexpr std::size_t lineSize = 64;
    constexpr int second = 2;  // the cache: the first one can wait for fewer lines at a time
    const std::size_t endByte = std::min(end, count_) * width_;
    for (std::size_t i = first * width_; i < endByte; i += lineSize) {
      __builtin_prefetch(array_ + i, 0, second);
    }
  }
  // How many elements are best asked for at a time.
  std::size_t step() const noexcept {
    constexpr std::size_t bytes = 1024;
    return bytes / width_;
  }
  // Calls use(first, end) for a step's places at a time, up to the size, after asking for those:
  // asked for all at once they come at half the pace.
  template <typename Use>
  [[gnu::always_inline]] void beside(std::size_t size, Use use) const {
    const std::size_t few = step();
    for (std::size_t first = 0; first < size; first += few) {
      const std::size_t end = std::min(first + few, size);
      prefetch(first, end);
      use(first, end);
    }
  }

 private:
  const std::byte* array_ = nullptr;
  std::size_t count_ = 0;
  std::size_t width_ = 1;
};

}  // namespace velmora
