// What the report tells of a database, gathered before anything is drawn.
#ifndef VELMORA_TOOLS_REPORT_FACTS_H
#define VELMORA_TOOLS_REPORT_FACTS_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "copy/catalogue.h"

namespace tool {

struct Fault {
  std::string file;
  std::int64_t offset = -1;
  std::string meaning;
};

// A timed value with what names it.
struct TimedCell {
  std::string row;
  std::string column;
  Plan plan;
  std::vector<std::string> texts;  // of the states
  std::optional<std::int64_t> nextChange;
};

struct TableFacts {
  TableShape shape;
  std::uint64_t bytes = 0;  // of its files
  std::size_t timedCount = 0;
  std::vector<TimedCell> cells;  // those that change next
};

// A change to come.
struct Change {
  std::int64_t second = 0;
  std::string table, row, column, value;
  bool cycles = false;
};

struct Facts {
  std::string directory;
  std::int64_t now = 0;
  std::uint64_t bytes = 0;
  std::vector<Fault> faults;
  bool isRead = false;  // else the faults are all that is known
  std::vector<TableFacts> tables;
  std::vector<LinkShape> links;
  std::vector<ListenerShape> listeners;
  std::size_t changeCount = 0;
  std::vector<Change> changes;  // the first ones
};

// Checks the files, which nobody may have open.
std::vector<Fault> findFaults(const std::string& directory);

// limit: the most timed values of a table, and the most changes.
void readFacts(velmora::Database& database, std::size_t limit, Facts& facts);

// Sizes of the files, with or without an open database.
void measureFiles(Facts& facts);

}  // namespace tool

#endif
