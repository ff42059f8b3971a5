// A directory as the system shows it, and as a disk may have it after a power failure.
//
// What was done to the directory since it was last synced may each be on the disk or not, in any
// combination, as long as it makes sense: no file gets another name that never got its first one. A
// file that was written since it was last synced may be as it was then, as it is now, in between,
// sector by sector, or as long as it is now and zero bytes instead of what it has more, or instead
// of some pages of that where this is asked for.
#pragma once

#include <cstddef>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "disk_journal.h"

namespace velmora::crash {

using Files = std::map<std::string, std::string>;

class SimulatedDisk {
 public:
  SimulatedDisk() = default;
  // A directory that is all on the disk.
  explicit SimulatedDisk(const Files& files);

  // From now on pages behind a file's synced end may be lost one by one.
  void losePages() { losesPages_ = true; }
  // Takes a step; false when nothing has changed that a power failure could take back.
  bool apply(const DiskStep& step);
  // What a killed process leaves.
  Files current() const;
  // What a power failure may leave: all of it if that is not more than so many, else the plain
  // cases and random ones.
  std::set<Files> afterPowerFailure(std::size_t most, std::mt19937_64& random) const;

 private:
  using FileNumber = std::size_t;
  using Names = std::map<std::string, FileNumber>;
  struct Content {
    std::string bytes;
    std::string synced;
  };
  // A change of the directory: the file loses its old name, or gets a new one, or both.
  struct Change {
    FileNumber file;
    std::string oldName;
    std::string newName;
  };
  // Which changes are on the disk, and which of its contents each file has.
  struct Choice {
    std::vector<bool> changes;
    std::map<FileNumber, std::size_t> variants;
  };

  static void change(Names& names, const Change& change);
  std::map<FileNumber, std::vector<std::string>> variantsOfFiles(std::mt19937_64& random) const;
  Files chosen(const Choice& choice,
               const std::map<FileNumber, std::vector<std::string>>& variants) const;
  std::vector<Choice> plainChoices(
      const std::map<FileNumber, std::vector<std::string>>& variants) const;

  Names names_;         // as the system shows them
  Names durableNames_;  // as they were when the directory was last synced
  std::vector<Change> changes_;
  std::vector<Content> files_;
  bool losesPages_ = false;
};

}  // namespace velmora::crash
