// See difference.h.
#include "copy/difference.h"

#include <map>
#include <set>

#include "copy/catalogue.h"
#include "copy/content.h"
#include "copy/literals.h"

namespace tool {
namespace {

using Texts = std::vector<std::string>;
using RowsByKey = std::map<std::string, Texts>;  // of each row its cells
using RowCounts = std::map<std::string, int>;

class Comparison {
 public:
  Comparison(velmora::Database& first, velmora::Database& second)
      : databases_{&first, &second}, catalogues_{readCatalogue(first), readCatalogue(second)} {}

  std::vector<Difference> run();

 private:
  void compareTables(const TableShape& first, const TableShape& second);
  // Whether the tables have the same columns; numbers to come may differ.
  bool compareColumns(const TableShape& first, const TableShape& second);
  void compareByKey(const TableShape& first, const TableShape& second);
  void compareWhole(const TableShape& first, const TableShape& second);
  RowsByKey rowsByKey(std::size_t side, const TableShape& table);
  template <typename Shape, typename Describe>
  void compareSets(const char* what, const std::vector<Shape>& first,
                   const std::vector<Shape>& second, Describe describe);
  void add(Difference difference) { found_.push_back(std::move(difference)); }

  velmora::Database* databases_[2];
  Catalogue catalogues_[2];
  std::vector<Difference> found_;
};

std::vector<Difference> Comparison::run() {
  const auto& [first, second] = catalogues_;
  for (const TableShape& table : first.tables) {
    const TableShape* const other = second.table(table.name);
    if (other == nullptr) {
      add({"table", table.name, "", "", createCommand(table), std::nullopt});
    } else {
      compareTables(table, *other);
    }
  }
  for (const TableShape& table : second.tables) {
    if (first.table(table.name) == nullptr) {
      add({"table", table.name, "", "", std::nullopt, createCommand(table)});
    }
  }
  compareSets("link", first.links, second.links, [](const LinkShape& link) {
    return Difference{"", link.childTable, "", link.childColumn, linkCommand(link), {}};
  });
  compareSets("listener", first.listeners, second.listeners, [](const ListenerShape& listener) {
    return Difference{"", listener.table, "", "", listenCommand(listener), {}};
  });
  return std::move(found_);
}

template <typename Shape, typename Describe>
void Comparison::compareSets(const char* what, const std::vector<Shape>& first,
                             const std::vector<Shape>& second, Describe describe) {
  const std::set<Shape> ofFirst(first.begin(), first.end());
  const std::set<Shape> ofSecond(second.begin(), second.end());
  for (const Shape& shape : ofFirst) {
    if (ofSecond.contains(shape)) continue;
    Difference difference = describe(shape);
    difference.what = what;
    add(difference);
  }
  for (const Shape& shape : ofSecond) {
    if (ofFirst.contains(shape)) continue;
    Difference difference = describe(shape);
    difference.what = what;
    std::swap(difference.first, difference.second);
    add(difference);
  }
}

void Comparison::compareTables(const TableShape& first, const TableShape& second) {
  if (!compareColumns(first, second)) return;
  if (first.key() != nullptr) {
    compareByKey(first, second);
  } else {
    compareWhole(first, second);
  }
}

bool Comparison::compareColumns(const TableShape& first, const TableShape& second) {
  bool areSame = first.columns.size() == second.columns.size();
  for (std::size_t i = 0; i < first.columns.size(); ++i) {
    const TableColumn& column = first.columns[i];
    const TableColumn* const other = second.column(column.name);
    if (other == nullptr) {
      add({"column", first.name, "", column.name, columnText(column), std::nullopt});
    } else if (!(column == *other)) {
      add({"column", first.name, "", column.name, columnText(column), columnText(*other)});
    }
    areSame = areSame && other != nullptr && column.isKey == other->isKey &&
              column.type == other->type && second.position(*other) == i;
  }
  for (const TableColumn& column : second.columns) {
    if (first.column(column.name) != nullptr) continue;
    add({"column", first.name, "", column.name, std::nullopt, columnText(column)});
  }
  return areSame;
}

RowsByKey Comparison::rowsByKey(std::size_t side, const TableShape& table) {
  RowsByKey rows;
  const std::size_t key = table.position(*table.key());
  forEachRow(*databases_[side], table, [&](const PlannedRow& row) {
    Texts cells;
    for (std::size_t i = 0; i < table.columns.size(); ++i) {
      cells.push_back(cellText(row, table, i));
    }
    std::string name = cells[key];
    rows.emplace(std::move(name), std::move(cells));
  });
  return rows;
}

std::string joined(const TableShape& table, const Texts& cells) {
  std::string text;
  for (std::size_t i = 0; i < cells.size(); ++i) {
    text += (i == 0 ? "" : " ") + table.columns[i].name + " = " + cells[i];
  }
  return text;
}

void Comparison::compareByKey(const TableShape& first, const TableShape& second) {
  RowsByKey others = rowsByKey(1, second);
  for (const auto& [key, cells] : rowsByKey(0, first)) {
    const auto other = others.find(key);
    if (other == others.end()) {
      add({"row", first.name, key, "", joined(first, cells), std::nullopt});
      continue;
    }
    for (std::size_t i = 0; i < cells.size(); ++i) {
      if (cells[i] == other->second[i]) continue;
      add({"value", first.name, key, first.columns[i].name, cells[i], other->second[i]});
    }
    others.erase(other);
  }
  for (const auto& [key, cells] : others) {
    add({"row", first.name, key, "", std::nullopt, joined(second, cells)});
  }
}

void Comparison::compareWhole(const TableShape& first, const TableShape& second) {
  RowCounts counts;  // more in the first one than in the second
  forEachRow(*databases_[0], first, [&](const PlannedRow& row) { ++counts[rowText(row, first)]; });
  forEachRow(*databases_[1], second,
             [&](const PlannedRow& row) { --counts[rowText(row, second)]; });
  for (const auto& [text, count] : counts) {
    for (int i = 0; i < count; ++i) add({"row", first.name, "", "", text, std::nullopt});
    for (int i = 0; i > count; --i) add({"row", first.name, "", "", std::nullopt, text});
  }
}

}  // namespace

std::vector<Difference> differences(velmora::Database& first, velmora::Database& second) {
  return Comparison(first, second).run();
}

}  // namespace tool
