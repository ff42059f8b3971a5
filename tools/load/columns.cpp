// See columns.h.
#include "load/columns.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <regex>

#include "copy/literals.h"
#include "failure.h"
#include "load/values.h"
#include "output/text.h"

namespace tool {
namespace {

constexpr std::size_t longestName = 15;

bool isWordPart(char c) {
  return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
}

// The words of a name with one "_" between them.
std::string cleanName(const std::string& name, std::size_t position) {
  std::string clean;
  for (const char c : name) {
    if (isWordPart(c)) {
      clean += c;
    } else if (!clean.empty() && clean.back() != '_') {
      clean += '_';
    }
  }
  if (!name.ends_with('_') && clean.ends_with('_')) clean.pop_back();
  if (clean.empty()) clean = "column" + std::to_string(position + 1);
  if (clean[0] >= '0' && clean[0] <= '9') clean.insert(0, "_");
  clean.resize(std::min(clean.size(), longestName));
  return isFreeName(clean) ? clean : clean + "_";
}

}  // namespace

std::vector<std::string> cleanNames(const std::vector<std::string>& names) {
  std::vector<std::string> clean;
  for (std::size_t i = 0; i < names.size(); ++i) {
    const std::string wanted = cleanName(names[i], i);
    std::string name = wanted;
    for (int number = 2; std::find(clean.begin(), clean.end(), name) != clean.end(); ++number) {
      const std::string ending = std::to_string(number);
      name = wanted.substr(0, longestName - ending.size()) + ending;
    }
    clean.push_back(name);
  }
  return clean;
}

void TypeGuess::add(const Field& field) {
  if (field.isNull) return;
  hasValue_ = true;
  longest_ = std::max(longest_, field.text.size());
  if (field.isText) canBeBool_ = canBeReal_ = canBeWhole_ = canBeInt_ = false;
  if (canBeBool_ && !boolOf(field.text)) canBeBool_ = false;
  if (!canBeReal_) return;
  // A number with zeros before it is a code: 00501 would come back as 501.
  const std::string_view digits = field.text.substr(field.text.starts_with('-') ? 1 : 0);
  const bool isCode = digits.size() > 1 && digits[0] == '0' && digits[1] >= '0' && digits[1] <= '9';
  const auto whole = wholeOf(field.text);
  if (isCode || !realOf(field.text)) canBeReal_ = canBeWhole_ = canBeInt_ = false;
  if (!whole) {
    canBeWhole_ = canBeInt_ = false;
    return;
  }
  constexpr std::int64_t exact = std::int64_t{1} << 53;
  if (*whole > exact || *whole < -exact) hasLong_ = true;
  if (!std::in_range<std::int32_t>(*whole)) canBeInt_ = false;
}

TableColumn TypeGuess::column() const {
  TableColumn column;
  if (hasValue_ && canBeBool_) {
    column.type = "bool";
  } else if (hasValue_ && canBeInt_) {
    column.type = "int";
  } else if (hasValue_ && canBeWhole_) {
    column.type = "long";
  } else if (hasValue_ && canBeReal_ && !hasLong_) {
    column.type = "double";
  } else {
    column.type = "string";
    column.length = static_cast<std::int64_t>(std::min(longest_, longestText));
  }
  return column;
}

std::vector<TableColumn> givenTypes(const std::string& text) {
  static const std::regex form(R"(\s*(\w+)\s+(int|ApexInt|long|float|double|bool|string))"
                               R"((?:\((\d{1,5})\))?(?:\s+(\d{1,5}))?\s*)");
  std::vector<TableColumn> columns;
  for (std::size_t begin = 0; begin <= text.size();) {
    const std::size_t end = std::min(text.find(',', begin), text.size());
    const std::string part = text.substr(begin, end - begin);
    std::smatch match;
    if (!std::regex_match(part, match, form) || !isFreeName(match[1].str())) {
      throw Failure(exitWrongUse, "--types takes \"name type, ...\", not '" + visible(part) + "'");
    }
    TableColumn& column = columns.emplace_back();
    column.name = match[1];
    column.type = match[2];
    if (column.isText()) column.length = match[3].matched ? std::stol(match[3]) : 60;
    if (match[4].matched) column.states = std::stol(match[4]);
    begin = end + 1;
  }
  return columns;
}

}  // namespace tool
