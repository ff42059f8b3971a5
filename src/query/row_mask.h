// RowMask: which rows of a chunk are meant, a byte a row so that loops over them vectorise.
#pragma once

#include <cstdint>

#include "../byte_mask.h"
#include "../rows.h"

namespace velmora::query {

struct RowMask {
  std::size_t size = 0;
  alignas(64) std::uint8_t passes[Rows::chunkRows];  // 1 or 0

  std::size_t count() const noexcept {
    std::uint16_t sum = 0;  // a narrow one vectorises better
    for (std::size_t i = 0; i < size; ++i) sum = static_cast<std::uint16_t>(sum + passes[i]);
    return sum;
  }
  // Writes the places that pass, ascending; returns how many.
  std::size_t places(std::uint16_t* out) const noexcept { return placesOf(passes, size, out); }
};

}  // namespace velmora::query
