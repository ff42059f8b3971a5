// See join.h.
#include "join.h"

#include <algorithm>
#include <numeric>

#include "value_ids.h"

namespace velmora::query {
namespace {

enum class Side : std::uint8_t { left, right, either };

Side sideOf(const strict::ColumnName& name, const Scope& scope) {
  const std::string& prefix = name.table.text;
  const std::string& left = scope.table(false).tableName;
  const std::string& right = scope.table(true).tableName;
  if (prefix.empty() || (left == right && prefix == left)) return Side::either;
  if (prefix == left) return Side::left;
  if (prefix == right) return Side::right;
  throw Failure(Code::notFound, "Unknown table '" + prefix + "'").at(name.table.offset).of(prefix);
}

// Calls use(rows, places, first) for some rows at a time, with their places from 0.
template <typename Use>
void forEachPiece(std::span<const std::int32_t> rows, const QueryContext& context, Use use) {
  std::uint16_t places[Rows::chunkRows];
  std::iota(places, places + Rows::chunkRows, std::uint16_t{0});
  for (std::size_t first = 0; first < rows.size(); first += Rows::chunkRows) {
    context.interrupt.check();
    const std::size_t count = std::min(Rows::chunkRows, rows.size() - first);
    if (!use(rows.subspan(first, count), std::span(places, count), first)) return;
  }
}

}  // namespace

JoinColumns joinColumns(const strict::Join& join, const Scope& scope) {
  const Side first = sideOf(join.first, scope);
  const Side second = sideOf(join.second, scope);
  if (first == second && first != Side::either) {
    throw Failure(Code::syntax, "JOIN ON needs a column of each table")
        .at(join.second.column.offset);
  }
  const bool isSwapped = first == Side::right || second == Side::left;
  const strict::ColumnName& left = isSwapped ? join.second : join.first;
  const strict::ColumnName& right = isSwapped ? join.first : join.second;
  JoinColumns on{scope.findIn(false, left), scope.findIn(true, right)};
  const auto sortOf = [&](const Place& place) {
    const AnswerType type = answerTypeOf(scope.values(place).kind());
    return type == AnswerType::real ? AnswerType::integer : type;
  };
  if (sortOf(on.left) != sortOf(on.right)) {
    throw Failure(Code::type, "Columns '" + left.column.text + "' and '" + right.column.text +
                                  "' cannot be compared")
        .at(join.second.column.offset)
        .of(scope.table(true).tableName, right.column.text);
  }
  return on;
}

void forEachPair(const Scope& scope, const JoinColumns& on, std::span<const std::int32_t> left,
                 std::span<const std::int32_t> right, std::int64_t now, const QueryContext& context,
                 const std::function<bool(const Pairs&)>& use) {
  constexpr std::size_t none = static_cast<std::size_t>(-1);
  ValueIds values;
  const auto batch = std::make_unique<ColumnBatch>();
  std::vector<std::uint32_t> ids(Rows::chunkRows);
  // The rows of a value are chained, ascending.
  std::vector<std::size_t> firsts;
  std::vector<std::size_t> lasts;
  std::vector<std::size_t> nexts(right.size(), none);
  forEachPiece(right, context, [&](auto rows, auto places, std::size_t first) {
    batch->gather(scope.values(on.right), rows, now);
    values.addGiven(*batch, places, ids.data());
    firsts.resize(values.size(), none);
    lasts.resize(values.size(), none);
    for (std::size_t i = 0; i < rows.size(); ++i) {
      if (ids[i] == ValueIds::none) continue;
      std::size_t& last = lasts[ids[i]];
      (last == none ? firsts[ids[i]] : nexts[last]) = first + i;
      last = first + i;
    }
    return true;
  });
  Pairs pairs;
  const auto flush = [&](std::size_t least) {
    if (pairs.left.size() < least) return true;
    const bool goesOn = use(pairs);
    pairs.left.clear();
    pairs.right.clear();
    return goesOn;
  };
  bool goesOn = true;
  forEachPiece(left, context, [&](auto rows, auto places, std::size_t) {
    batch->gather(scope.values(on.left), rows, now);
    values.findGiven(*batch, places, ids.data());
    for (std::size_t i = 0; i < rows.size() && goesOn; ++i) {
      if (ids[i] == ValueIds::none) continue;
      for (std::size_t at = firsts[ids[i]]; at != none && goesOn; at = nexts[at]) {
        pairs.left.push_back(rows[i]);
        pairs.right.push_back(right[at]);
        goesOn = flush(Rows::chunkRows);
      }
    }
    return goesOn;
  });
  if (goesOn) flush(1);
}

}  // namespace velmora::query
