// ColumnBatch: the values of one column in some rows, 2048 at most, all in one form, so that what
// is done with them knows no kinds and no odd cells: whole numbers, also of bools, or floats, all
// in 64 bits, or texts, and beside them whether there is one.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "../column.h"

namespace velmora::query {

struct ColumnBatch {
  alignas(64) std::uint8_t given[Rows::chunkRows];  // 1, or 0 for null
  union {
    alignas(64) std::int64_t integers[Rows::chunkRows];
    double reals[Rows::chunkRows];
  };
  const Text* texts = nullptr;
  AnswerType type = AnswerType::null;

  // The rows of a chunk, or any rows.
  void load(const ColumnValues& values, std::size_t chunk, std::int64_t now, std::size_t size);
  void gather(const ColumnValues& values, std::span<const std::int32_t> rows, std::int64_t now);
  // A text lies in the batch.
  TypedValue value(std::size_t place) const;

 private:
  void set(std::size_t place, const TypedValue& value);
  void loadTexts(std::size_t size);

  ColumnValues::ChunkAt chunk_;
  std::vector<Text> gathered_;
};

}  // namespace velmora::query
