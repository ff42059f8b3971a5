// Statements of the strict language as one line of text, for comparing and for reading in tests:
// every name, number and operand of them, bound values in the place of their parameters.
#pragma once

#include <cstdint>
#include <cstdio>
#include <optional>
#include <span>
#include <string>
#include <variant>
#include <vector>

#include "strict/statement.h"

namespace velmora::strict {

class Description {
 public:
  // The values may be fewer than the parameters; those without one are shown as ?0, ?1 and so on.
  Description(const Statement& statement, std::span<const Value> values) : values_(values) {
    std::visit([&](const auto& command) { add(command); }, statement.command);
    if (statement.clock) add(" clock ", statement.clock);
  }
  const std::string& text() const noexcept { return text_; }

 private:
  void word(const std::string& text) { text_ += text; }
  static std::string textOf(const Value& value) {
    if (isNull(value)) return "NULL";
    if (const auto* number = std::get_if<std::int64_t>(&value)) return std::to_string(*number);
    if (const auto* isTrue = std::get_if<bool>(&value)) return *isTrue ? "true" : "false";
    if (const auto* text = std::get_if<std::string>(&value)) return "[" + *text + "]";
    char digits[40];
    std::snprintf(digits, sizeof digits, "%.17gf", std::get<double>(value));
    return digits;
  }
  void add(const Operand& operand) {
    const auto parameter = static_cast<std::size_t>(operand.parameter);
    if (!operand.isParameter()) {
      word(textOf(operand.value));
    } else if (parameter < values_.size()) {
      word(textOf(values_[parameter]));
    } else {
      word("?" + std::to_string(parameter));
    }
  }
  void add(const char* before, const std::optional<Operand>& operand) {
    if (!operand) return;
    word(before);
    add(*operand);
  }
  void add(const ColumnName& name) {
    if (!name.table.text.empty()) word(name.table.text + ".");
    word(name.column.text);
  }
  void add(const Assignment& assignment) {
    word(" " + assignment.column.text + "=");
    add(assignment.value);
    for (const State& state : assignment.states) {
      word("-->");
      add(state.value);
      word("@");
      add(state.amount);
      word("*" + std::to_string(state.unitSeconds));
    }
    if (assignment.cycles) word(" cycles");
  }
  void add(const Filter& filter) {
    static constexpr const char* operators[] = {"=",  "!=", "<",        ">",
                                                "<=", ">=", " is null", " is not null"};
    for (const Comparison& comparison : filter) {
      word(&comparison == filter.data() ? " where " : comparison.beginsGroup ? " or " : " and ");
      if (&comparison == filter.data() && !comparison.beginsGroup) word("(no group) ");
      add(comparison.column);
      word(operators[static_cast<std::size_t>(comparison.op)]);
      if (comparison.op < Operator::isNull) add(comparison.operand);
    }
  }
  void add(const Output& output) {
    static constexpr const char* functions[] = {
        "", "count-rows", "count:", "min:", "max:", "sum:", "avg:"};
    word(functions[static_cast<std::size_t>(output.function)]);
    add(output.column);
  }

  void add(const CreateTable& create) {
    word("create " + create.table.text);
    for (const ColumnDefinition& column : create.columns) {
      word(" " + column.name.text + ":" + column.type.text + ":" + std::to_string(column.length) +
           ":" + std::to_string(column.states));
    }
  }
  void add(const DropTable& drop) { word("drop " + drop.table.text); }
  void add(const Insert& insert) {
    word("insert " + insert.table.text);
    for (const Assignment& assignment : insert.assignments) add(assignment);
  }
  void add(const Update& update) {
    word("update " + update.table.text);
    for (const Assignment& assignment : update.assignments) add(assignment);
    add(update.filter);
  }
  void add(const Delete& command) {
    word("delete " + command.table.text);
    add(command.filter);
  }
  void add(const Select& select) {
    word(select.isStar ? "select *" : "select");
    for (const Output& output : select.outputs) {
      word(" ");
      add(output);
    }
    word(" from " + select.table.text);
    if (select.join) {
      word(" join " + select.join->table.text + " on ");
      add(select.join->first);
      word("=");
      add(select.join->second);
    }
    add(select.filter);
    for (const ColumnName& column : select.groupBy) {
      word(" group ");
      add(column);
    }
    for (const Order& order : select.orderBy) {
      word(order.descends ? " down " : " up ");
      add(order.output);
    }
    add(" limit ", select.limit);
    add(" offset ", select.offset);
    add(" at ", select.at);
  }
  void addLinked(const char* what, const Link& link) {
    word(what + link.childTable.text + "." + link.childColumn.text + "-->" + link.parentTable.text +
         "." + link.parentColumn.text);
  }
  void add(const Link& link) { addLinked("link ", link); }
  void add(const Unlink& unlink) { addLinked("unlink ", unlink); }
  void add(const Listen& listen) {
    word("listen " + listen.table.text + "." + listen.event.text + "-->[" + listen.target + "]");
    add(listen.filter);
  }
  void add(const Unlisten& listener) {
    word("unlisten " + listener.table.text + "." + listener.event.text + "-->[" + listener.target +
         "]");
  }
  void add(const Vacuum& vacuum) {
    word("vacuum" + (vacuum.table ? " " + vacuum.table->text : ""));
  }
  void add(const Show& show) {
    static constexpr const char* whats[] = {"tables",   "columns", "links",  "listeners",
                                            "schedule", "states",  "storage"};
    word(std::string("show ") + whats[static_cast<std::size_t>(show.what)]);
    if (show.table) word(" from " + show.table->text);
    add(" until ", show.until);
  }
  void add(Begin /*command*/) { word("begin"); }
  void add(Commit /*command*/) { word("commit"); }
  void add(Rollback /*command*/) { word("rollback"); }
  void add(Checkpoint /*command*/) { word("checkpoint"); }

  std::span<const Value> values_;
  std::string text_;
};

inline std::string describe(const Statement& statement, std::span<const Value> values = {}) {
  return Description(statement, values).text();
}

// The parameters that have to be whole numbers from 1 on to fit wherever they stand: amounts,
// counts and seconds. By parameter.
inline std::vector<bool> wholeParameters(const Statement& statement) {
  std::vector<bool> isWhole(static_cast<std::size_t>(statement.parameterCount));
  const auto mark = [&](const std::optional<Operand>& operand) {
    if (operand && operand->isParameter()) {
      isWhole[static_cast<std::size_t>(operand->parameter)] = true;
    }
  };
  const auto markAmounts = [&](const std::vector<Assignment>& assignments) {
    for (const Assignment& assignment : assignments) {
      for (const State& state : assignment.states) mark(state.amount);
    }
  };
  mark(statement.clock);
  if (const auto* insert = std::get_if<Insert>(&statement.command)) {
    markAmounts(insert->assignments);
  } else if (const auto* update = std::get_if<Update>(&statement.command)) {
    markAmounts(update->assignments);
  } else if (const auto* select = std::get_if<Select>(&statement.command)) {
    for (const auto* operand : {&select->limit, &select->offset, &select->at}) mark(*operand);
  } else if (const auto* show = std::get_if<Show>(&statement.command)) {
    mark(show->until);
  }
  return isWhole;
}

}  // namespace velmora::strict
