// See content.h.
#include "copy/content.h"

#include <algorithm>

#include "copy/literals.h"
#include "copy/sha256.h"

namespace tool {
namespace {

Sha256::Digest digestOf(std::string_view text) {
  Sha256 hash;
  hash.add(text);
  return hash.digest();
}

// Every line tells its size, so that no two contents make the same lines.
void addLine(Sha256& hash, std::string_view line) {
  hash.add(std::to_string(line.size()) + " ");
  hash.add(line);
  hash.add("\n");
}

void addRows(Sha256& hash, velmora::Database& database, const TableShape& table) {
  std::vector<Sha256::Digest> digests;
  digests.reserve(static_cast<std::size_t>(table.rows));
  forEachRow(database, table,
             [&](const PlannedRow& row) { digests.push_back(digestOf(rowText(row, table))); });
  std::sort(digests.begin(), digests.end());
  for (const Sha256::Digest& digest : digests) {
    hash.add({reinterpret_cast<const char*>(digest.data()), digest.size()});
  }
}

}  // namespace

std::string cellText(const PlannedRow& row, const TableShape& table, std::size_t column) {
  const Plan* const plan = row.plan(column);
  if (plan == nullptr) return literal(row.row.at(column), table.columns[column]);
  std::string text = literal(*plan, table.columns[column]);
  // The language has the last state last as long as the one before it.
  if (!plan->canBeWritten()) {
    text += " @ " + std::to_string(plan->states.empty() ? 0 : plan->states.back().seconds) + " s";
  }
  return text + " #TIME# " + std::to_string(plan->start);
}

std::string rowText(const PlannedRow& row, const TableShape& table) {
  std::string text;
  for (std::size_t i = 0; i < table.columns.size(); ++i) {
    text += (i == 0 ? "" : " ") + table.columns[i].name + " = " + cellText(row, table, i);
  }
  return text;
}

std::string columnText(const TableColumn& column) {
  std::string text = column.type;
  if (column.isText()) text += "(" + std::to_string(column.length) + ")";
  if (column.states > 0) text += " " + std::to_string(column.states);
  if (column.isKey) text += ", key";
  if (column.isIdentity()) text += ", next " + std::to_string(column.nextNumber);
  return text;
}

std::string contentHash(velmora::Database& database) {
  Catalogue catalogue = readCatalogue(database);
  std::sort(catalogue.links.begin(), catalogue.links.end());
  std::sort(catalogue.listeners.begin(), catalogue.listeners.end());
  Sha256 hash;
  for (const TableShape& table : catalogue.tables) {
    addLine(hash, "TABLE " + table.name);
    for (const TableColumn& column : table.columns) {
      addLine(hash, column.name + " " + columnText(column));
    }
    addRows(hash, database, table);
  }
  for (const LinkShape& link : catalogue.links) addLine(hash, linkCommand(link));
  for (const ListenerShape& listener : catalogue.listeners) {
    addLine(hash, listenCommand(listener));
  }
  return hexadecimal(hash.digest());
}

}  // namespace tool
