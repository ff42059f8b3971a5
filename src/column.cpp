// See column.h.
#include "column.h"

#include <algorithm>
#include <cmath>
#include <new>
#include <utility>

namespace velmora {
namespace {

constexpr std::int64_t never = std::numeric_limits<std::int64_t>::min();
constexpr float noFloat = std::numeric_limits<float>::quiet_NaN();
constexpr double noDouble = std::numeric_limits<double>::quiet_NaN();

std::size_t widthOf(ValueKind kind) {
  if (kind == ValueKind::boolean) return 1;
  if (kind == ValueKind::longInteger || kind == ValueKind::doubleReal) return 8;
  const bool isNumber = kind == ValueKind::integer || kind == ValueKind::real;
  return isNumber ? 4 : sizeof(Text);
}

}  // namespace

BoolCode boolCodeOf(std::string_view text) noexcept {
  if (text == "true") return BoolCode::isTrue;
  if (text == "false") return BoolCode::isFalse;
  return text == missingValue ? BoolCode::missing : BoolCode::odd;
}

ColumnValues::ColumnValues(ValueKind kind, Rows& rows)
    : kind_(kind), rows_(rows), width_(widthOf(kind)), values_(rows.addArray(width_)) {
  const bool hasCodes =
      kind == ValueKind::real || kind == ValueKind::doubleReal || holdsTexts(kind);
  codes_ = hasCodes ? rows.addArray(1) : values_;
}

ColumnValues::~ColumnValues() {
  if (!holdsTexts(kind_)) return;
  for (std::size_t c = 0; c < rows_.chunkCount(); ++c) {
    std::destroy_n(rows_.array<Text>(c, values_), rows_.sizeOf(c));
  }
}

std::size_t ColumnValues::OddCells::find(std::size_t place) const noexcept {
  // Where every cell is timed, the cell is where its row is.
  if (place < places.size() && places[place] == place) return place;
  const auto found = std::lower_bound(places.begin(), places.end(), place);
  return static_cast<std::size_t>(found - places.begin());
}

const Cell* ColumnValues::oddOf(std::size_t row) const noexcept {
  const std::size_t chunk = Rows::chunkOf(row);
  if (!hasOdd(chunk)) return nullptr;
  const OddCells& odd = *odd_[chunk];
  if (odd.flags[Rows::placeOf(row)] == 0) return nullptr;
  return &odd.cells[odd.find(Rows::placeOf(row))];
}

ColumnValues::OddCells& ColumnValues::oddCells(std::size_t chunk) {
  const std::size_t section = sectionOf(chunk);
  if (sections_.size() <= section) sections_.resize(section + 1);
  if (sections_[section] == nullptr) sections_[section] = std::make_unique<Section>();
  if (odd_.size() <= chunk) odd_.resize(chunk + 1);
  if (odd_[chunk] == nullptr) {
    auto made = std::make_unique<OddCells>();
    made->flags.resize(Rows::chunkRows);
    odd_[chunk] = std::move(made);
  }
  return *odd_[chunk];
}

std::string_view ColumnValues::plainText(std::size_t row, TextRoom& room) const {
  const Chunk values = chunk(Rows::chunkOf(row));
  const std::size_t place = Rows::placeOf(row);
  switch (kind_) {
    case ValueKind::integer:
      return {room, writeInt(room, values.numbers()[place])};
    case ValueKind::real:
      if (values.codes[place] == missingSpelling) return missingValue;
      if (values.codes[place] == shortestSpelling) {
        return {room, writeShortest(room, values.reals()[place])};
      }
      return {room, writeDecimals(room, values.reals()[place], values.codes[place])};
    case ValueKind::longInteger:
      return {room, writeInt(room, values.longs()[place])};
    case ValueKind::doubleReal:
      if (values.codes[place] == missingSpelling) return missingValue;
      return {room, writeShortest(room, values.doubles()[place])};
    case ValueKind::boolean: {
      const auto code = static_cast<BoolCode>(values.codes[place]);
      if (code == BoolCode::missing) return missingValue;
      return code == BoolCode::isTrue ? "true" : "false";
    }
    case ValueKind::text:
    case ValueKind::unknown:
      break;
  }
  return values.texts()[place];
}

std::string_view ColumnValues::text(std::size_t row, std::int64_t now, TextRoom& room) const {
  if (isOdd(row)) return oddOf(row)->valueAt(now);
  return plainText(row, room);
}

std::string_view ColumnValues::keyText(std::size_t row, TextRoom& room) const {
  if (isOdd(row)) return oddOf(row)->value;
  return plainText(row, room);
}

const TempRule* ColumnValues::rule(std::size_t row) const noexcept {
  return isOdd(row) ? oddOf(row)->tempRule.get() : nullptr;
}

Cell ColumnValues::cell(std::size_t row) const {
  if (isOdd(row)) return *oddOf(row);
  TextRoom room;
  return Cell(Text(plainText(row, room)));
}

bool ColumnValues::shows(std::size_t row, std::string_view text, std::int64_t now) const {
  if (kind_ == ValueKind::integer && !isOdd(row)) return canonicalInt(text) == *plainNumber(row);
  TextRoom room;
  return this->text(row, now, room) == text;
}

void ColumnValues::append(std::size_t row, std::size_t count) noexcept {
  forgetKept(Rows::chunkOf(row));
  const Chunk values = chunk(Rows::chunkOf(row));
  const std::size_t place = Rows::placeOf(row);
  switch (kind_) {
    case ValueKind::integer:
      std::fill_n(values.numbers() + place, count, 0);
      break;
    case ValueKind::real:
      std::fill_n(values.reals() + place, count, noFloat);
      std::fill_n(values.codes + place, count, missingSpelling);
      break;
    case ValueKind::longInteger:
      std::fill_n(values.longs() + place, count, 0);
      break;
    case ValueKind::doubleReal:
      std::fill_n(values.doubles() + place, count, noDouble);
      std::fill_n(values.codes + place, count, missingSpelling);
      break;
    case ValueKind::boolean:
      std::fill_n(values.codes + place, count, static_cast<std::uint8_t>(BoolCode::missing));
      break;
    case ValueKind::text:
    case ValueKind::unknown: {
      static const Text missing(missingValue);
      std::uninitialized_fill_n(values.texts() + place, count, missing);
      std::fill_n(values.codes + place, count, missing.fingerprint());
      break;
    }
  }
}

void ColumnValues::removeLast(std::size_t row) noexcept {
  forgetKept(Rows::chunkOf(row));
  if (isOdd(row)) {
    removeOdd(row);
    sectionOfRow(row).states.reset();  // they know of the row
  }
  if (holdsTexts(kind_)) std::destroy_at(&rows_.at<Text>(row, values_));
}

// Puts what the text is into the arrays if they can tell it. If not, and after a failure, they are
// as they were.
bool ColumnValues::store(const Chunk& chunk, std::size_t place, std::string_view text) const {
  switch (kind_) {
    case ValueKind::integer: {
      const auto number = canonicalInt(text);
      if (number) chunk.numbers()[place] = *number;
      return number.has_value();
    }
    case ValueKind::real: {
      float value = noFloat;
      auto spelling = decimalsOf(text, value);
      if (text == missingValue) spelling = missingSpelling;
      if (!spelling) return false;
      chunk.reals()[place] = value;
      chunk.codes[place] = *spelling;
      return true;
    }
    case ValueKind::longInteger: {
      const auto number = canonicalLong(text);
      if (number) chunk.longs()[place] = *number;
      return number.has_value();
    }
    case ValueKind::doubleReal: {
      const bool isMissing = text == missingValue;
      const auto value = isMissing ? noDouble : canonicalDouble(text);
      if (!value) return false;
      chunk.doubles()[place] = *value;
      chunk.codes[place] = isMissing ? missingSpelling : shortestSpelling;
      return true;
    }
    case ValueKind::boolean: {
      const BoolCode code = boolCodeOf(text);
      if (code == BoolCode::odd) return false;
      chunk.codes[place] = static_cast<std::uint8_t>(code);
      return true;
    }
    case ValueKind::text:
    case ValueKind::unknown:
      break;
  }
  chunk.texts()[place] = text;
  chunk.codes[place] = chunk.texts()[place].fingerprint();
  return true;
}

void ColumnValues::setText(std::size_t row, std::string_view text) {
  forgetKept(Rows::chunkOf(row));
  const Chunk values = chunk(Rows::chunkOf(row));
  if (!store(values, Rows::placeOf(row), text)) {
    setOdd(row, Cell(Text(text)), 0);
  } else if (isOdd(row)) {
    removeOdd(row);
  }
}

void ColumnValues::setTexts(std::span<const std::int32_t> rows, std::string_view text) {
  if (rows.empty()) return;
  const auto model = static_cast<std::size_t>(rows.front());
  setText(model, text);
  if (isOdd(model)) {
    for (const std::int32_t row : rows.subspan(1)) setText(static_cast<std::size_t>(row), text);
    return;
  }
  while (!rows.empty()) {
    const std::size_t number = Rows::chunkOf(static_cast<std::size_t>(rows.front()));
    const auto other = std::find_if(rows.begin(), rows.end(), [number](std::int32_t row) {
      return Rows::chunkOf(static_cast<std::size_t>(row)) != number;
    });
    const auto together = rows.first(static_cast<std::size_t>(other - rows.begin()));
    forgetKept(number);
    const Chunk values = chunk(number);
    copyTo(together, values, model);
    for (const std::int32_t each : together) {
      const auto row = static_cast<std::size_t>(each);
      if (values.isOdd(Rows::placeOf(row))) setText(row, text);
    }
    rows = rows.subspan(together.size());
  }
}

// Gives rows of one chunk, but for odd cells, what the arrays hold of another row.
void ColumnValues::copyTo(std::span<const std::int32_t> rows, const Chunk& to, std::size_t model) {
  const Chunk from = chunk(Rows::chunkOf(model));
  // By copy, or each row's store would have them read again.
  forEachArray([rows, from, to, model](auto arrayOf) {
    auto* const target = arrayOf(to);
    const auto value = arrayOf(from)[Rows::placeOf(model)];
    for (const std::int32_t row : rows) {
      const std::size_t place = Rows::placeOf(static_cast<std::size_t>(row));
      if (!to.isOdd(place)) target[place] = value;
    }
  });
}

void ColumnValues::setNumber(std::size_t row, std::int32_t number) noexcept {
  forgetKept(Rows::chunkOf(row));
  rows_.at<std::int32_t>(row, values_) = number;
  if (isOdd(row)) removeOdd(row);
}

void ColumnValues::setValue(std::size_t row, const TypedValue& value) {
  const std::size_t place = Rows::placeOf(row);
  const auto realOf = [&] {
    return value.type == AnswerType::integer ? static_cast<double>(value.integer) : value.real;
  };
  if (value.type == AnswerType::null) {
    setText(row, missingValue);
    return;
  }
  if (holdsTexts(kind_)) {
    if (value.text != missingValue) {
      setText(row, value.text);
    } else {
      setOdd(row, Cell(Text(value.text)), 0);
    }
    return;
  }
  forgetKept(Rows::chunkOf(row));
  const Chunk values = chunk(Rows::chunkOf(row));
  if (kind_ == ValueKind::integer) {
    values.numbers()[place] = static_cast<std::int32_t>(value.integer);
  } else if (kind_ == ValueKind::longInteger) {
    values.longs()[place] = value.integer;
  } else if (kind_ == ValueKind::boolean) {
    values.codes[place] = static_cast<std::uint8_t>(value.integer);
  } else {
    if (kind_ == ValueKind::real) values.reals()[place] = static_cast<float>(realOf());
    if (kind_ == ValueKind::doubleReal) values.doubles()[place] = realOf();
    values.codes[place] = shortestSpelling;
  }
  if (isOdd(row)) removeOdd(row);
}

void ColumnValues::set(std::size_t row, const Cell& cell, std::int64_t now) {
  if (cell.tempRule == nullptr) {
    setText(row, cell.value);
  } else {
    Cell timed(cell);
    timed.value = timed.valueAt(now);
    setOdd(row, std::move(timed), now);
  }
}

void ColumnValues::restore(std::size_t row, const Cell& cell, std::int64_t now) {
  if (cell.tempRule == nullptr) {
    setText(row, cell.value);
  } else {
    setOdd(row, Cell(cell), now);
  }
}

void ColumnValues::setOdd(std::size_t row, Cell&& cell, std::int64_t now) {
  OddCells& odd = oddCells(Rows::chunkOf(row));
  dropKept(sectionOf(Rows::chunkOf(row)));
  const std::size_t place = Rows::placeOf(row);
  const std::size_t at = odd.find(place);
  const bool isNew = odd.flags[place] == 0;
  const auto grow = [&](auto& list) {
    if (isNew && list.size() == list.capacity()) list.reserve(2 * list.size() + 4);
  };
  grow(odd.places);
  grow(odd.cells);
  const bool isTold = store(chunk(Rows::chunkOf(row)), place, cell.valueAt(now));
  // Nothing below can fail.
  const auto offset = static_cast<std::ptrdiff_t>(at);
  if (isNew) {
    odd.places.insert(odd.places.begin() + offset, static_cast<std::uint16_t>(place));
    odd.cells.insert(odd.cells.begin() + offset, Cell());
  }
  const bool isTimed = cell.tempRule != nullptr;
  Section& section = sectionOfRow(row);
  const bool isCurrent = section.holdsAt(now);
  if (isTimed) {
    section.until = std::min(section.until, isCurrent ? cell.tempRule->nextChange(now) : never);
  }
  if (isTimed && isCurrent) section.since = now;
  makeSingle(row);
  odd.flags[place] = isTold ? listed : listed | unclear;
  if (!isTimed && holdsTexts(kind_)) odd.flags[place] |= literal;
  haveRulesChanged_ = haveRulesChanged_ || isTimed || odd.cells[at].tempRule != nullptr;
  odd.cells[at] = std::move(cell);
}

// Has the states, if there are any, say nothing about the row any more.
void ColumnValues::makeSingle(std::size_t row) noexcept {
  auto& states = sectionOfRow(row).states;
  if (states != nullptr && !states->makeSingle(row % sectionRows)) states.reset();
}

void ColumnValues::removeOdd(std::size_t row) noexcept {
  OddCells& odd = *odd_[Rows::chunkOf(row)];
  const std::size_t at = odd.find(Rows::placeOf(row));
  const auto offset = static_cast<std::ptrdiff_t>(at);
  odd.flags[Rows::placeOf(row)] = 0;
  makeSingle(row);
  haveRulesChanged_ = haveRulesChanged_ || odd.cells[at].tempRule != nullptr;
  odd.places.erase(odd.places.begin() + offset);
  odd.cells.erase(odd.cells.begin() + offset);
}

void ColumnValues::refile(std::size_t row, std::int64_t now) {
  if (rule(row) == nullptr) return;
  OddCells& odd = *odd_[Rows::chunkOf(row)];
  Cell& cell = odd.cells[odd.find(Rows::placeOf(row))];
  cell.value = cell.valueAt(now);
}

}  // namespace velmora
