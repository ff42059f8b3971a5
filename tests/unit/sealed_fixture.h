// Databases for handles in a directory of their own: tables made cell by cell, everything that they
// hold as one text to compare, and checkpoints.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "storage/sealed.h"
#include "storage_fixture.h"

namespace velmora {

class SealedTest : public StorageTest {
 protected:
  using Files = std::map<std::string, std::string>;
  using ListenerMap = std::map<std::string, std::set<Listener>, std::less<>>;

  static Table& addTable(Tables& tables, const std::string& name, std::vector<Column> columns) {
    return tables.insert_or_assign(name, Table(name, std::move(columns))).first->second;
  }
  static std::size_t addRow(Table& table, const std::vector<Value>& values) {
    const std::size_t row = table.appendRow();
    for (std::size_t i = 0; i < values.size(); ++i) table.setValue(row, i, values[i]);
    return row;
  }
  static Cell timed(const std::vector<std::string>& texts, bool repeat = true) {
    Cell cell;
    cell.tempRule = std::make_unique<TempRule>();
    for (const std::string& text : texts) {
      cell.tempRule->states.push_back({Text(text), 10});
      cell.tempRule->cycleLength += 10;
    }
    cell.tempRule->startTime = 1'700'000'000;
    cell.tempRule->repeat = repeat;
    return cell;
  }

  // A table of each type, with every sort of value that is hard to keep, and one that links to it.
  static Tables someTables() {
    Tables tables;
    Table& all = addTable(tables, "all",
                          {{"id", "ApexInt"},
                           {"n", "int", 2},
                           {"l", std::string(longType)},
                           {"f", "float"},
                           {"d", std::string(doubleType)},
                           {"b", "bool"},
                           {"s", "string", 3},
                           {"t", "string"}});
    const double tiny = static_cast<double>(1e-8F);
    addRow(all,
           {std::int64_t{1}, std::int64_t{-5}, std::int64_t{1} << 60, 0.1, 0.1, true, "x", "y"});
    addRow(all, {std::int64_t{2}, Value(), Value(), Value(), Value(), Value(), Value(), Value()});
    addRow(all, {std::int64_t{3}, std::int64_t{0}, std::int64_t{0}, tiny, -0.0, false, "", "#/#?"});
    const std::string euros = "\xe2\x82\xac\xe2\x82\xac";
    addRow(all, {std::int64_t{4}, std::int64_t{7}, std::int64_t{-1}, 16777217.0, 1e300, true,
                 std::string(60, 'z'), std::string(61, 'z')});
    addRow(all, {std::int64_t{5}, std::int64_t{7}, std::int64_t{1}, 3.4e38, 5e-324, true,
                 std::string("a\0b", 3), std::string("trailing\0", 9)});
    for (int i = 0; i < 4; ++i) addRow(all, {std::int64_t{6 + i}});
    all.set(5, 6, timed({"red", std::string(70, 'g'), euros}), 0);
    all.set(5, 1, timed({"1", "2"}, false), 0);
    all.setDeleted(6, true);
    all.set(7, 6, timed({std::string("n\0l", 3), "#/#?"}), 0);
    all.setUpPrimaryKeyMap("id", 0);
    Table& wide = addTable(tables, "wide", {{"s", "string", 0, 200}, {"b", "bool", 2}});
    addRow(wide, {std::string(199, 'w') + euros.substr(0, 3), Value()});
    addRow(wide, {"short", true});
    wide.set(1, 1, timed({"true", "false"}), 0);
    Table& child = addTable(tables, "child", {{"of", "int"}});
    addRow(child, {std::int64_t{1}});
    addRow(child, {std::int64_t{4}});
    child.links.push_back({"of", "all", "id"});
    addTable(tables, "empty", {{"n", "int"}});
    return tables;
  }
  static ListenerMap someListeners() {
    return {{"all", {{"all", "UPDATE", "a target", {{"", "n", "5", "=", 'o'}}}}},
            {"wide", {{"wide", "DELETE", "another", {}}, {"wide", "INSERT", "another", {}}}}};
  }

  // Everything that the tables hold, as a text.
  static std::string contentOf(const Tables& tables) {
    std::ostringstream out;
    for (const auto& [name, table] : tables) {
      out << name << '\n';
      for (const Column& column : table.columns) {
        out << column.name << ' ' << column.type << ' ' << column.maxStates << ' '
            << column.stringSize << '\n';
      }
      for (std::size_t row = 0; row < table.rowCount(); ++row) {
        out << (table.isLive(row) ? "live" : "deleted");
        for (std::size_t c = 0; c < table.columns.size(); ++c) putCell(out, table.values(c), row);
        out << '\n';
      }
    }
    return out.str();
  }
  static std::string contentOf(const SealedState& state) {
    std::ostringstream out;
    out << contentOf(state.tables);
    for (const Relation& link : state.links) {
      out << link.childTable << '.' << link.childColumn << ' ' << link.parentTable << '.'
          << link.parentColumn << '\n';
    }
    for (const Listener& listener : state.listeners) out << Storage::listenerRecord(listener);
    out << state.nextSequence << ' ' << state.second << '\n';
    return out.str();
  }

  void save(Tables& tables, const ListenerMap& listeners = {}, std::uint64_t nextSequence = 1,
            std::int64_t second = 1'700'000'000) const {
    saveSealed(tables, {listeners, nextSequence, second}, directory_, {});
  }
  // Loads without a fault.
  SealedState load() const {
    return loadSealed(directory_,
                      [](const std::string& file, std::int64_t offset, const std::string& meaning) {
                        ADD_FAILURE() << file << " " << offset << " " << meaning;
                      },
                      {});
  }
  struct Loaded {
    std::optional<SealedState> state;
    std::vector<std::string> faults;
  };
  Loaded tryToLoad() const {
    Loaded loaded;
    try {
      loaded.state = loadSealed(
          directory_,
          [&](const std::string& file, std::int64_t offset, const std::string& meaning) {
            loaded.faults.push_back(file + " " + std::to_string(offset) + ": " + meaning);
          },
          {});
    } catch (const Failure& failure) {
      loaded.faults.emplace_back(failure.what());
    }
    return loaded;
  }
  // The links and the tables' own numbers are made again, as an engine does at its start.
  static Tables tablesOf(SealedState state) {
    for (const Relation& link : state.links) {
      state.tables.at(link.childTable)
          .links.push_back({link.childColumn, link.parentTable, link.parentColumn});
    }
    return std::move(state.tables);
  }

  Files files() const {
    Files found;
    for (const auto& entry : std::filesystem::directory_iterator(path_)) {
      if (entry.path().extension() == ".spare") continue;
      found[entry.path().filename()] = bytesOf(entry.path().filename());
    }
    return found;
  }
  void putFiles(const Files& files) const {
    for (const auto& entry : std::filesystem::directory_iterator(path_)) {
      std::filesystem::remove(entry.path());
    }
    for (const auto& [name, bytes] : files) write(name, bytes);
  }

 private:
  static void putCell(std::ostream& out, const ColumnValues& values, std::size_t row) {
    const TempRule* const rule = values.rule(row);
    if (rule == nullptr) {
      const TypedValue value = values.value(row, 0);
      const std::string text = textOf(values.kind(), value);
      out << " | " << static_cast<int>(value.type) << ' ' << text.size() << ' ' << text;
      return;
    }
    out << " | " << rule->repeat << ' ' << rule->startTime << ' ' << rule->cycleLength;
    for (const TempState& state : rule->states) {
      out << ' ' << state.duration << ' ' << state.value.view().size() << ' ' << state.value.view();
    }
  }
};

}  // namespace velmora
