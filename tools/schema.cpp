// See schema.h.
#include "schema.h"

#include "copy/catalogue.h"
#include "copy/literals.h"

namespace tool {

std::string schemaCommands(velmora::Database& database, const std::string& table) {
  if (!table.empty()) database.run("SHOW COLUMNS FROM " + table);
  const Catalogue catalogue = readCatalogue(database);
  std::string commands;
  const auto add = [&](const std::string& of, const std::string& command) {
    if (table.empty() || of == table) commands += command + "\n";
  };
  for (const TableShape& each : catalogue.tables) add(each.name, createCommand(each));
  for (const LinkShape& each : catalogue.links) add(each.childTable, linkCommand(each));
  for (const ListenerShape& each : catalogue.listeners) add(each.table, listenCommand(each));
  return commands;
}

}  // namespace tool
