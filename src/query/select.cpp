// A SELECT's run: rows come from a scan, by key or from a join, are grouped or not, ordered or not,
// and answered from the offset on, up to the limit. Without an order a run ends with its last row.
#include <algorithm>
#include <limits>

#include "answer_writer.h"
#include "grouping.h"
#include "plan.h"
#include "query.h"
#include "sorter.h"

namespace velmora {
namespace query {
namespace {

constexpr std::size_t unlimited = std::numeric_limits<std::size_t>::max();

// What the bound values make of a plan.
struct Bounds {
  std::int64_t now = 0;     // the second that is answered for
  std::size_t skipped = 0;  // rows to be passed over
  std::size_t limit = unlimited;
};

Bounds boundsOf(const Plan& plan, const QueryContext& context) {
  const strict::Select& select = plan.select;
  const auto sizeOf = [&](const strict::Operand& operand, const char* word) {
    return static_cast<std::size_t>(wholeNumber(operand, context, word));
  };
  Bounds bounds;
  bounds.now = select.at ? wholeNumber(*select.at, context, "AT") : context.now;
  if (select.limit) bounds.limit = sizeOf(*select.limit, "LIMIT");
  if (select.offset) bounds.skipped = sizeOf(*select.offset, "OFFSET");
  for (const auto* filter : {&plan.left, &plan.right}) {
    if (*filter) checkBoundValues((*filter)->terms(), plan.scope, context);
  }
  checkBoundValues(plan.pairTerms, plan.scope, context);
  return bounds;
}

std::size_t rowOf(const Expression& expression, const Item& item) noexcept {
  return static_cast<std::size_t>(expression.place.isRight ? item.right : item.left);
}

// They lie in arrays of their own: waited for one after the other they took a fifth longer. Inlined
// always, as what it calls.
[[gnu::always_inline]] inline void prefetchOutputs(const Plan& plan, const Item& item) {
  for (const Expression& output : plan.outputs) output.values->prefetchValue(rowOf(output, item));
}

// Of long texts, which that has brought by now.
[[gnu::always_inline]] inline void prefetchBytes(const Plan& plan, const Item& item) {
  for (const Expression& output : plan.outputs) output.values->prefetchBytes(rowOf(output, item));
}

void learn(const Plan& plan, RowHint& hint) {
  const Rows& rows = plan.scope.table(false).rows();
  std::vector<RowHint::Part> parts;
  parts.reserve(plan.outputs.size());
  for (const Expression& output : plan.outputs) {
    const std::byte* const values = output.values->chunk(0).values;
    parts.push_back({static_cast<std::size_t>(values - rows.memory(0)), output.values->width()});
  }
  hint.learn(static_cast<std::size_t>(plan.left->keyParameter()), std::move(parts), rows);
}

// Answers one row at most, found without a list, unless it has been found already.
void answerByKey(const Plan& plan, const QueryContext& context, const Bounds& bounds,
                 Answer& answer, std::int32_t found) {
  if (found == PrimaryKeyMap::noRow) {
    found = plan.left->rowByKey(context);
    if (found == PrimaryKeyMap::noRow) return;
    prefetchOutputs(plan, {found});
  }
  const auto row = static_cast<std::size_t>(found);
  answer.values.reserve(plan.outputs.size());
  const Rows& rows = plan.scope.table(false).rows();
  // Where no row is deleted the mark is not waited for.
  if (rows.hasDeleted(Rows::chunkOf(row)) && !rows.isLive(row)) return;
  AnswerWriter writer(answer, bounds.now);
  for (const Place& place : plan.used) writer.dependOn(plan.scope.values(place), row);
  const bool isAlone = plan.left->terms().size() == 1;
  if (!isAlone && !plan.left->passes(found, bounds.now, context)) return;
  if (bounds.skipped > 0 || bounds.limit == 0) return;
  for (const Expression& output : plan.outputs) {
    writer.addCell(*output.values, row, output.canBeTimed);
  }
}

// The same for a row that the hint is right of, where nothing else is asked.
void answerFound(const Plan& plan, std::int64_t now, Answer& answer, std::size_t row,
                 const RowHint& hint) {
  answer.setColumns(plan.columns);
  answer.second = now;
  const Rows& rows = plan.scope.table(false).rows();
  const std::size_t chunk = Rows::chunkOf(row);
  const std::size_t place = Rows::placeOf(row);
  if (rows.hasDeleted(chunk) && !rows.isLive(row)) return;
  answer.values.reserve(plan.outputs.size());
  AnswerWriter writer(answer, now);
  std::byte* const memory = rows.array<std::byte>(chunk, 0);
  const RowHint::Part* part = hint.parts().data();
  for (const Expression& output : plan.outputs) {
    const ColumnValues& values = *output.values;
    if (values.chunk(chunk).odd != nullptr) {
      writer.addCell(values, row, output.canBeTimed);
    } else {
      // What there is one of, at its place, as an array that begins there.
      std::byte* const value = memory + part->offset + place * part->width;
      writer.addOne(values.toldValue({value, reinterpret_cast<std::uint8_t*>(value), nullptr}, 0));
    }
    ++part;
  }
}

// All others.
class Run {
 public:
  Run(const Plan& plan, const QueryContext& context, const Bounds& bounds, Answer& answer);
  // Not inlined, since the masks on its stack would be paid for by who answers by key.
  [[gnu::noinline]] void run();

 private:
  void runRows();
  void runGroups();
  // Calls useChunk(chunk, mask), or useRows(left, right) where the rows lie in no chunk, until it
  // returns false.
  template <typename UseChunk, typename UseRows>
  void forEachRow(UseChunk useChunk, UseRows useRows);
  template <typename UseRows>
  void forEachPairOfRows(UseRows useRows);
  void makeSorter();
  void keepCandidates(std::size_t chunk, RowMask& mask) const;
  bool take(const Item& item);
  template <typename ItemAt>
  void prefetchRules(std::size_t count, std::size_t i, ItemAt itemAt) const;
  template <typename ItemAt>
  bool takeAhead(std::size_t count, ItemAt item);
  bool hasLongText(const Item& item) const;
  void offer(const Item& item);
  void answerSorted();
  bool addRow(const Item& item);
  TypedValue valueOf(const Expression& expression, const Item& item) const;
  void addNextChange();

  const Plan& plan_;
  const QueryContext& context_;
  Answer& answer_;
  std::int64_t now_;
  AnswerWriter writer_;
  std::size_t skipped_;  // rows still to be passed over
  std::size_t limit_;    // and to be answered
  std::optional<Sorter> sorter_;
  std::optional<Grouping> grouping_;
  std::vector<TypedValue> keys_;
  std::vector<std::int32_t> foundByKey_;
  // A row had a long text: the bytes of those to come are asked for. Looking at each where all are
  // short took a tenth of a scan's time.
  bool areTextsLong_ = false;
};

Run::Run(const Plan& plan, const QueryContext& context, const Bounds& bounds, Answer& answer)
    : plan_(plan),
      context_(context),
      answer_(answer),
      now_(bounds.now),
      writer_(answer, now_),
      skipped_(bounds.skipped),
      limit_(bounds.limit) {}

void Run::run() {
  makeSorter();
  if (plan_.isGrouped) {
    runGroups();
  } else {
    runRows();
  }
  addNextChange();
}

template <typename UseRows>
void Run::forEachPairOfRows(UseRows useRows) {
  std::vector<ValueTest> tests;
  for (const Term& term : plan_.pairTerms) tests.push_back(testOf(term, plan_.scope, context_));
  const auto passes = [&](std::int32_t left, std::int32_t right) {
    bool isPassed = tests.empty();
    for (std::size_t i = 0; i < tests.size(); ++i) {
      if (plan_.pairTerms[i].beginsGroup) {
        if (isPassed) break;
        isPassed = true;
      }
      const std::int32_t row = plan_.pairTerms[i].place.isRight ? right : left;
      isPassed = isPassed && tests[i].matchesRow(static_cast<std::size_t>(row), now_);
    }
    return isPassed;
  };
  Pairs kept;
  const std::vector<std::int32_t> left = plan_.left->rows(now_, context_);
  const std::vector<std::int32_t> right = plan_.right->rows(now_, context_);
  forEachPair(plan_.scope, *plan_.on, left, right, now_, context_, [&](const Pairs& pairs) {
    if (tests.empty()) return useRows(pairs.left, pairs.right);
    kept.left.clear();
    kept.right.clear();
    for (std::size_t i = 0; i < pairs.left.size(); ++i) {
      if (!passes(pairs.left[i], pairs.right[i])) continue;
      kept.left.push_back(pairs.left[i]);
      kept.right.push_back(pairs.right[i]);
    }
    return useRows(kept.left, kept.right);
  });
}

template <typename UseChunk, typename UseRows>
void Run::forEachRow(UseChunk useChunk, UseRows useRows) {
  if (plan_.on) {
    forEachPairOfRows(useRows);
  } else if (plan_.left->isByKey()) {
    plan_.left->findByKey(context_, foundByKey_);
    std::vector<std::int32_t> rows = foundByKey_;
    std::erase_if(rows, [&](std::int32_t row) { return !plan_.left->passes(row, now_, context_); });
    for (std::size_t first = 0; first < rows.size(); first += Rows::chunkRows) {
      const std::size_t count = std::min(Rows::chunkRows, rows.size() - first);
      if (!useRows(std::span(rows).subspan(first, count), std::span<const std::int32_t>())) return;
    }
  } else {
    plan_.left->scan(now_, context_, useChunk);
  }
}

void Run::makeSorter() {
  if (plan_.orders.empty()) return;
  const bool isBounded = limit_ < unlimited - skipped_;
  sorter_.emplace(plan_.descends, isBounded ? skipped_ + limit_ : unlimited);
}

// Has the rules of timed values that are answered brought into the cache, those of row i first.
template <typename ItemAt>
void Run::prefetchRules(std::size_t count, std::size_t i, ItemAt itemAt) const {
  constexpr std::size_t stepDistance = 5;
  for (const Expression& output : plan_.outputs) {
    if (!output.canBeTimed) continue;
    for (std::size_t step = 0; step < 3 && step * stepDistance <= i; ++step) {
      if (i - step * stepDistance >= count) continue;
      output.values->prefetchRule(rowOf(output, itemAt(i - step * stepDistance)),
                                  static_cast<int>(step));
    }
  }
}

// Takes so many rows as they are wanted; what is printed of the next ones is on its way meanwhile.
template <typename ItemAt>
bool Run::takeAhead(std::size_t count, ItemAt item) {
  constexpr std::size_t ahead = 16;
  constexpr std::size_t bytesAhead = 8;
  for (std::size_t i = 0; i < count + ahead; ++i) {
    if (!sorter_ && !plan_.isGrouped) {
      if (i < count) prefetchOutputs(plan_, item(i));
      prefetchRules(count, i, item);
      if (i == ahead) areTextsLong_ = areTextsLong_ || hasLongText(item(0));
      const std::size_t coming = i + bytesAhead - ahead;
      if (areTextsLong_ && i >= ahead && coming < count) prefetchBytes(plan_, item(coming));
    }
    if (i >= ahead && !take(item(i - ahead))) return false;
  }
  return true;
}

bool Run::hasLongText(const Item& item) const {
  return std::any_of(plan_.outputs.begin(), plan_.outputs.end(), [&](const Expression& output) {
    return output.values->isLongText(rowOf(output, item));
  });
}

void Run::runRows() {
  if (limit_ == 0) return;
  const auto takeAll = [&](std::span<const std::int32_t> left,
                           std::span<const std::int32_t> right) {
    const auto item = [&](std::size_t i) { return Item{left[i], right.empty() ? -1 : right[i]}; };
    return takeAhead(left.size(), item);
  };
  const auto takeChunk = [&](std::size_t chunk, RowMask& mask) {
    if (sorter_) keepCandidates(chunk, mask);
    std::uint16_t places[Rows::chunkRows];
    const std::size_t count = mask.places(places);
    const auto item = [&](std::size_t i) {
      return Item{static_cast<std::int32_t>(chunk * Rows::chunkRows + places[i])};
    };
    return takeAhead(count, item);
  };
  forEachRow(takeChunk, takeAll);
  if (sorter_) answerSorted();
}

void Run::runGroups() {
  grouping_.emplace(plan_, now_);
  const auto addChunk = [&](std::size_t chunk, const RowMask& mask) {
    grouping_->addChunk(chunk, mask);
    return true;
  };
  const auto addRows = [&](std::span<const std::int32_t> left,
                           std::span<const std::int32_t> right) {
    grouping_->addRows(left, right);
    return true;
  };
  forEachRow(addChunk, addRows);
  for (const Item& group : grouping_->groups()) {
    if (limit_ == 0 || !take(group)) break;
  }
  if (sorter_) answerSorted();
}

// Lets the rows of a chunk go whose first key already puts them behind all that are kept.
void Run::keepCandidates(std::size_t chunk, RowMask& mask) const {
  using strict::Operator;
  const std::span<const TypedValue> last = sorter_->last();
  if (last.empty()) return;
  const bool isDown = plan_.descends.front();
  const bool isLastNull = last.front().type == AnswerType::null;
  if (isDown && isLastNull) return;
  const ColumnValues& values = *plan_.orders.front().values;
  std::uint8_t nulls[Rows::chunkRows] = {};
  std::uint8_t matches[Rows::chunkRows] = {};
  // Rows that equal the last one come behind it, unless there is another key.
  const bool isOnly = plan_.orders.size() == 1;
  const Operator op = isDown ? (isOnly ? Operator::greater : Operator::greaterOrEqual)
                             : (isOnly ? Operator::less : Operator::lessOrEqual);
  if (!isLastNull) {
    ValueTest(op, values, last.front()).decide(chunk, now_, mask.size, matches);
  }
  if (!isDown) {
    ValueTest(Operator::isNull, values, {}).decide(chunk, now_, mask.size, nulls);
  }
  for (std::size_t i = 0; i < mask.size; ++i) {
    mask.passes[i] = static_cast<std::uint8_t>(mask.passes[i] & (matches[i] | nulls[i]));
  }
}

TypedValue Run::valueOf(const Expression& expression, const Item& item) const {
  if (expression.isTotal()) return grouping_->total(expression, item);
  return expression.values->value(rowOf(expression, item), now_);
}

// Takes the next row; whether more are wanted.
bool Run::take(const Item& item) {
  if (sorter_) {
    offer(item);
    return true;
  }
  if (skipped_ > 0) {
    --skipped_;
    return true;
  }
  return addRow(item);
}

void Run::offer(const Item& item) {
  keys_.clear();
  for (const Expression& order : plan_.orders) keys_.push_back(valueOf(order, item));
  sorter_->offer(item, keys_);
}

void Run::answerSorted() {
  const std::vector<Item> items = sorter_->take();
  sorter_.reset();
  takeAhead(items.size(), [&](std::size_t i) { return items[i]; });
}

bool Run::addRow(const Item& item) {
  constexpr std::size_t mostRows = std::numeric_limits<std::int32_t>::max();
  if (answer_.rowCount() == mostRows) throw Failure(Code::full, "Too many rows for an answer");
  if (answer_.values.empty()) answer_.values.reserve(plan_.outputs.size());
  for (const Expression& output : plan_.outputs) {
    if (plan_.isGrouped) {
      writer_.add(valueOf(output, item));
    } else {
      writer_.addCell(*output.values, rowOf(output, item), output.canBeTimed);
    }
  }
  return --limit_ > 0;
}

void Run::addNextChange() {
  const bool isByKey = !plan_.on && plan_.left->isByKey();
  for (const Place& place : plan_.used) {
    const ColumnValues& values = plan_.scope.values(place);
    for (const std::int32_t row : foundByKey_) {
      writer_.dependOn(values, static_cast<std::size_t>(row));
    }
    if (!isByKey) answer_.nextChange = std::min(answer_.nextChange, values.nextChange(now_));
  }
}

}  // namespace
}  // namespace query

struct Query::Parts {
  query::Plan plan;
};

Query::Query(const strict::Select& select, const Tables& tables)
    : parts_(std::make_unique<Parts>(Parts{query::Plan(select, tables)})) {}

Query::~Query() = default;

Query::Found Query::find(std::span<const Value> values, RowHint& hint) const {
  const query::Plan& plan = parts_->plan;
  if (!plan.isOneRow) return {};
  std::int64_t key = 0;
  const std::int32_t row = plan.left->rowByNumber(values, key);
  if (row == PrimaryKeyMap::noRow) return {};
  const auto index = static_cast<std::size_t>(row);
  const ColumnValues& last = *plan.outputs.back().values;
  const std::byte* const column = last.chunk(Rows::chunkOf(index)).values;
  if (hint.isRight(key, index, plan.scope.table(false).rows(), column)) return {row, &hint};
  query::prefetchOutputs(plan, {row});
  if (hint.isWorthLearning() && plan.left->keyParameter() >= 0) query::learn(plan, hint);
  return {row, nullptr};
}

void Query::run(const QueryContext& context, Answer& answer, const Found& found) const {
  const query::Plan& plan = parts_->plan;
  // A number that has found a row of such a query is all that there is to be checked.
  if (plan.isKeyAlone && found.hint != nullptr) {
    query::answerFound(plan, context.now, answer, static_cast<std::size_t>(found.row), *found.hint);
    return;
  }
  const query::Bounds bounds = query::boundsOf(plan, context);
  answer.setColumns(plan.columns);
  answer.second = bounds.now;
  if (plan.isOneRow) {
    query::answerByKey(plan, context, bounds, answer, found.row);
  } else {
    query::Run(plan, context, bounds, answer).run();
  }
}

}  // namespace velmora
