// velmora.manifest: what a checkpoint for handles has left, a text file for people.
//
//   velmora manifest 1
//   sequence N                                of the log's first record
//   second S                                  the latest that a command has run at
//   link CHILD.COLUMN --> PARENT.COLUMN       by child, each one's in the order they were made
//   file NAME SIZE CRC                        by name; the CRC-32C in hexadecimal
//   end CRC                                   of all that stands before it
//
// There is nothing else in it. The log changes behind a checkpoint and is not among the files.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "block_io.h"
#include "storage.h"

namespace velmora {

struct Manifest {
  std::uint64_t nextSequence = 1;
  std::int64_t second = 0;
  std::vector<Relation> links;
  std::map<std::string, Seal, std::less<>> files;
};

std::string manifestText(const Manifest& manifest);
// What the lines say that can be read. Where the text is not what was written, fault(offset) is
// called.
Manifest parseManifest(std::string_view text,
                       const std::function<void(std::int64_t offset)>& fault);

// The file's seal; nothing when there is none. Throws std::runtime_error "Failed to read file:
// NAME", and NotRegularFile.
std::optional<Seal> sealOf(
    const Directory& directory, const std::string& name,
    const CountBytes& count = [](std::size_t) {});
// The seal that the file is to have behind the patch, which the directory awaits, from the one that
// it has; only what changes is read, and nothing of a file that is cut off: then all is. Throws as
// above.
std::optional<Seal> sealBehind(const Directory& directory, const std::string& name,
                               const Patch& patch, const Seal& seal);

}  // namespace velmora
