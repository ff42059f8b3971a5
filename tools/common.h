// What every verb takes: the directory of a database, the form of the output, and the second that
// is taken for now.
#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <optional>
#include <string>

#include "output/output.h"

namespace tool {

struct Common {
  std::string directory;
  Format format = usualFormat();
  std::optional<std::int64_t> now;  // none: the system's

  // The second that it is.
  std::int64_t second() const;
};

// Throws Failure with exitWrongUse where there is none.
Format formatNamed(const std::string& name);

// Adds the argument DIRECTORY, unless the verb calls for others, and the common options.
void addDirectory(CLI::App& app, Common& common);
void addOptions(CLI::App& app, Common& common);

}  // namespace tool
