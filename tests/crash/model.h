// A simple model of the engine: what its tables hold after a sequence of commands, and what of it
// must be there after the process was killed.
//
// State is the tables in memory, with the engine's rules in their plainest form (every check walks
// every row). Model adds durability: the state at the last checkpoint and the commands logged
// since; after a kill the engine must hold what the log makes of that state.
#pragma once

#include <cstdint>
#include <limits>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "commands.h"

namespace velmora::crash {

struct ModelRow {
  std::vector<Value> cells;
  bool isDeleted = false;
  // The least second at which its parents were looked up. A replayed command can be of an earlier
  // one than the start that has made the row's link again: what was past by then counts no more.
  std::int64_t linkedSecond = std::numeric_limits<std::int64_t>::max();
};

struct ModelTable {
  std::vector<ModelRow> rows;
  std::string key;  // name of the key column
};

struct ModelLink {
  std::string child;
  std::string childColumn;
  std::string parent;
  std::string parentColumn;
  std::string fileName() const;
  auto operator<=>(const ModelLink&) const = default;
};

ModelLink linkOf(const Command& command);
Command commandOf(const ModelLink& link, std::int64_t second);

// What a command came to.
struct Effect {
  bool succeeded = false;
  int rowsAffected = 0;
  int changes = 0;  // scheduled changes of state
};

class State {
 public:
  std::map<std::string, ModelTable> tables;
  std::set<ModelLink> links;

  // Applies a command that changes tables; a replayed CREATE TABLE replaces its table.
  Effect apply(const Command& command, bool isReplayed);
  // What a checkpoint's files bring back: texts cut at 60 bytes, missing truth values false, keys
  // only where an identity makes them, links not yet made again.
  State fromFiles() const;
  // The answer to SELECT * of a table; nothing when there is none.
  std::optional<std::string> select(const std::string& table, std::int64_t second) const;
  // Whether live children still need this key of the table.
  bool isNeeded(const std::string& table, const std::string& key, std::int64_t second) const;
  // Whether every text is the key of a live row of a link's parent.
  bool hasKeys(const ModelLink& link, const std::vector<std::string>& keys) const;
  // Whether every live child of the link has the parents that it needs.
  bool holds(const ModelLink& link, std::int64_t second) const;

 private:
  Effect create(const Command& command, bool isReplayed);
  Effect insert(const Command& command);
  Effect update(const Command& command);
  Effect erase(const Command& command);
  Effect link(const Command& command, bool isReplayed);
  // Looks the row's parents up; whether all are there.
  bool linkRow(const std::string& table, ModelRow& row, std::int64_t second) const;
};

std::size_t columnIndex(const std::string& table, const std::string& column);

class Model {
 public:
  // Applies an acknowledged command.
  Effect run(const Command& command);
  // A CREATE TABLE that has written its file and not its log line: what the log says of an earlier
  // table of that name is then replayed over the new one.
  void createUnlogged(const Command& command);
  // A LINK that has written its log line and not its file.
  void linkUnfiled(const Command& command);
  // What a start at this second must find.
  State afterRestart(std::int64_t second) const;
  // What a start after a power failure finds if that has left so many of the logged commands, and
  // these of the tables that were dropped since the checkpoint. Links made since then by LINK
  // commands that are lost may be there or not, and are left out.
  State afterPowerFailure(std::size_t records, const std::set<std::string>& comeBack,
                          std::int64_t second) const;
  std::set<std::string> droppedTables() const;
  // The tables made since the checkpoint: their files may be there without their commands.
  std::set<std::string> createdTables() const;
  // The engine was killed (or stopped) and started again.
  void restart(std::int64_t second) {
    live_ = afterRestart(second);
    relationFiles_.insert(live_.links.begin(), live_.links.end());
    sandbox_.reset();
  }
  void checkpoint();

  const State& live() const { return live_; }
  bool inTransaction() const { return sandbox_.has_value(); }
  std::size_t logSize() const { return log_.size(); }
  // The links that have files, in force or not.
  const std::set<ModelLink>& relationFiles() const { return relationFiles_; }

  std::int64_t pendingChanges = 0;
  std::map<std::string, int> listeners;  // by target, with the number of conditions

 private:
  State live_;
  State base_;
  std::vector<Command> log_;
  std::set<ModelLink> relationFiles_;
  std::map<std::string, ModelTable> dropped_;  // of base_
  std::set<ModelLink> durableRelations_;       // those that the checkpoint has synced
  std::optional<State> sandbox_;               // the state at BEGIN
};

}  // namespace velmora::crash
