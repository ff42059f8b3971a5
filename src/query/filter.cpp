// See filter.h.
#include "filter.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace velmora::query {
namespace {

using strict::Operator;

bool isAboutNull(const Term& term) {
  const Operator op = term.comparison->op;
  return op == Operator::isNull || op == Operator::isNotNull;
}

// The whole number that a value is, if it is one of 64 bits.
std::optional<std::int64_t> wholeOf(const TypedValue& value) {
  if (value.type == AnswerType::integer) return value.integer;
  constexpr double limit = 0x1p63;
  const bool isWhole = value.type == AnswerType::real && value.real >= -limit &&
                       value.real < limit && std::floor(value.real) == value.real;
  if (!isWhole) return std::nullopt;
  return static_cast<std::int64_t>(value.real);
}

}  // namespace

std::vector<Term> termsOf(const strict::Filter& filter, const Scope& scope) {
  std::vector<Term> terms;
  for (const strict::Comparison& comparison : filter) {
    Term term{&comparison, scope.find(comparison.column), comparison.beginsGroup};
    const bool isLiteral = !isAboutNull(term) && !comparison.operand.isParameter();
    if (isLiteral) {
      requireComparable(typedValue(comparison.operand.value), comparison.operand,
                        scope.table(term.place), term.place.column);
    }
    terms.push_back(term);
  }
  return terms;
}

void checkBoundValues(const std::vector<Term>& terms, const Scope& scope,
                      const QueryContext& context) {
  for (const Term& term : terms) {
    const strict::Operand& operand = term.comparison->operand;
    if (!operand.isParameter()) continue;
    requireComparable(valueOf(operand, context), operand, scope.table(term.place),
                      term.place.column);
  }
}

ValueTest testOf(const Term& term, const Scope& scope, const QueryContext& context) {
  TypedValue wanted;
  const strict::Operand& operand = term.comparison->operand;
  if (!isAboutNull(term)) wanted = valueOf(operand, context);
  return {term.comparison->op, scope.values(term.place), wanted};
}

TableFilter::TableFilter(const Scope& scope, bool isRight, std::vector<Term> terms)
    : scope_(scope), table_(&scope.table(isRight)), terms_(std::move(terms)) {
  bool hasKey = true;
  for (std::size_t i = 0; i < terms_.size(); ++i) {
    if (terms_[i].beginsGroup) {
      if (!hasKey) break;
      hasKey = false;
    }
    if (!hasKey && isKeyTerm(terms_[i])) {
      hasKey = true;
      keyTerms_.push_back(i);
    }
  }
  if (!hasKey) keyTerms_.clear();
}

bool TableFilter::isKeyTerm(const Term& term) const {
  if (!table_->hasPrimaryKey() || term.comparison->op != Operator::equal) return false;
  const auto key = static_cast<std::size_t>(table_->primaryKeyIndex);
  const ValueKind kind = table_->kind(key);
  const bool isExact =
      kind == ValueKind::integer || kind == ValueKind::longInteger || kind == ValueKind::text;
  return term.place.column == key && table_->columns[key].maxStates == 0 && isExact;
}

std::int32_t TableFilter::rowByKey(const Term& term, const QueryContext& context) const {
  const strict::Operand& operand = term.comparison->operand;
  const TypedValue wanted = valueOf(operand, context);
  if (wanted.type == AnswerType::text) return table_->keys().find(wanted.text);
  const auto whole = wholeOf(wanted);
  if (!whole) return PrimaryKeyMap::noRow;
  TextRoom room;
  return table_->kind(term.place.column) == ValueKind::integer
             ? table_->keys().findNumber(*whole)
             : table_->keys().find({room, writeInt(room, *whole)});
}

void TableFilter::findByKey(const QueryContext& context, std::vector<std::int32_t>& rows) const {
  for (const std::size_t term : keyTerms_) {
    const std::int32_t row = rowByKey(terms_[term], context);
    const bool isFound =
        row != PrimaryKeyMap::noRow && table_->isLive(static_cast<std::size_t>(row));
    if (isFound) rows.push_back(row);
  }
  std::sort(rows.begin(), rows.end());
  rows.erase(std::unique(rows.begin(), rows.end()), rows.end());
}

bool TableFilter::passes(std::int32_t row, std::int64_t now, const QueryContext& context) const {
  bool isPassed = terms_.empty();
  for (const Term& term : terms_) {
    if (term.beginsGroup) {
      if (isPassed) break;
      isPassed = true;
    }
    if (!isPassed) continue;
    isPassed = testOf(term, scope_, context).matchesRow(static_cast<std::size_t>(row), now);
  }
  return isPassed;
}

std::vector<ValueTest> TableFilter::tests(const QueryContext& context) const {
  std::vector<ValueTest> tests;
  tests.reserve(terms_.size());
  for (const Term& term : terms_) tests.push_back(testOf(term, scope_, context));
  return tests;
}

void TableFilter::decide(std::vector<ValueTest>& tests, std::size_t chunk, std::int64_t now,
                         RowMask& mask) const {
  mask.size = table_->rows().sizeOf(chunk);
  std::fill_n(mask.passes, mask.size, static_cast<std::uint8_t>(tests.empty()));
  alignas(64) std::uint8_t matches[Rows::chunkRows];
  alignas(64) std::uint8_t group[Rows::chunkRows];
  for (std::size_t i = 0; i < tests.size(); ++i) {
    const bool isFirst = terms_[i].beginsGroup;
    tests[i].decide(chunk, now, mask.size, isFirst ? group : matches);
    const std::size_t narrowed = isFirst ? 0 : mask.size;
    for (std::size_t j = 0; j < narrowed; ++j) {
      group[j] = static_cast<std::uint8_t>(group[j] & matches[j]);
    }
    const bool isLast = i + 1 == tests.size() || terms_[i + 1].beginsGroup;
    const std::size_t joined = isLast ? mask.size : 0;
    for (std::size_t j = 0; j < joined; ++j) {
      mask.passes[j] = static_cast<std::uint8_t>(mask.passes[j] | group[j]);
    }
  }
  if (!table_->rows().hasDeleted(chunk)) return;
  const std::uint8_t* const deleted = table_->rows().deleted(chunk);
  for (std::size_t i = 0; i < mask.size; ++i) {
    mask.passes[i] = static_cast<std::uint8_t>(mask.passes[i] & (deleted[i] ^ 1U));
  }
}

std::vector<std::int32_t> TableFilter::rows(std::int64_t now, const QueryContext& context) const {
  std::vector<std::int32_t> found;
  if (isByKey()) {
    findByKey(context, found);
    std::erase_if(found, [&](std::int32_t row) { return !passes(row, now, context); });
    return found;
  }
  scan(now, context, [&](std::size_t chunk, const RowMask& mask) {
    std::uint16_t places[Rows::chunkRows];
    const std::size_t count = mask.places(places);
    for (std::size_t i = 0; i < count; ++i) {
      found.push_back(static_cast<std::int32_t>(chunk * Rows::chunkRows + places[i]));
    }
    return true;
  });
  return found;
}

}  // namespace velmora::query

namespace velmora {

struct RowFilter::Parts {
  query::Scope scope;
  query::TableFilter filter;
};

RowFilter::RowFilter(const strict::Filter& filter, const Table& table) {
  const query::Scope scope(table);
  parts_ = std::make_unique<Parts>(
      Parts{scope, query::TableFilter(scope, false, query::termsOf(filter, scope))});
}

RowFilter::~RowFilter() = default;

std::vector<std::int32_t> RowFilter::rows(const QueryContext& context) const {
  query::checkBoundValues(parts_->filter.terms(), parts_->scope, context);
  return parts_->filter.rows(context.now, context);
}

}  // namespace velmora
