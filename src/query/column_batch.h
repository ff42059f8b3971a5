// ColumnBatch: the values of one column in some rows, 2048 at most, in few forms, so that what is
// done with them knows no kinds and no odd cells: whole numbers, also of bools, or floats, both in
// 32 or 64 bits, or texts, and beside them whether there is one. They are read where the column has
// them, if its arrays tell them all.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "../column.h"

namespace velmora::query {

class ColumnBatch {
 public:
  // The rows of a chunk, or any rows.
  void load(const ColumnValues& values, std::size_t chunk, std::int64_t now, std::size_t size);
  void gather(const ColumnValues& values, std::span<const std::int32_t> rows, std::int64_t now);

  AnswerType type() const noexcept { return type_; }
  // False where all are given.
  bool hasNulls() const noexcept { return hasNulls_; }
  bool isGiven(std::size_t place) const noexcept { return given_[place] != 0; }
  // 1, or 0 for null, by place.
  const std::uint8_t* given() const noexcept { return given_; }

  // Calls use(array) with the whole numbers or the floats; those of nulls are any.
  template <typename Use>
  void withIntegers(Use use) const {
    isNarrow_ ? use(static_cast<const std::int32_t*>(numbers_))
              : use(static_cast<const std::int64_t*>(numbers_));
  }
  template <typename Use>
  void withReals(Use use) const {
    isNarrow_ ? use(static_cast<const float*>(numbers_))
              : use(static_cast<const double*>(numbers_));
  }
  std::int64_t integer(std::size_t place) const noexcept {
    return isNarrow_ ? static_cast<const std::int32_t*>(numbers_)[place]
                     : static_cast<const std::int64_t*>(numbers_)[place];
  }
  double real(std::size_t place) const noexcept {
    return isNarrow_ ? static_cast<double>(static_cast<const float*>(numbers_)[place])
                     : static_cast<const double*>(numbers_)[place];
  }
  const Text& text(std::size_t place) const noexcept { return texts_[place]; }
  // A text lies in the batch.
  TypedValue value(std::size_t place) const;

 private:
  template <typename Number>
  void take(const Number* numbers, std::size_t size);
  void widen(std::size_t size);
  void loadTruths(std::size_t size);
  void loadTexts(std::size_t size);
  void set(std::size_t place, const TypedValue& value);

  alignas(64) std::uint8_t given_[Rows::chunkRows];
  union {  // those that lie in no array of the column
    alignas(64) std::int64_t integers_[Rows::chunkRows];
    double reals_[Rows::chunkRows];
  };
  const void* numbers_ = nullptr;
  bool isNarrow_ = false;  // they have 32 bits
  bool hasNulls_ = false;
  const Text* texts_ = nullptr;
  AnswerType type_ = AnswerType::null;
  ColumnValues::ChunkAt chunk_;
  std::vector<Text> gathered_;
};

}  // namespace velmora::query
