// See predicate.h.
#include "predicate.h"

#include <bit>
#include <cmath>
#include <cstring>
#include <limits>

#include "../number.h"

namespace velmora {
namespace {

// Most filters name the key.
std::size_t likelyColumn(const Table& table) {
  return table.hasPrimaryKey() ? static_cast<std::size_t>(table.primaryKeyIndex) : 0;
}

constexpr std::uint8_t noneOdd[Rows::chunkRows] = {};

// Narrows the block by matches(i) for the row at place i; where isOpen(i) or the cell is odd, the
// row stays, unsure.
template <typename Matches, typename IsOpen>
void narrow(Block& block, const ColumnValues::Chunk& values, Matches matches, IsOpen isOpen) {
  const std::uint8_t* const unclear = values.odd != nullptr ? values.odd : noneOdd;
  if (!block.hasUnsure) std::fill_n(block.isUnsure, block.size, std::uint8_t{0});
  block.hasUnsure = true;
  block.next.beside(block.size, [&](std::size_t first, std::size_t end) {
    for (std::size_t i = first; i < end; ++i) {
      const auto open =
          static_cast<std::uint8_t>(((unclear[i] & ColumnValues::unclear) >> 1) |
                                    static_cast<std::uint8_t>(isOpen(i)) | block.isUnsure[i]);
      const auto stays = static_cast<std::uint8_t>(static_cast<std::uint8_t>(matches(i)) | open);
      block.mayMatch[i] = static_cast<std::uint8_t>(block.mayMatch[i] & stays);
      block.isUnsure[i] = open;
    }
  });
}

// The same where only odd cells can be unsure.
template <typename Matches>
void narrow(Block& block, const ColumnValues::Chunk& values, Matches matches) {
  if (values.odd != nullptr || block.hasUnsure) {
    narrow(block, values, matches, [](std::size_t) { return false; });
    return;
  }
  block.next.beside(block.size, [&](std::size_t first, std::size_t end) {
    for (std::size_t i = first; i < end; ++i) {
      const auto matched = static_cast<std::uint8_t>(matches(i));
      block.mayMatch[i] = static_cast<std::uint8_t>(block.mayMatch[i] & matched);
    }
  });
}

}  // namespace

Comparison comparisonOf(std::string_view op) {
  if (op == "=" || op == "==") return Comparison::equal;
  if (op == "!=") return Comparison::notEqual;
  if (op == "<") return Comparison::less;
  if (op == ">") return Comparison::greater;
  if (op == "<=") return Comparison::lessOrEqual;
  if (op == ">=") return Comparison::greaterOrEqual;
  return Comparison::never;
}

Predicate::Predicate(const Condition& condition, const Table& table)
    : table_(&table),
      comparison_(comparisonOf(condition.op)),
      column_(table.columnPosition(condition.column, likelyColumn(table))),
      literal_(condition.value) {
  if (column_ == noColumn) return;
  kind_ = table.kind(column_);
  if (kind_ == ValueKind::integer) conversion_ = convertInt(literal_, integer_);
  if (kind_ == ValueKind::real) conversion_ = convertFloat(literal_, real_);
}

bool Predicate::holds(std::size_t row, std::int64_t now) const {
  if (column_ == noColumn) return false;
  TextRoom room;
  const std::string_view text = table_->text(row, column_, now, room);
  switch (comparison_) {
    case Comparison::equal:
      return text == literal_;
    case Comparison::notEqual:
      return text != literal_;
    case Comparison::less:
      return isLess(text, row);
    case Comparison::greater:
      return isGreater(text, row);
    case Comparison::lessOrEqual:
      return isLess(text, row) || text == literal_;
    case Comparison::greaterOrEqual:
      return isGreater(text, row) || text == literal_;
    case Comparison::never:
      break;
  }
  return false;
}

bool Predicate::isLess(std::string_view text, std::size_t row) const {
  switch (kind_) {
    case ValueKind::integer:
      return cellInt(text, row) < integer_;
    case ValueKind::real:
      return cellFloat(text, row) < real_;
    default:
      return comesBefore(kind_, text, literal_);
  }
}

bool Predicate::isGreater(std::string_view text, std::size_t row) const {
  switch (kind_) {
    case ValueKind::integer:
      return cellInt(text, row) > integer_;
    case ValueKind::real:
      return cellFloat(text, row) > real_;
    default:
      return comesBefore(kind_, literal_, text);
  }
}

std::int32_t Predicate::cellInt(std::string_view text, std::size_t row) const {
  std::int32_t value = 0;
  require(convertInt(text, value), "stoi", text, row);
  require(conversion_, "stoi", literal_, std::nullopt);
  return value;
}

float Predicate::cellFloat(std::string_view text, std::size_t row) const {
  float value = 0;
  require(convertFloat(text, value), "stof", text, row);
  require(conversion_, "stof", literal_, std::nullopt);
  return value;
}

void Predicate::require(Conversion conversion, const char* name, std::string_view text,
                        std::optional<std::size_t> row) const {
  atPlace(*table_, column_, row, [&] { requireConverted(conversion, name, text); });
}

bool Predicate::canDecide() const noexcept {
  if (column_ == noColumn || comparison_ == Comparison::never) return false;
  if (kind_ == ValueKind::longInteger || kind_ == ValueKind::doubleReal) return false;
  const bool isNumber = kind_ == ValueKind::integer || kind_ == ValueKind::real;
  if (isNumber && isOrder()) return conversion_ == Conversion::ok;
  return !isOrder() || kind_ == ValueKind::text;
}

void Predicate::decide(const ColumnValues::Chunk& values, Block& block) const {
  switch (kind_) {
    case ValueKind::integer:
      decideIntegers(values, block);
      break;
    case ValueKind::real:
      decideReals(values, block);
      break;
    case ValueKind::boolean:
      decideBools(values, block);
      break;
    case ValueKind::text:
    case ValueKind::unknown:
      decideTexts(values, block);
      break;
    case ValueKind::longInteger:
    case ValueKind::doubleReal:
      break;  // canDecide refuses them
  }
}

void Predicate::decideIntegers(const ColumnValues::Chunk& values, Block& block) const {
  const std::int32_t* const numbers = values.numbers();
  const std::int32_t limit = integer_;
  // No number in its shortest form equals any other literal.
  const bool canEqual = canonicalInt(literal_).has_value();
  const std::int64_t least = std::int64_t{limit} + (canEqual ? 0 : 1);
  const std::int64_t most = std::int64_t{limit} - (canEqual ? 0 : 1);
  switch (comparison_) {
    case Comparison::equal:
      narrow(block, values, [=](std::size_t i) { return canEqual & (numbers[i] == limit); });
      break;
    case Comparison::notEqual:
      narrow(block, values, [=](std::size_t i) { return !canEqual | (numbers[i] != limit); });
      break;
    case Comparison::less:
      narrow(block, values, [=](std::size_t i) { return numbers[i] < limit; });
      break;
    case Comparison::greater:
      narrow(block, values, [=](std::size_t i) { return numbers[i] > limit; });
      break;
    case Comparison::lessOrEqual:
      narrow(block, values, [=](std::size_t i) { return numbers[i] <= most; });
      break;
    default:
      narrow(block, values, [=](std::size_t i) { return numbers[i] >= least; });
      break;
  }
}

void Predicate::decideReals(const ColumnValues::Chunk& values, Block& block) const {
  const float* const reals = values.reals();
  const float limit = real_;
  // An array's value is the one that its text reads as, so value and spelling tell the text.
  float wanted = std::numeric_limits<float>::quiet_NaN();
  const auto decimals = decimalsOf(literal_, wanted);
  const std::uint8_t spelling =
      decimals.value_or(literal_ == missingValue ? missingSpelling : oddSpelling);
  const auto isText = [=, codes = values.codes,
                       bits = std::bit_cast<std::int32_t>(wanted)](std::size_t i) {
    return (codes[i] == spelling) & (std::bit_cast<std::int32_t>(reals[i]) == bits);
  };
  // Of a float without decimals' number the text has to be asked.
  const bool areTold = std::memchr(values.codes, shortestSpelling, block.size) == nullptr;
  const auto narrowByText = [&](auto matches) {
    if (areTold) {
      narrow(block, values, matches);
    } else {
      narrow(block, values, matches,
             [codes = values.codes](std::size_t i) { return codes[i] == shortestSpelling; });
    }
  };
  // Where no value was given, comparing has to fail.
  const bool areGiven = std::memchr(values.codes, missingSpelling, block.size) == nullptr;
  const auto narrowBy = [&](auto matches) {
    if (areGiven && areTold) {
      narrow(block, values, matches);
    } else {
      narrow(block, values, matches, [=, codes = values.codes](std::size_t i) {
        return std::isnan(reals[i]) | (codes[i] == shortestSpelling);
      });
    }
  };
  switch (comparison_) {
    case Comparison::equal:
      narrowByText(isText);
      break;
    case Comparison::notEqual:
      narrowByText([=](std::size_t i) { return !isText(i); });
      break;
    case Comparison::less:
      narrowBy([=](std::size_t i) { return reals[i] < limit; });
      break;
    case Comparison::greater:
      narrowBy([=](std::size_t i) { return reals[i] > limit; });
      break;
    case Comparison::lessOrEqual:
      narrowBy([=](std::size_t i) { return reals[i] < limit || isText(i); });
      break;
    default:
      narrowBy([=](std::size_t i) { return reals[i] > limit || isText(i); });
      break;
  }
}

void Predicate::decideBools(const ColumnValues::Chunk& values, Block& block) const {
  const auto wanted = static_cast<std::uint8_t>(boolCodeOf(literal_));
  const bool isWantedEqual = comparison_ == Comparison::equal;
  const std::uint8_t* const codes = values.codes;
  narrow(block, values, [=](std::size_t i) { return (codes[i] == wanted) == isWantedEqual; });
}

void Predicate::decideTexts(const ColumnValues::Chunk& values, Block& block) const {
  const Text wanted(literal_);
  const std::uint8_t code = wanted.fingerprint();
  switch (comparison_) {
    case Comparison::equal:
      narrow(block, values, [=, codes = values.codes](std::size_t i) { return codes[i] == code; });
      break;
    case Comparison::notEqual:
      narrow(block, values, [&](std::size_t i) {
        return values.codes[i] != code || !(values.texts()[i] == wanted);
      });
      break;
    case Comparison::less:
      narrow(block, values, [&](std::size_t i) { return values.texts()[i].view() < literal_; });
      break;
    case Comparison::greater:
      narrow(block, values, [&](std::size_t i) { return values.texts()[i].view() > literal_; });
      break;
    case Comparison::lessOrEqual:
      narrow(block, values, [&](std::size_t i) { return values.texts()[i].view() <= literal_; });
      break;
    default:
      narrow(block, values, [&](std::size_t i) { return values.texts()[i].view() >= literal_; });
      break;
  }
}

void Predicate::prefetch(const ColumnValues::Chunk& values, const Block& block) const {
  if (!leavesTexts()) return;
  for (std::size_t i = 0; i < block.count; ++i)
    __builtin_prefetch(values.texts() + block.places[i]);
}

void Predicate::settle(const ColumnValues::Chunk& values, Block& block) const {
  if (!leavesTexts()) return;
  const Text wanted(literal_);
  block.removeIf(
      [&](std::size_t place) { return block.isSure(place) && !(values.texts()[place] == wanted); });
}

}  // namespace velmora
