// Memory for the bytes of files.
#pragma once

#include <cstddef>
#include <new>
#include <vector>

namespace velmora {

// Where the system copies to a place that lies up to some twenty bytes further into its page than
// the source does, some processors take five times as long. Usual memory of this size begins 16
// bytes into a page, and files begin with one.
template <typename Byte>
struct PageAllocator {
  using value_type = Byte;

  Byte* allocate(std::size_t count) {
    return static_cast<Byte*>(::operator new(count * sizeof(Byte), alignment));
  }
  void deallocate(Byte* bytes, std::size_t /*count*/) noexcept {
    ::operator delete(bytes, alignment);
  }
  bool operator==(const PageAllocator&) const = default;

  static constexpr std::align_val_t alignment{4096};
};

// Begins with a page, as what is read from, or written to, the beginning of one should.
using PageBytes = std::vector<char, PageAllocator<char>>;

}  // namespace velmora
