// See plan.h.
#include "load/plan.h"

#include <algorithm>

#include "copy/literals.h"
#include "failure.h"
#include "interrupt.h"
#include "load/columns.h"
#include "output/text.h"

namespace tool {
namespace {

// What the first reading has seen.
struct Survey {
  std::vector<std::string> names;
  std::vector<TypeGuess> guesses;
  std::size_t rows = 0;
};

void addRecord(const Records& records, Survey& survey, bool mayReject) {
  checkWidth(records);
  const std::span<const Field> fields = records.fields();
  if (survey.guesses.size() < fields.size()) survey.guesses.resize(fields.size());
  for (std::size_t i = 0; i < fields.size(); ++i) {
    if (fields[i].text.size() > longestText && !mayReject) {
      throw BadInput(fields[i].offset, "a field of " + std::to_string(fields[i].text.size()) +
                                           " bytes; a text has at most " +
                                           std::to_string(longestText));
    }
    survey.guesses[i].add(fields[i]);
  }
  ++survey.rows;
}

Survey surveyed(const Input& input, const LoadOptions& options) {
  const bool mayReject = !options.rejects.empty();
  Survey survey;
  Records records(input, options.form);
  TextRoom room;
  constexpr std::size_t rowsBetween = 4096;  // two looks at what holds them up
  for (bool isMore = true; isMore;) {
    try {
      isMore = records.next(room);
      if (isMore) addRecord(records, survey, mayReject);
    } catch (const BadInput&) {
      if (!mayReject) throw;
    }
    if (survey.rows % rowsBetween == 0) {
      checkInterrupt();
      room.clear();
    }
  }
  survey.names = records.names();
  survey.guesses.resize(survey.names.size());
  return survey;
}

class Planner {
 public:
  Planner(const Input& input, const LoadOptions& options, const TableShape* existing)
      : input_(input), options_(options), existing_(existing) {}
  LoadPlan make();

 private:
  void planNew();
  void planAppend();
  std::optional<std::size_t> position(const std::string& name) const;
  void addDates();

  const Input& input_;
  const LoadOptions& options_;
  const TableShape* existing_;
  Survey survey_;
  std::vector<std::string> clean_;
  LoadPlan plan_;
};

LoadPlan Planner::make() {
  survey_ = surveyed(input_, options_);
  clean_ = cleanNames(survey_.names);
  plan_.names = survey_.names;
  plan_.rows = survey_.rows;
  plan_.isNew = existing_ == nullptr;
  if (plan_.isNew) {
    planNew();
  } else {
    planAppend();
  }
  return std::move(plan_);
}

// The column of the input that is called so, there or when cleaned.
std::optional<std::size_t> Planner::position(const std::string& name) const {
  for (const auto* names : {&survey_.names, &clean_}) {
    const auto found = std::find(names->begin(), names->end(), name);
    if (found != names->end()) return static_cast<std::size_t>(found - names->begin());
  }
  return std::nullopt;
}

void Planner::planNew() {
  std::vector<TableColumn> given;
  if (!options_.types.empty()) given = givenTypes(options_.types);
  if (survey_.rows == 0 && given.empty()) {
    throw Failure(exitFailed, input_.name() + ": no rows to guess types from; --types gives them");
  }
  for (std::size_t i = 0; i < clean_.size(); ++i) {
    Target& target = plan_.targets.emplace_back(Target{survey_.guesses[i].column(), i, false, ""});
    target.column.name = clean_[i];
  }
  std::vector<TableColumn> further;
  for (const TableColumn& column : given) {
    const auto found = position(column.name);
    if (!found) {
      further.push_back(column);
      continue;
    }
    if (column.isIdentity()) {
      throw Failure(exitWrongUse, "Column " + column.name +
                                      " of the input cannot be an ApexInt: the engine numbers it");
    }
    plan_.targets[*found].column = column;
  }
  addDates();
  plan_.table.name = options_.table;
  plan_.table.columns = further;
  for (const Target& target : plan_.targets) plan_.table.columns.push_back(target.column);
}

void Planner::planAppend() {
  if (!options_.types.empty()) {
    throw Failure(exitWrongUse, "--types: table " + options_.table + " is there already");
  }
  plan_.table = *existing_;
  for (std::size_t i = 0; i < clean_.size(); ++i) {
    const TableColumn* column = existing_->column(survey_.names[i]);
    if (column == nullptr) column = existing_->column(clean_[i]);
    const std::string shown = "column '" + visible(survey_.names[i]) + "' of the input";
    if (column == nullptr) {
      throw Failure(exitFailed,
                    input_.name() + ": table " + options_.table + " has no column for " + shown);
    }
    if (column->isIdentity()) {
      throw Failure(exitFailed, input_.name() + ": " + shown + " is numbered by the engine");
    }
    plan_.targets.push_back({*column, i, false, ""});
  }
  addDates();
}

void Planner::addDates() {
  for (const std::string& date : options_.dates) {
    const std::size_t sign = std::min(date.find('='), date.size());
    const auto found = position(date.substr(0, sign));
    if (!found) {
      throw Failure(exitWrongUse,
                    "--dates: the input has no column '" + visible(date.substr(0, sign)) + "'");
    }
    Target& target = plan_.targets[*found];
    target.isDate = true;
    if (sign < date.size()) target.dateForm = date.substr(sign + 1);
    if (plan_.isNew) {
      target.column.type = "long";
      target.column.length = 0;
    } else if (target.column.type != "long" && target.column.type != "int") {
      throw Failure(exitWrongUse, "--dates: column " + target.column.name + " is a " +
                                      target.column.type + "; seconds take a long or an int");
    }
  }
}

}  // namespace

LoadPlan makePlan(const Input& input, const LoadOptions& options, const TableShape* existing) {
  try {
    return Planner(input, options, existing).make();
  } catch (const BadInput& bad) {
    throw Failure(exitFailed, input.place(bad.offset) + ": " + bad.what());
  }
}

std::string planText(const LoadPlan& plan, const Input& input) {
  std::string text = input.name() + ": " + std::to_string(plan.rows) + " rows\n";
  if (plan.isNew) {
    text += createCommand(plan.table) + "\n";
  } else {
    text += "Table " + plan.table.name + " is there already\n";
  }
  for (std::size_t i = 0; i < plan.targets.size(); ++i) {
    const std::string& name = plan.targets[i].column.name;
    if (name != plan.names[i]) text += "'" + visible(plan.names[i]) + "' becomes " + name + "\n";
  }
  return text;
}

void checkWidth(const Records& records) {
  const std::size_t found = records.fields().size();
  const std::size_t wanted = records.names().size();
  if (found == wanted) return;
  throw BadInput(records.offset(), "a record of " + std::to_string(found) +
                                       " fields, where there are " + std::to_string(wanted) +
                                       " columns");
}

}  // namespace tool
