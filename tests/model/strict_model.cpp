// See strict_model.h.
#include "model/strict_model.h"

#include <algorithm>
#include <charconv>
#include <numeric>

namespace model::strict {
namespace {

// The codes of the public header.
constexpr int exists = 5;
constexpr int notFound = 4;
constexpr int duplicate = 6;
constexpr int missingParent = 7;
constexpr int restricted = 8;
constexpr int wrongType = 9;

using Rows = std::vector<const std::vector<Cell>*>;  // of the left and of the right table

std::string counted(std::size_t rows) {
  return std::to_string(rows) + (rows == 1 ? " row" : " rows");
}

const Value& valueOf(const Rows& rows, const Output& output, std::int64_t second) {
  return (*rows[output.isRight ? 1 : 0])[output.column].at(second);
}

bool holds(const Comparison& comparison, const std::string& type, const Value& value) {
  if (comparison.op == "IS NULL") return isNull(value);
  if (comparison.op == "IS NOT NULL") return !isNull(value);
  if (isNull(value) || isNull(comparison.wanted)) return false;
  Value wanted = comparison.wanted;
  double* const real = std::get_if<double>(&wanted);
  if (real != nullptr && type == "float") *real = static_cast<double>(static_cast<float>(*real));
  const int order = compare(value, wanted);
  if (comparison.op == "=") return order == 0;
  if (comparison.op == "!=") return order != 0;
  if (comparison.op == "<") return order < 0;
  if (comparison.op == ">") return order > 0;
  return comparison.op == "<=" ? order <= 0 : order >= 0;
}

// && binds tighter than ||.
template <typename Holds>
bool passes(const Filter& filter, Holds holdsFor) {
  bool isAny = filter.empty();
  bool isAll = false;
  for (const Comparison& each : filter) {
    if (each.beginsGroup) isAny = isAny || isAll;
    isAll = (each.beginsGroup || isAll) && holdsFor(each);
  }
  return isAny || isAll;
}

Value total(const Output& output, const std::vector<Rows>& group, std::int64_t second) {
  if (output.function == "COUNT(*)") return static_cast<std::int64_t>(group.size());
  std::vector<Value> given;
  for (const Rows& rows : group) {
    const Value& value = valueOf(rows, output, second);
    if (!isNull(value)) given.push_back(value);
  }
  if (output.function == "COUNT") return static_cast<std::int64_t>(given.size());
  if (given.empty()) return {};
  const auto isLess = [](const Value& a, const Value& b) { return compare(a, b) < 0; };
  if (output.function == "MIN") return *std::min_element(given.begin(), given.end(), isLess);
  if (output.function == "MAX") return *std::max_element(given.begin(), given.end(), isLess);
  double real = 0;
  std::int64_t whole = 0;
  for (const Value& value : given) {
    if (const auto* const number = std::get_if<std::int64_t>(&value)) whole += *number;
    if (const auto* const number = std::get_if<double>(&value)) real += *number;
  }
  const bool isReal = std::holds_alternative<double>(given.front());
  if (output.function == "AVG") {
    return (isReal ? real : static_cast<double>(whole)) / static_cast<double>(given.size());
  }
  return isReal ? Value(real) : Value(whole);
}

bool isGrouped(const Select& select) {
  const auto isTotal = [](const Output& output) { return !output.function.empty(); };
  return !select.groupBy.empty() ||
         std::any_of(select.outputs.begin(), select.outputs.end(), isTotal);
}

}  // namespace

std::string shown(const Value& value) {
  if (isNull(value)) return "NULL";
  if (const auto* const number = std::get_if<std::int64_t>(&value)) return std::to_string(*number);
  if (const auto* const truth = std::get_if<bool>(&value)) return *truth ? "true" : "false";
  if (const auto* const real = std::get_if<double>(&value)) {
    char digits[64];
    return {digits, std::to_chars(digits, digits + sizeof digits, *real).ptr};
  }
  const auto& text = std::get<std::string>(value);
  return text.empty() || text.find(' ') != std::string::npos ? "'" + text + "'" : text;
}

int compare(const Value& a, const Value& b) {
  const auto order = [](const auto& x, const auto& y) { return x < y ? -1 : x > y ? 1 : 0; };
  if (isNull(a) || isNull(b)) return order(isNull(a) ? 0 : 1, isNull(b) ? 0 : 1);
  if (const auto* const text = std::get_if<std::string>(&a)) {
    return order(*text, std::get<std::string>(b));
  }
  if (const auto* const truth = std::get_if<bool>(&a)) {
    return order(*truth ? 1 : 0, std::get<bool>(b) ? 1 : 0);
  }
  const auto number = [](const Value& value) -> long double {
    if (const auto* const whole = std::get_if<std::int64_t>(&value)) {
      return static_cast<long double>(*whole);
    }
    return static_cast<long double>(std::get<double>(value));
  };
  return order(number(a), number(b));
}

const Value& Cell::at(std::int64_t second) const {
  std::int64_t elapsed = second - start;
  std::int64_t length = 0;
  for (const auto& state : states) length += state.second;
  if (elapsed < 0 || states.size() == 1) return states.front().first;
  if (cycles) elapsed %= length;
  for (const auto& [value, seconds] : states) {
    if (elapsed < seconds) return value;
    elapsed -= seconds;
  }
  return states.back().first;
}

std::vector<Value> Cell::coming(std::int64_t second) const {
  std::vector<Value> values;
  if (!cycles) {
    std::int64_t end = start;
    for (const auto& [value, seconds] : states) {
      end += seconds;
      if (end > second || &value == &states.back().first) values.push_back(value);
    }
    return values;
  }
  for (const auto& state : states) values.push_back(state.first);
  return values;
}

std::size_t Table::position(const std::string& column) const {
  const auto found = std::find_if(columns.begin(), columns.end(),
                                  [&](const Column& each) { return each.name == column; });
  return static_cast<std::size_t>(found - columns.begin());
}

std::optional<std::size_t> Model::keyOf(const std::string& name) const {
  const Table& table = tables.at(name);
  if (table.columns.front().type == "ApexInt") return 0;
  for (const Link& link : links) {
    if (link.parent == name) return table.position(link.parentColumn);
  }
  return std::nullopt;
}

bool Model::isReferred(const std::string& table, const Value& key) const {
  for (const Link& link : links) {
    if (link.parent != table) continue;
    const Table& child = tables.at(link.child);
    const std::size_t column = child.position(link.childColumn);
    for (const auto& row : child.rows) {
      for (const Value& value : row[column].coming(now)) {
        if (!isNull(value) && compare(value, key) == 0) return true;
      }
    }
  }
  return false;
}

void Model::checkParents(const std::string& table, const std::vector<Cell>& row) const {
  for (const Link& link : links) {
    if (link.child != table) continue;
    const Table& parent = tables.at(link.parent);
    const std::size_t key = parent.position(link.parentColumn);
    for (const Value& value : row[tables.at(table).position(link.childColumn)].coming(now)) {
      const auto isIt = [&](const auto& each) { return compare(each[key].at(now), value) == 0; };
      const bool isThere = std::any_of(parent.rows.begin(), parent.rows.end(), isIt);
      if (!isNull(value) && !isThere) throw Refused{missingParent};
    }
  }
}

void Model::checkKeys(const std::string& name) const {
  const auto key = keyOf(name);
  if (!key) return;
  const Table& table = tables.at(name);
  for (const auto& row : table.rows) {
    if (row[*key].isTimed() || isNull(row[*key].at(now))) throw Refused{wrongType};
  }
  for (const auto& row : table.rows) {
    const auto isSame = [&](const auto& each) {
      return compare(each[*key].at(now), row[*key].at(now)) == 0;
    };
    if (std::count_if(table.rows.begin(), table.rows.end(), isSame) > 1) throw Refused{duplicate};
  }
}

std::string Model::insert(const std::string& name, const Assignments& given) {
  Table& table = tables.at(name);
  const Table before = table;
  auto& row = table.rows.emplace_back(table.columns.size());
  for (const auto& [column, cell] : given) row[column] = cell;
  const bool isNumbered = table.columns.front().type == "ApexInt";
  if (isNumbered) row[0].states.front().first = table.lastNumber + 1;
  try {
    checkKeys(name);
    checkParents(name, row);
  } catch (const Refused&) {
    table = before;
    throw;
  }
  if (!isNumbered) return counted(1);
  return counted(1) + ", number " + std::to_string(++table.lastNumber);
}

std::string Model::update(const std::string& name, const Assignments& given, const Filter& filter) {
  Table& table = tables.at(name);
  const Table before = table;
  std::vector<std::size_t> matched;
  for (std::size_t i = 0; i < table.rows.size(); ++i) {
    const auto holdsFor = [&](const Comparison& each) {
      return holds(each, table.columns[each.column].type, table.rows[i][each.column].at(now));
    };
    if (passes(filter, holdsFor)) matched.push_back(i);
  }
  const auto key = keyOf(name);
  try {
    for (const auto& [column, cell] : given) {
      const bool isNoKey = cell.isTimed() || isNull(cell.at(now));
      if (column == key && isNoKey) throw Refused{wrongType};
      for (const std::size_t i : matched) {
        const Value old = table.rows[i][column].at(now);
        const bool isMoved = column == key && compare(old, cell.at(now)) != 0;
        if (isMoved && isReferred(name, old)) throw Refused{restricted};
        table.rows[i][column] = cell;
        if (column == key) checkKeys(name);
      }
    }
    const auto isLinked = [&](const Link& link) {
      const auto isOf = [&](const auto& each) {
        return table.columns[each.first].name == link.childColumn;
      };
      return link.child == name && std::any_of(given.begin(), given.end(), isOf);
    };
    if (std::any_of(links.begin(), links.end(), isLinked)) {
      for (const std::size_t i : matched) checkParents(name, table.rows[i]);
    }
  } catch (const Refused&) {
    table = before;
    throw;
  }
  return counted(matched.size());
}

std::string Model::remove(const std::string& name, const Filter& filter) {
  Table& table = tables.at(name);
  const Table before = table;
  const auto key = keyOf(name);
  std::vector<Value> gone;
  std::erase_if(table.rows, [&](const std::vector<Cell>& row) {
    const auto holdsFor = [&](const Comparison& each) {
      return holds(each, table.columns[each.column].type, row[each.column].at(now));
    };
    if (!passes(filter, holdsFor)) return false;
    if (key) gone.push_back(row[*key].at(now));
    return true;
  });
  for (const Value& value : gone) {
    if (!isReferred(name, value)) continue;
    table = before;
    throw Refused{restricted};
  }
  return counted(before.rows.size() - table.rows.size());
}

std::string Model::select(const Select& select, std::int64_t second) const {
  const Table& left = tables.at(select.table);
  const Table* const right = select.joined.empty() ? nullptr : &tables.at(select.joined);
  std::vector<Rows> found;
  const auto offer = [&](const Rows& rows) {
    const auto holdsFor = [&](const Comparison& each) {
      const Table& table = each.isRight ? *right : left;
      return holds(each, table.columns[each.column].type,
                   (*rows[each.isRight ? 1 : 0])[each.column].at(second));
    };
    if (passes(select.filter, holdsFor)) found.push_back(rows);
  };
  for (const auto& row : left.rows) {
    if (right == nullptr) offer({&row});
    for (std::size_t i = 0; right != nullptr && i < right->rows.size(); ++i) {
      const Value& a = row[select.leftOn].at(second);
      const Value& b = right->rows[i][select.rightOn].at(second);
      if (!isNull(a) && !isNull(b) && compare(a, b) == 0) offer({&row, &right->rows[i]});
    }
  }
  std::vector<std::vector<Rows>> groups;
  if (!isGrouped(select)) {
    for (const Rows& rows : found) groups.push_back({rows});
  } else if (select.groupBy.empty()) {
    groups.push_back(found);
  } else {
    for (const Rows& rows : found) {
      const auto isSame = [&](const std::vector<Rows>& group) {
        return std::all_of(select.groupBy.begin(), select.groupBy.end(), [&](const Output& each) {
          return compare(valueOf(rows, each, second), valueOf(group.front(), each, second)) == 0;
        });
      };
      const auto group = std::find_if(groups.begin(), groups.end(), isSame);
      if (group == groups.end()) {
        groups.push_back({rows});
      } else {
        group->push_back(rows);
      }
    }
  }
  const auto outputOf = [&](const std::vector<Rows>& group, const Output& output) {
    return output.function.empty() ? valueOf(group.front(), output, second)
                                   : total(output, group, second);
  };
  std::stable_sort(groups.begin(), groups.end(), [&](const auto& a, const auto& b) {
    for (const auto& [output, descends] : select.orderBy) {
      const int order = compare(outputOf(a, output), outputOf(b, output));
      if (order != 0) return descends ? order > 0 : order < 0;
    }
    return false;
  });
  std::string text;
  const std::size_t first = std::min(select.offset, groups.size());
  const std::size_t count = std::min(select.limit.value_or(groups.size()), groups.size() - first);
  for (std::size_t i = first; i < first + count; ++i) {
    if (i > first) text += "; ";
    for (const Output& output : select.outputs) {
      if (&output != &select.outputs.front()) text += " ";
      text += shown(outputOf(groups[i], output));
    }
  }
  return text;
}

std::string Model::schedule(std::int64_t until) const {
  std::string text;
  for (std::int64_t second = now + 1; second <= until; ++second) {
    for (const auto& [name, table] : tables) {
      const auto key = keyOf(name);
      for (const auto& row : table.rows) {
        for (std::size_t i = 0; i < row.size(); ++i) {
          const Value& value = row[i].at(second);
          if (compare(value, row[i].at(second - 1)) == 0) continue;
          text += std::to_string(second) + " " + name + " " +
                  (key ? shown(row[*key].at(now)) : "NULL") + " " + table.columns[i].name + " " +
                  shown(value) + (row[i].cycles ? " true\n" : " false\n");
        }
      }
    }
  }
  return text;
}

void Model::link(const Link& link) {
  if (std::find(links.begin(), links.end(), link) != links.end()) throw Refused{exists};
  links.push_back(link);
  try {
    checkKeys(link.parent);
    for (const auto& row : tables.at(link.child).rows) checkParents(link.child, row);
  } catch (const Refused&) {
    links.pop_back();
    throw;
  }
}

void Model::unlink(const Link& link) {
  if (std::erase(links, link) == 0) throw Refused{notFound};
}

void Model::drop(const std::string& table) {
  const auto isParent = [&](const Link& link) { return link.parent == table; };
  if (std::any_of(links.begin(), links.end(), isParent)) throw Refused{restricted};
  std::erase_if(links, [&](const Link& link) { return link.child == table; });
  tables.erase(table);
}

}  // namespace model::strict
