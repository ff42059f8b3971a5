// See open.h.
#include "open.h"

#include <cstdio>
#include <fstream>

#include "failure.h"
#include "output/text.h"

namespace tool {
namespace {

// The name of a process's program; empty where the system does not say.
std::string programOf(std::int64_t process) {
  std::ifstream file("/proc/" + std::to_string(process) + "/comm");
  std::string name;
  std::getline(file, name);
  return visible(name);
}

std::string holderText(std::int64_t process) {
  if (process == 0) return "another process";
  const std::string program = programOf(process);
  return "process " + std::to_string(process) + (program.empty() ? "" : " (" + program + ")");
}

}  // namespace

std::uint32_t changeFlags(bool isReadOnly, bool mayCreate) {
  if (isReadOnly && mayCreate) {
    throw Failure(exitWrongUse, "--read-only does not go with --create");
  }
  if (isReadOnly) return toRead;
  return mayCreate ? VELMORA_CREATE : 0;
}

std::string openingText(const std::string& directory, const velmora::Error& error) {
  const std::string place = visible(directory) + ": ";
  switch (error.code()) {
    case VELMORA_BUSY:
      return place + "in use by " + holderText(error.process());
    case VELMORA_NOT_FOUND:
      return place + (error.systemError() != 0 ? "there is no such directory"
                                               : "there is no database in this directory");
    case VELMORA_CORRUPT:
      return place + "damaged: " + visible(error.what()) +
             "\nvelmora-tool check lists the faults, velmora-tool repair saves what can be read.";
    default: {
      std::string text = place + visible(error.what());
      if (error.systemError() != 0) {
        text += ": " + std::generic_category().message(error.systemError());
      }
      return text;
    }
  }
}

void tellWarning(int level, std::string_view line) {
  if (level != VELMORA_LOG_INFORMATION) tell(visible(line));
}

OpenDatabase::OpenDatabase(const Common& common, std::uint32_t flags, TakeLine takeLine)
    : common_(common), takeLine_(std::move(takeLine)), isRepair_(flags == VELMORA_REPAIR) {
  velmora_options options = velmora::options(flags);
  options.context = this;
  options.progress = tellProgress;
  options.log = tellLog;
  if (common_.now) options.clock = tellSecond;
  try {
    database_.emplace(common_.directory, options);
  } catch (const velmora::Error& error) {
    progress_.clear();
    checkInterrupt();
    const std::string why = openingText(common_.directory, error);
    if (error.code() == VELMORA_BUSY) throw InUse(exitNotOpened, why);
    throw Failure(exitNotOpened, why);
  }
  progress_.clear();
  isOpen_ = true;
  interruptible_.emplace(*database_);
}

int OpenDatabase::tellProgress(void* context, const char* what, size_t length, std::uint64_t done,
                               std::uint64_t total) {
  static_cast<OpenDatabase*>(context)->progress_.tell({what, length}, done, total);
  return isInterrupted() ? 1 : 0;
}

void OpenDatabase::tellLog(void* context, int level, const char* text, size_t length) {
  auto& database = *static_cast<OpenDatabase*>(context);
  database.progress_.clear();
  // What makes the opening fail is told by its error.
  const bool isFault = level == VELMORA_LOG_ERROR && !database.isOpen_;
  if (!isFault || database.isRepair_) database.takeLine_(level, {text, length});
}

std::int64_t OpenDatabase::tellSecond(void* context) {
  return *static_cast<OpenDatabase*>(context)->common_.now;
}

}  // namespace tool
