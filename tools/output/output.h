// Rows on standard output, in the form that was asked for. csv, json and jsonl are for programs
// and the same wherever they go to; box, markdown and line are for people, aligned by display
// width, with symbols for control characters.
#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "velmora/velmora.hpp"

namespace tool {

enum class Format { box, csv, json, jsonl, markdown, line };

// Box on a terminal, csv elsewhere.
Format usualFormat();

struct Column {
  std::string name;
  velmora_type type = VELMORA_TEXT;
  bool isFloat = false;  // 32-bit: written in the shortest form of a float
};

// Writes to standard output, throwing Failure where that fails.
void write(std::string_view text);
// What has been written so far gets to where standard output goes.
void flush();

// The rows of one answer: begun when it is made, and ended by finish.
class Output {
 public:
  Output(Format format, std::vector<Column> columns);

  // A value for each column.
  void add(std::span<const velmora_value> values);
  void addRow(const std::vector<velmora::Value>& row);
  void finish();

 private:
  void addLines(std::span<const velmora_value> values);

  Format format_;
  std::vector<Column> columns_;
  std::size_t count_ = 0;
  std::vector<std::string> cells_;  // those of the aligned forms, which are written at the end
};

std::vector<Column> columnsOf(const velmora::Result& result);

// All rows of a result.
void print(Format format, const velmora::Result& result);

// Rows that a verb has made itself.
void print(Format format, std::vector<Column> columns,
           const std::vector<std::vector<velmora::Value>>& rows);

// ---- For the forms ----

// The shortest form that reads back as the same.
std::string numberText(const velmora_value& value, const Column& column);
// As people read it: null is "NULL".
std::string shownText(const velmora_value& value, const Column& column);
bool standsRight(const Column& column);

void appendCsvRow(std::string& text, std::span<const velmora_value> values,
                  std::span<const Column> columns);
void appendCsvText(std::string& text, std::string_view field);
void appendJsonRow(std::string& text, std::span<const velmora_value> values,
                   std::span<const Column> columns);
std::string boxText(std::span<const Column> columns, std::span<const std::string> cells);
std::string markdownText(std::span<const Column> columns, std::span<const std::string> cells);

}  // namespace tool
