// Filters with their names looked up, and how the rows of one table that pass are found: by key
// where every group of comparisons asks for one, else by a scan, chunk by chunk.
#pragma once

#include <cstdint>
#include <vector>

#include "row_mask.h"
#include "scope.h"
#include "value_test.h"

namespace velmora::query {

// A comparison with its column.
struct Term {
  const strict::Comparison* comparison = nullptr;
  Place place;
  bool beginsGroup = true;
};
// Throws Failure: notFound, type for a literal that cannot be compared.
std::vector<Term> termsOf(const strict::Filter& filter, const Scope& scope);
// To be called before a run. Throws Failure: type for a bound value that cannot be compared.
void checkBoundValues(const std::vector<Term>& terms, const Scope& scope,
                      const QueryContext& context);
// With the values of this run.
ValueTest testOf(const Term& term, const Scope& scope, const QueryContext& context);

// The terms that are about one table.
class TableFilter {
 public:
  TableFilter(const Scope& scope, bool isRight, std::vector<Term> terms);

  const std::vector<Term>& terms() const noexcept { return terms_; }
  // Whether rows are found by keys that no clock changes.
  bool isByKey() const noexcept { return !keyTerms_.empty(); }
  // Appends the live rows that the keys name, ascending, whether or not they pass.
  void findByKey(const QueryContext& context, std::vector<std::int32_t>& rows) const;
  // The one of them where there is but one group, which need not be live, or PrimaryKeyMap::noRow.
  std::int32_t rowByKey(const QueryContext& context) const {
    return rowByKey(terms_[keyTerms_.front()], context);
  }
  // The same where key and value are whole numbers, before anything is checked, with that number;
  // else noRow.
  std::int32_t rowByNumber(std::span<const Value> values, std::int64_t& number) const {
    const Term& term = terms_[keyTerms_.front()];
    const strict::Operand& operand = term.comparison->operand;
    const auto* const wanted = std::get_if<std::int64_t>(
        operand.isParameter() ? &values[static_cast<std::size_t>(operand.parameter)]
                              : &operand.value);
    if (wanted == nullptr || table_->kind(term.place.column) != ValueKind::integer) {
      return PrimaryKeyMap::noRow;
    }
    number = *wanted;
    return table_->keys().findNumber(*wanted);
  }
  // The parameter that is the key there, or less than 0.
  int keyParameter() const noexcept {
    return terms_[keyTerms_.front()].comparison->operand.parameter;
  }
  bool isOneGroup() const noexcept { return keyTerms_.size() == 1; }
  bool passes(std::int32_t row, std::int64_t now, const QueryContext& context) const;

  // Calls use(chunk, mask) for the chunks in order, with their live rows that pass, until it
  // returns false.
  template <typename Use>
  void scan(std::int64_t now, const QueryContext& context, Use use) const {
    std::vector<ValueTest> tests = this->tests(context);
    RowMask mask;
    const std::size_t chunkCount = table_->rows().chunkCount();
    for (std::size_t chunk = 0; chunk < chunkCount; ++chunk) {
      context.interrupt.check();
      if (chunk + 1 < chunkCount) readAhead(tests, chunk + 1, now);
      decide(tests, chunk, now, mask);
      if (!use(chunk, mask)) return;
    }
  }
  // All rows that pass, ascending.
  std::vector<std::int32_t> rows(std::int64_t now, const QueryContext& context) const;

 private:
  std::int32_t rowByKey(const Term& term, const QueryContext& context) const;
  std::vector<ValueTest> tests(const QueryContext& context) const;
  void decide(std::vector<ValueTest>& tests, std::size_t chunk, std::int64_t now,
              RowMask& mask) const;
  static void readAhead(std::vector<ValueTest>& tests, std::size_t chunk, std::int64_t now) {
    for (ValueTest& test : tests) test.readAhead(chunk, now);
  }
  bool isKeyTerm(const Term& term) const;

  Scope scope_;
  const Table* table_;
  std::vector<Term> terms_;
  std::vector<std::size_t> keyTerms_;  // one a group; none where a group has none
};

}  // namespace velmora::query
