// See output.h.
#include "output/output.h"

#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstdio>

#include "failure.h"
#include "output/text.h"

namespace tool {
namespace {

template <typename Number>
std::string textOf(Number number) {
  char room[32];
  return {room, std::to_chars(room, room + sizeof room, number).ptr};
}

velmora_value borrowed(const velmora::Value& value) {
  velmora_value given = {};
  std::visit(
      [&](const auto& held) {
        if constexpr (!std::is_same_v<decltype(held), const std::monostate&>) {
          given = velmora::detail::bound(held);
        }
      },
      value);
  return given;
}

}  // namespace

Format usualFormat() { return isatty(STDOUT_FILENO) != 0 ? Format::box : Format::csv; }

void write(std::string_view text) {
  if (std::fwrite(text.data(), 1, text.size(), stdout) < text.size()) throwSystem("Output", errno);
}

void flush() {
  if (std::fflush(stdout) != 0) throwSystem("Output", errno);
}

std::string numberText(const velmora_value& value, const Column& column) {
  switch (value.type) {
    case VELMORA_INTEGER:
      return textOf(value.integer);
    case VELMORA_REAL:
      return column.isFloat ? textOf(static_cast<float>(value.real)) : textOf(value.real);
    default:
      return value.boolean != 0 ? "true" : "false";
  }
}

std::string shownText(const velmora_value& value, const Column& column) {
  if (value.type == VELMORA_NULL) return "NULL";
  if (value.type == VELMORA_TEXT) return visible({value.text, value.text_size});
  return numberText(value, column);
}

bool standsRight(const Column& column) {
  return column.type == VELMORA_INTEGER || column.type == VELMORA_REAL;
}

Output::Output(Format format, std::vector<Column> columns)
    : format_(format), columns_(std::move(columns)) {
  if (format_ == Format::json) write("[");
  if (format_ != Format::csv) return;
  std::string names;
  for (const Column& column : columns_) {
    if (!names.empty()) names += ',';
    appendCsvText(names, column.name);
  }
  write(names += '\n');
}

void Output::add(std::span<const velmora_value> values) {
  std::string text;
  switch (format_) {
    case Format::csv:
      appendCsvRow(text, values, columns_);
      break;
    case Format::json:
      text = count_ == 0 ? "\n  " : ",\n  ";
      appendJsonRow(text, values, columns_);
      break;
    case Format::jsonl:
      appendJsonRow(text, values, columns_);
      text += '\n';
      break;
    case Format::line:
      addLines(values);
      break;
    case Format::box:
    case Format::markdown:
      for (std::size_t i = 0; i < values.size(); ++i) {
        cells_.push_back(shownText(values[i], columns_[i]));
      }
      break;
  }
  write(text);
  ++count_;
}

// "name = value" below each other, the names aligned at their ends.
void Output::addLines(std::span<const velmora_value> values) {
  std::size_t width = 0;
  for (const Column& column : columns_) width = std::max(width, displayWidth(visible(column.name)));
  std::string text = count_ == 0 ? "" : "\n";
  for (std::size_t i = 0; i < values.size(); ++i) {
    const std::string name = visible(columns_[i].name);
    text.append(width - displayWidth(name), ' ').append(name);
    text.append(" = ").append(shownText(values[i], columns_[i])).append("\n");
  }
  write(text);
}

void Output::addRow(const std::vector<velmora::Value>& row) {
  std::vector<velmora_value> values;
  for (const velmora::Value& value : row) values.push_back(borrowed(value));
  add(values);
}

void Output::finish() {
  if (format_ == Format::json) write(count_ == 0 ? "]\n" : "\n]\n");
  if (format_ == Format::box) write(boxText(columns_, cells_));
  if (format_ == Format::markdown) write(markdownText(columns_, cells_));
}

std::vector<Column> columnsOf(const velmora::Result& result) {
  std::vector<Column> columns;
  for (std::size_t i = 0; i < result.columns(); ++i) {
    columns.push_back(
        {result.columnName(i), result.columnType(i), result.declaredType(i) == "float"});
  }
  return columns;
}

void print(Format format, const velmora::Result& result) {
  const std::size_t width = result.columns();
  Output output(format, columnsOf(result));
  constexpr std::size_t blockSize = 256;
  std::vector<velmora_value> values(width * blockSize);
  for (std::size_t row = 0; row < result.size(); row += blockSize) {
    const std::size_t count = result.values(row, blockSize, values);
    for (std::size_t i = 0; i < count; ++i) output.add({&values[i * width], width});
  }
  output.finish();
}

void print(Format format, std::vector<Column> columns,
           const std::vector<std::vector<velmora::Value>>& rows) {
  Output output(format, std::move(columns));
  for (const std::vector<velmora::Value>& row : rows) output.addRow(row);
  output.finish();
}

}  // namespace tool
