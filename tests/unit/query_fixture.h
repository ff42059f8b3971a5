// What tests of queries share: short ways to write commands as records, and answers as text, a line
// a row.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "column_fixture.h"
#include "failure.h"
#include "query/query.h"

namespace velmora {

using strict::Function;
using strict::Operator;

inline strict::Operand operandOf(Value value, std::size_t offset = 0) {
  strict::Operand operand;
  operand.value = std::move(value);
  operand.offset = offset;
  return operand;
}
inline strict::Operand whole(std::int64_t value) { return operandOf(value); }
inline strict::Operand parameter(int index, std::size_t offset = 0) {
  strict::Operand operand;
  operand.parameter = index;
  operand.offset = offset;
  return operand;
}
inline Value textValue(const char* text) { return std::string(text); }

// "c" or "t.c".
inline strict::ColumnName named(const std::string& name, std::size_t offset = 0) {
  const std::size_t point = name.find('.');
  if (point == std::string::npos) return {{"", 0}, {name, offset}};
  return {{name.substr(0, point), offset}, {name.substr(point + 1), offset}};
}

inline strict::Comparison where(const std::string& column, Operator op, strict::Operand operand) {
  return {named(column), op, std::move(operand), true};
}
inline strict::Comparison where(const std::string& column, Operator op, Value value) {
  return where(column, op, operandOf(std::move(value)));
}
inline strict::Comparison where(const std::string& column, Operator op, std::int64_t value) {
  return where(column, op, Value(value));
}
inline strict::Comparison where(const std::string& column, Operator op) {
  return where(column, op, strict::Operand());
}
inline strict::Comparison andAlso(strict::Comparison comparison) {
  comparison.beginsGroup = false;
  return comparison;
}

inline strict::Output output(Function function, const std::string& column = "") {
  return {function, named(column)};
}
inline strict::Order by(const std::string& column, bool descends = false) {
  return {output(Function::none, column), descends};
}

inline strict::Select selectFrom(const std::string& table, const Texts& columns) {
  strict::Select select;
  select.table.text = table;
  select.isStar = columns.empty();
  for (const std::string& column : columns) select.outputs.push_back(output({}, column));
  return select;
}

inline std::string shown(const Answer& answer, const AnswerValue& value) {
  switch (value.type) {
    case AnswerType::null:
      return "null";
    case AnswerType::integer:
      return std::to_string(value.integer);
    case AnswerType::real: {
      TextRoom room;
      return {room, writeShortest(room, value.real)};
    }
    case AnswerType::boolean:
      return value.integer != 0 ? "true" : "false";
    case AnswerType::text:
      break;
  }
  return std::string(answer.text(value));
}

inline Texts rowsOf(const Answer& answer) {
  Texts rows;
  for (std::size_t row = 0; row < answer.rowCount(); ++row) {
    std::string& line = rows.emplace_back();
    for (std::size_t column = 0; column < answer.columnCount(); ++column) {
      if (column > 0) line += '|';
      line += shown(answer, answer.at(row, column));
    }
  }
  return rows;
}

inline Texts headings(const Answer& answer) {
  Texts names;
  for (const AnswerColumn& column : *answer.columns()) names.push_back(column.name);
  return names;
}

inline Answer run(const Tables& tables, const strict::Select& select, std::int64_t now = 0,
                  const std::vector<Value>& values = {}) {
  Answer answer;
  Query(select, tables).run({values, now, {}}, answer);
  return answer;
}

inline std::vector<std::int32_t> rowsPassing(const Table& table, const strict::Filter& filter,
                                             std::int64_t now = 0,
                                             const std::vector<Value>& values = {}) {
  return RowFilter(filter, table).rows({values, now, {}});
}

// Of what a failure tells: its code's number, text and offset.
template <typename Attempt>
std::string failureOf(Attempt attempt) {
  try {
    static_cast<void>(attempt());
  } catch (const Failure& failure) {
    return std::to_string(static_cast<int>(failure.code)) + " " + failure.what() + " at " +
           std::to_string(failure.offset);
  }
  return "none";
}

inline void addRow(Table& table, const std::vector<Value>& values) {
  const std::size_t row = table.appendRow();
  for (std::size_t column = 0; column < values.size(); ++column) {
    table.setValue(row, column, values[column]);
  }
  if (table.hasPrimaryKey()) table.fileRow(row);
}

inline Table& addTable(Tables& tables, const std::string& name, std::vector<Column> columns,
                       const std::string& key = "") {
  Table& table = tables.emplace(name, Table(name, std::move(columns))).first->second;
  if (!key.empty()) table.setUpPrimaryKeyMap(key, 0);
  return table;
}

}  // namespace velmora
