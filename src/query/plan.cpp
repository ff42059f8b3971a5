// See plan.h.
#include "plan.h"

#include <algorithm>
#include <array>
#include <utility>

#include "totals.h"

namespace velmora::query {
namespace {

using strict::Function;

Scope scopeOf(const strict::Select& select, const Tables& tables) {
  const Table& left = tableNamed(select.table, tables);
  return select.join ? Scope(left, &tableNamed(select.join->table, tables)) : Scope(left);
}

std::string functionName(Function function) {
  static constexpr std::array<const char*, 6> names = {"", "COUNT", "COUNT", "MIN", "MAX", "SUM"};
  const auto index = static_cast<std::size_t>(function);
  return index < names.size() ? names[index] : "AVG";
}

// The terms of one side, of which the first begins the one group that they are.
std::vector<Term> termsOfSide(const std::vector<Term>& terms, bool isRight) {
  std::vector<Term> own;
  for (const Term& term : terms) {
    if (term.place.isRight != isRight) continue;
    own.push_back(term);
    own.back().beginsGroup = own.size() == 1;
  }
  return own;
}

}  // namespace

Plan::Plan(const strict::Select& select_, const Tables& tables)
    : select(select_), scope(scopeOf(select_, tables)) {
  if (select.join) on = joinColumns(*select.join, scope);
  const auto isTotal = [](const strict::Output& output) {
    return output.function != Function::none;
  };
  isGrouped = !select.groupBy.empty() ||
              std::any_of(select.outputs.begin(), select.outputs.end(), isTotal) ||
              std::any_of(select.orderBy.begin(), select.orderBy.end(),
                          [&](const strict::Order& order) { return isTotal(order.output); });
  for (const strict::ColumnName& name : select.groupBy) {
    groupBy.push_back(columnAt(scope.find(name)));
  }
  addOutputs();
  addFilters();
  addOrders();
  addUsed();
  isOneRow = !isGrouped && !on && orders.empty() && left->isByKey() && left->isOneGroup();
  isKeyAlone =
      isOneRow && left->terms().size() == 1 && !select.at && !select.limit && !select.offset;
}

std::string Plan::nameOf(const Expression& expression) const {
  if (!expression.isTotal()) return scope.nameOf(expression.place);
  const std::string column = expression.hasColumn() ? scope.nameOf(expression.place) : "*";
  return functionName(expression.function) + "(" + column + ")";
}

Expression Plan::columnAt(const Place& place) const {
  return {Function::none, place, &scope.values(place), scope.canBeTimed(place), 0};
}

Expression Plan::expressionOf(const strict::Output& output) {
  Expression expression;
  if (output.function != Function::countRows) {
    expression = columnAt(scope.find(output.column));
    expression.function = output.function;
  } else {
    expression.function = Function::countRows;
  }
  if (!expression.isTotal()) return expression;
  const ValueKind kind = expression.hasColumn() ? expression.values->kind() : ValueKind::integer;
  try {
    static_cast<void>(Totals(expression.function, kind, nameOf(expression)));
  } catch (Failure& failure) {
    const Column& column = scope.column(expression.place);
    throw std::move(failure)
        .at(output.column.column.offset)
        .of(scope.table(expression.place).tableName, column.name);
  }
  const auto isSame = [&](const Expression& each) {
    return each.function == expression.function && each.place == expression.place;
  };
  const auto found = std::find_if(totals.begin(), totals.end(), isSame);
  expression.total = static_cast<std::size_t>(found - totals.begin());
  if (found == totals.end()) totals.push_back(expression);
  return expression;
}

void Plan::requireGroup(const Expression& expression, const strict::Output& output) const {
  const bool isOfGroup = !isGrouped || expression.isTotal() ||
                         std::any_of(groupBy.begin(), groupBy.end(), [&](const Expression& each) {
                           return each.place == expression.place;
                         });
  if (isOfGroup) return;
  throw Failure(Code::syntax, "Column '" + output.column.column.text +
                                  "' has to be in GROUP BY or within a function")
      .at(output.column.column.offset)
      .of(scope.table(expression.place).tableName, scope.column(expression.place).name);
}

void Plan::addStar() {
  for (const bool isRight : {false, true}) {
    if (isRight && !scope.isJoin()) break;
    for (std::size_t i = 0; i < scope.table(isRight).columns.size(); ++i) {
      outputs.push_back(columnAt({isRight, i}));
    }
  }
}

void Plan::addOutputs() {
  if (select.isStar && isGrouped) {
    throw Failure(Code::syntax, "* does not go with GROUP BY or a function")
        .at(select.table.offset);
  }
  if (select.isStar) addStar();
  for (const strict::Output& output : select.outputs) {
    outputs.push_back(expressionOf(output));
    requireGroup(outputs.back(), output);
  }
  auto described = std::make_shared<std::vector<AnswerColumn>>();
  for (const Expression& output : outputs) described->push_back(answerColumn(output));
  columns = std::move(described);
}

AnswerColumn Plan::answerColumn(const Expression& expression) const {
  AnswerColumn column;
  column.name = nameOf(expression);
  const bool isOfColumn = expression.function == Function::none ||
                          expression.function == Function::min ||
                          expression.function == Function::max;
  if (isOfColumn) column.declaredType = typeName(scope.column(expression.place));
  if (!expression.isTotal()) {
    column.type = answerTypeOf(expression.values->kind());
  } else {
    const ValueKind kind = expression.hasColumn() ? expression.values->kind() : ValueKind::integer;
    column.type = Totals(expression.function, kind, column.name).type();
  }
  column.isFloat = isOfColumn && expression.values->kind() == ValueKind::real;
  return column;
}

// A filter of one group, and one that is about one table alone, is judged before the join; any
// other by pairs of rows.
void Plan::addFilters() {
  std::vector<Term> terms = termsOf(select.filter, scope);
  if (!scope.isJoin()) {
    left.emplace(scope, false, std::move(terms));
    return;
  }
  const bool isOneGroup = std::none_of(terms.begin() + (terms.empty() ? 0 : 1), terms.end(),
                                       [](const Term& term) { return term.beginsGroup; });
  const auto isOfSide = [&](bool isRight) {
    return std::all_of(terms.begin(), terms.end(),
                       [&](const Term& term) { return term.place.isRight == isRight; });
  };
  std::vector<Term> own[2];
  if (isOneGroup) {
    for (const bool isRight : {false, true}) own[isRight] = termsOfSide(terms, isRight);
  } else if (isOfSide(false) || isOfSide(true)) {
    own[isOfSide(true)] = terms;
  } else {
    pairTerms = terms;
  }
  left.emplace(scope, false, std::move(own[0]));
  right.emplace(scope, true, std::move(own[1]));
}

void Plan::addOrders() {
  for (const strict::Order& order : select.orderBy) {
    orders.push_back(expressionOf(order.output));
    requireGroup(orders.back(), order.output);
    descends.push_back(order.descends);
  }
}

void Plan::addUsed() {
  const auto add = [&](const Place& place) {
    const bool isNew = std::find(used.begin(), used.end(), place) == used.end();
    if (isNew && scope.canBeTimed(place)) used.push_back(place);
  };
  const auto addAll = [&](const std::vector<Term>& terms) {
    for (const Term& term : terms) add(term.place);
  };
  addAll(left->terms());
  if (right) addAll(right->terms());
  addAll(pairTerms);
  if (on) add(on->left);
  if (on) add(on->right);
  for (const std::vector<Expression>* list : {&groupBy, &orders, &totals}) {
    for (const Expression& expression : *list) {
      if (expression.hasColumn()) add(expression.place);
    }
  }
}

}  // namespace velmora::query
