// The forms with aligned columns: a box of lines, and a table of Markdown.
#include <algorithm>

#include "output/output.h"
#include "output/text.h"

namespace tool {
namespace {

std::vector<std::size_t> widthsOf(std::span<const Column> columns,
                                  std::span<const std::string> cells, std::size_t least) {
  std::vector<std::size_t> widths;
  for (const Column& column : columns) {
    widths.push_back(std::max(displayWidth(visible(column.name)), least));
  }
  for (std::size_t i = 0; i < cells.size(); ++i) {
    std::size_t& width = widths[i % columns.size()];
    width = std::max(width, displayWidth(cells[i]));
  }
  return widths;
}

void appendPadded(std::string& text, std::string_view cell, std::size_t width, bool isRight) {
  const std::size_t padding = width - displayWidth(cell);
  if (isRight) text.append(padding, ' ');
  text += cell;
  if (!isRight) text.append(padding, ' ');
}

void repeat(std::string& text, std::string_view part, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) text += part;
}

// Between two rows of a box: "├──┼──┤\n".
void appendRule(std::string& text, std::span<const std::size_t> widths, std::string_view left,
                std::string_view middle, std::string_view right) {
  for (std::size_t i = 0; i < widths.size(); ++i) {
    text += i == 0 ? left : middle;
    repeat(text, "─", widths[i] + 2);
  }
  text += right;
  text += '\n';
}

// The names, then the cells, each row between bars.
class Rows {
 public:
  Rows(std::span<const Column> columns, std::vector<std::size_t> widths, std::string_view bar)
      : columns_(columns), widths_(std::move(widths)), bar_(bar) {}

  void appendNames(std::string& text) const {
    for (std::size_t i = 0; i < columns_.size(); ++i) {
      appendCell(text, i, visible(columns_[i].name));
    }
    text.append(bar_).append("\n");
  }
  void appendCells(std::string& text, std::span<const std::string> cells) const {
    for (std::size_t i = 0; i < cells.size(); ++i) {
      appendCell(text, i % columns_.size(), cells[i]);
      if ((i + 1) % columns_.size() == 0) text.append(bar_).append("\n");
    }
  }
  std::span<const std::size_t> widths() const { return widths_; }

 private:
  void appendCell(std::string& text, std::size_t column, std::string_view cell) const {
    text.append(bar_).append(" ");
    appendPadded(text, cell, widths_[column], standsRight(columns_[column]));
    text += ' ';
  }

  std::span<const Column> columns_;
  std::vector<std::size_t> widths_;
  std::string_view bar_;
};

std::string escapedForMarkdown(std::string_view cell) {
  std::string escaped;
  for (const char c : cell) {
    if (c == '|' || c == '\\') escaped += '\\';
    escaped += c;
  }
  return escaped;
}

}  // namespace

std::string boxText(std::span<const Column> columns, std::span<const std::string> cells) {
  const Rows rows(columns, widthsOf(columns, cells, 1), "│");
  std::string text;
  appendRule(text, rows.widths(), "┌", "┬", "┐");
  rows.appendNames(text);
  appendRule(text, rows.widths(), "├", "┼", "┤");
  rows.appendCells(text, cells);
  appendRule(text, rows.widths(), "└", "┴", "┘");
  return text;
}

std::string markdownText(std::span<const Column> columns, std::span<const std::string> cells) {
  std::vector<std::string> escaped;
  for (const std::string& cell : cells) escaped.push_back(escapedForMarkdown(cell));
  constexpr std::size_t least = 3;  // of a rule
  const Rows rows(columns, widthsOf(columns, escaped, least), "|");
  std::string text;
  rows.appendNames(text);
  for (std::size_t i = 0; i < columns.size(); ++i) {
    const bool isRight = standsRight(columns[i]);
    text += "| ";
    text.append(rows.widths()[i] - (isRight ? 1 : 0), '-').append(isRight ? ": " : " ");
  }
  text += "|\n";
  rows.appendCells(text, escaped);
  return text;
}

}  // namespace tool
