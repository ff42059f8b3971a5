// Opens databases for the verbs, and explains why one could not be opened.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "common.h"
#include "interrupt.h"
#include "progress.h"
#include "velmora/velmora.hpp"

namespace tool {

// Gets what the engine tells; see velmora_options.
using TakeLine = std::function<void(int level, std::string_view line)>;

// Puts it on standard error, unless it is mere information.
void tellWarning(int level, std::string_view line);

// A database with the tool's callbacks: progress on standard error, what the engine tells, and the
// second that is taken for now.
class OpenDatabase {
 public:
  // flags: of velmora_options. Throws Failure with exitNotOpened.
  OpenDatabase(const Common& common, std::uint32_t flags, TakeLine takeLine = tellWarning);

  velmora::Database& operator*() { return *database_; }
  velmora::Database* operator->() { return &*database_; }

 private:
  static int tellProgress(void* context, const char* what, size_t length, std::uint64_t done,
                          std::uint64_t total);
  static void tellLog(void* context, int level, const char* text, size_t length);
  static std::int64_t tellSecond(void* context);

  Common common_;
  TakeLine takeLine_;
  bool isRepair_;
  bool isOpen_ = false;
  Progress progress_;
  std::optional<velmora::Database> database_;
  std::optional<Interruptible> interruptible_;
};

inline constexpr std::uint32_t toRead = VELMORA_READ_ONLY;
// Of verbs that run commands. Throws Failure where the two do not go together.
std::uint32_t changeFlags(bool isReadOnly, bool mayCreate);

// What to say of a database that could not be opened, or checked.
std::string openingText(const std::string& directory, const velmora::Error& error);

}  // namespace tool
