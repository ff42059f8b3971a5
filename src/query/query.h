// Reading tables for the strict language: which rows a filter lets pass, and what a SELECT or a
// SHOW answers. Nothing here changes what a reader could see; any number of threads may read at
// once, as long as nobody changes the tables meanwhile.
//
// Values are compared as what they are: numbers as numbers, whatever their columns' types are,
// texts by their bytes, false before true. A comparison with null is never true.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "../answer.h"
#include "../interrupt.h"
#include "../storage/storage.h"
#include "../strict/statement.h"
#include "../table.h"
#include "../value.h"
#include "../webhook.h"
#include "row_hint.h"

namespace velmora {

// What a run of a query is given.
struct QueryContext {
  std::span<const Value> values;  // bound to the command's parameters
  std::int64_t now = 0;           // the second that is answered for, but for a SELECT with AT
  Interrupt interrupt;
};

// A filter with its names looked up. The filter and the table have to stay, and the table's columns
// as they are. Throws Failure: notFound for an unknown column or prefix, type for a literal that
// cannot be compared with its column (a text with a number, and the like), with the offset.
class RowFilter {
 public:
  RowFilter(const strict::Filter& filter, const Table& table);
  ~RowFilter();

  // The live rows that pass, ascending. Throws Failure: type for a bound value that cannot be
  // compared, interrupted.
  std::vector<std::int32_t> rows(const QueryContext& context) const;

 private:
  struct Parts;
  std::unique_ptr<Parts> parts_;
};

// A SELECT with its names looked up; the select and the tables have to stay as above. Throws
// Failure: notFound for an unknown table, column or prefix, syntax for what does not go together (a
// bare column beside COUNT without GROUP BY), type.
class Query {
 public:
  Query(const strict::Select& select, const Tables& tables);
  ~Query();

  // The row that the values ask for by a number, where the query is about one row.
  struct Found {
    std::int32_t row = PrimaryKeyMap::noRow;
    const RowHint* hint = nullptr;  // one that is right of the row
  };
  // Finds it, and has it brought into the cache unless the hint has done so, for a run that follows
  // and is told. Throws std::bad_alloc.
  Found find(std::span<const Value> values, RowHint& hint) const;
  // Answers it into an empty answer, with what has been found for these values. Throws Failure:
  // type, range (a LIMIT below 0), full (more rows than can be answered), interrupted.
  void run(const QueryContext& context, Answer& answer, const Found& found) const;
  void run(const QueryContext& context, Answer& answer) const { run(context, answer, {}); }

 private:
  struct Parts;
  std::unique_ptr<Parts> parts_;
};

using Listeners = std::map<std::string, std::set<Listener>, std::less<>>;

// SHOW.
void show(const strict::Show& show, const Tables& tables, const Listeners& listeners,
          const QueryContext& context, Answer& answer);

}  // namespace velmora
