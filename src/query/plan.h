// Plan: a SELECT with its names looked up, as far as it is the same for every run.
#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "filter.h"
#include "join.h"

namespace velmora::query {

// What a column of the answer, or an order, is of: a cell of the row, or a total.
struct Expression {
  strict::Function function = strict::Function::none;
  Place place;                           // none for a count of rows
  const ColumnValues* values = nullptr;  // the same
  bool canBeTimed = false;
  std::size_t total = 0;  // among the plan's

  bool isTotal() const noexcept { return function != strict::Function::none; }
  bool hasColumn() const noexcept { return function != strict::Function::countRows; }
};

struct Plan {
  // Throws Failure as Query does.
  Plan(const strict::Select& select, const Tables& tables);

  const strict::Select& select;
  Scope scope;
  std::optional<JoinColumns> on;
  std::optional<TableFilter> left;
  std::optional<TableFilter> right;
  std::vector<Term> pairTerms;  // those about pairs of rows; none where the tables' own are all
  std::vector<Expression> outputs;
  std::vector<Expression> groupBy;
  std::vector<Expression> orders;
  std::vector<bool> descends;
  std::vector<Expression> totals;  // each once
  bool isGrouped = false;          // into groups, or one
  bool isOneRow = false;           // found by its key, or none
  bool isKeyAlone = false;         // and nothing else is asked
  // The columns with timed values by which rows are chosen, joined, ordered, grouped and added up.
  std::vector<Place> used;
  std::shared_ptr<const std::vector<AnswerColumn>> columns;

  std::string nameOf(const Expression& expression) const;

 private:
  Expression expressionOf(const strict::Output& output);
  Expression columnAt(const Place& place) const;
  void addOutputs();
  void addStar();
  void addFilters();
  void addOrders();
  void requireGroup(const Expression& expression, const strict::Output& output) const;
  void addUsed();
  AnswerColumn answerColumn(const Expression& expression) const;
};

}  // namespace velmora::query
