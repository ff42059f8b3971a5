// The values of a column, row by row, as the plain functions answer them.
#pragma once

#include <cstdint>
#include <string_view>

#include "column.h"
#include "result_set.h"

namespace velmora {

// Reads a column row by row at one second, quickly where the next row is near the one before. The
// column has to stay as it is.
class ColumnReader {
 public:
  ColumnReader(const ColumnValues& values, std::int64_t now) : values_(&values), now_(now) {}

  const ColumnValues::Chunk& chunkOf(std::size_t row) {
    if (Rows::chunkOf(row) != number_) {
      number_ = Rows::chunkOf(row);
      chunk_ = values_->chunk(number_, now_);
    }
    return chunk_;
  }
  std::string_view text(std::size_t row, TextRoom& room) const {
    return values_->text(row, now_, room);
  }
  // Adds the value to the answer. Throws std::invalid_argument or std::out_of_range ("stoi",
  // "stof") for a text that does not convert.
  void print(std::size_t row, JsonRows& answer) {
    const ColumnValues::Chunk& values = chunkOf(row);
    const std::size_t place = Rows::placeOf(row);
    const ValueKind kind = values_->kind();
    if (kind == ValueKind::text && !values.isUnclear(place)) {
      printPlain(values.texts()[place], answer);
    } else if (kind == ValueKind::integer && !values.isUnclear(place)) {
      answer.addInt(values.numbers()[place]);
    } else {
      printOther(row, answer);
    }
  }
  // The same for a value by its place, which prefetchPlain has given.
  void printPlain(const std::byte* place, JsonRows& answer) const {
    if (values_->kind() == ValueKind::text) {
      printPlain(*reinterpret_cast<const Text*>(place), answer);
    } else {
      answer.addInt(*reinterpret_cast<const std::int32_t*>(place));
    }
  }
  [[gnu::always_inline]] const std::byte* prefetchPlain(std::size_t row) const noexcept {
    return values_->prefetchPlain(row);
  }
  [[gnu::always_inline]] void prefetch(std::size_t row) const noexcept { values_->prefetch(row); }
  [[gnu::always_inline]] void prefetchBytes(std::size_t row) const noexcept {
    values_->prefetchBytes(row);
  }
  // The text at such a place; null for other values, and where there is no place.
  const Text* plainText(const std::byte* place) const noexcept {
    const bool isText = place != nullptr && values_->kind() == ValueKind::text;
    return isText ? reinterpret_cast<const Text*>(place) : nullptr;
  }

 private:
  static void printPlain(const Text& text, JsonRows& answer) {
    text == missingValue ? answer.addNull() : answer.addText(text);
  }
  void printOther(std::size_t row, JsonRows& answer);

  const ColumnValues* values_;
  std::int64_t now_;
  std::size_t number_ = static_cast<std::size_t>(-1);  // of the chunk
  ColumnValues::Chunk chunk_{};
};

}  // namespace velmora
