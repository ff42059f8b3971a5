// The database that the tests of single file operations begin with, and the operations that they
// interrupt: every kind of file, and among them writes that go over the end of a page of the file,
// since that is where the write of a process that is killed stops.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <ostream>
#include <vector>

#include "commands.h"

namespace velmora::crash {

inline constexpr std::int64_t firstSecond = 1'700'000'000;

Command schemaCommand(Kind kind, const std::string& table);
inline Command checkpointCommand() { return schemaCommand(Kind::checkpoint, ""); }

using Assignment = std::pair<std::string, Value>;
Command insertInto(const std::string& table, const std::vector<Assignment>& values);
Command updateOf(const std::string& table, const Assignment& value, const Comparison& where);
Command eraseFrom(const std::string& table, const Comparison& where);
Command listenTo(const std::string& target, int conditions);

Value timed(const std::string& first, const std::string& second, bool repeats);
// A timed value of so many states.
Value phases(int count);

// Every kind of file, with old rows and slots, and a log whose order a link would not allow.
std::vector<Command> preparation();
// The same with small tables only, before the checkpoint and behind it.
std::vector<Command> smallPreparation();
std::vector<Command> loggedPreparation();
// What the log does not know: only a checkpoint makes it durable.
std::vector<Command> rolledBackChanges();
// Rows that the files hold when they are taken off again.
std::vector<Command> rollbackOfStoredRows();
// What an engine is told afterwards. A table of the name of another one is made.
std::vector<Command> laterCommands();

struct Operation {
  const char* name;
  std::optional<Command> command;  // none: the stop
  bool needsEmptyLog = false;
  bool endsPageBeforeWhere = false;
  bool takesStoredRowsOff = false;
  // The command as it is given to an engine in the directory: if wanted so long that the line feed
  // in front of its WHERE is the last byte of a page of the log.
  Command commandIn(const std::filesystem::path& directory) const;
};
std::ostream& operator<<(std::ostream& stream, const Operation& operation);

std::vector<Operation> operations();
// A file that DROP TABLE cannot delete is ignored by design, so failures have nothing to show
// there.
std::vector<Operation> operationsThatMayFail();

}  // namespace velmora::crash
