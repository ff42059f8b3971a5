// See simulated_disk.h.
#include "simulated_disk.h"

#include <algorithm>

namespace velmora::crash {
namespace {

using Random = std::mt19937_64;

constexpr std::size_t sectorSize = 512;  // what a disk writes whole or not at all

std::size_t upTo(std::size_t most, Random& random) {
  return std::uniform_int_distribution<std::size_t>(0, most)(random);
}

// Each sector of the beginning that both have as it was or as it is now.
std::string mixed(const std::string& old, std::string now, Random& random) {
  const std::size_t both = std::min(old.size(), now.size());
  for (std::size_t start = 0; start < both; start += sectorSize) {
    const std::size_t size = std::min(sectorSize, both - start);
    if (upTo(1, random) == 1) now.replace(start, size, old, start, size);
  }
  return now;
}

// Zeros in the place of some pages behind the old end.
std::string withoutPages(std::string now, std::size_t oldSize, Random& random) {
  constexpr std::size_t pageSize = 4096;
  for (std::size_t start = oldSize; start < now.size();) {
    const std::size_t end = std::min((start / pageSize + 1) * pageSize, now.size());
    if (upTo(1, random) == 1) now.replace(start, end - start, end - start, '\0');
    start = end;
  }
  return now;
}

}  // namespace

SimulatedDisk::SimulatedDisk(const Files& files) {
  for (const auto& [name, bytes] : files) {
    names_[name] = files_.size();
    files_.push_back({bytes, bytes});
  }
  durableNames_ = names_;
}

bool SimulatedDisk::apply(const DiskStep& step) {
  const auto found = names_.find(step.name);
  const bool isKnown = found != names_.end();
  switch (step.operation) {
    case FileOperation::open:
    case FileOperation::write:
    case FileOperation::truncate: {
      if (!step.isThere) return false;
      if (isKnown) {
        Content& content = files_[found->second];
        if (content.bytes == step.bytes) return false;
        content.bytes = step.bytes;
        return true;
      }
      changes_.push_back({files_.size(), "", step.name});
      files_.push_back({step.bytes, ""});
      break;
    }
    case FileOperation::rename:
      if (step.hasFailed || !isKnown) return false;
      changes_.push_back({found->second, step.name, step.target});
      break;
    case FileOperation::remove:
      if (step.hasFailed || !isKnown) return false;
      changes_.push_back({found->second, step.name, ""});
      break;
    case FileOperation::sync:
      if (step.hasFailed) return false;
      if (step.name == ".") {
        durableNames_ = names_;
        changes_.clear();
      } else if (isKnown) {
        files_[found->second].synced = files_[found->second].bytes;
      }
      return false;
    default:
      return false;
  }
  change(names_, changes_.back());
  return true;
}

// Leaves a change out that makes no sense without others that were left out.
void SimulatedDisk::change(Names& names, const Change& change) {
  if (!change.oldName.empty()) {
    const auto old = names.find(change.oldName);
    if (old == names.end() || old->second != change.file) return;
    names.erase(old);
  } else if (names.contains(change.newName)) {
    return;
  }
  if (!change.newName.empty()) names[change.newName] = change.file;
}

Files SimulatedDisk::current() const {
  Files files;
  for (const auto& [name, file] : names_) files[name] = files_[file].bytes;
  return files;
}

// What each file that was written and not synced may hold; the first is what was written, the
// second what was synced.
std::map<SimulatedDisk::FileNumber, std::vector<std::string>> SimulatedDisk::variantsOfFiles(
    Random& random) const {
  std::map<FileNumber, std::vector<std::string>> all;
  for (FileNumber file = 0; file < files_.size(); ++file) {
    const auto& [bytes, synced] = files_[file];
    if (bytes == synced) continue;
    std::vector<std::string>& variants = all[file];
    variants = {bytes, synced};
    const std::size_t old = std::min(bytes.size(), synced.size());
    const std::size_t more = bytes.size() - old;
    if (more > 0) variants.push_back(bytes.substr(0, old) + std::string(more, '\0'));
    if (losesPages_ && more > 0) variants.push_back(withoutPages(bytes, old, random));
    for (int i = 0; i < 2; ++i) {
      variants.push_back(mixed(synced, bytes.substr(0, old + upTo(more, random)), random));
    }
  }
  return all;
}

Files SimulatedDisk::chosen(const Choice& choice,
                            const std::map<FileNumber, std::vector<std::string>>& variants) const {
  Names names = durableNames_;
  for (std::size_t i = 0; i < changes_.size(); ++i) {
    if (choice.changes[i]) change(names, changes_[i]);
  }
  Files files;
  for (const auto& [name, file] : names) {
    const auto several = variants.find(file);
    const auto variant = choice.variants.find(file);
    files[name] = several == variants.end()
                      ? files_[file].bytes
                      : several->second[variant == choice.variants.end() ? 0 : variant->second];
  }
  return files;
}

// Everything, nothing, the first changes, all but one, one alone; with everything written and with
// nothing of it; and each file's contents beside everything else.
std::vector<SimulatedDisk::Choice> SimulatedDisk::plainChoices(
    const std::map<FileNumber, std::vector<std::string>>& variants) const {
  const std::size_t count = changes_.size();
  std::vector<std::vector<bool>> subsets;
  for (std::size_t i = 0; i <= count; ++i) {
    std::vector<bool> subset(count);
    std::fill_n(subset.begin(), i, true);
    subsets.push_back(subset);
  }
  for (std::size_t i = 0; i < count; ++i) {
    std::vector<bool> allButOne(count, true);
    allButOne[i] = false;
    subsets.push_back(allButOne);
    allButOne.flip();
    subsets.push_back(allButOne);
  }
  Choice everySynced;
  for (const auto& [file, contents] : variants) everySynced.variants[file] = 1;
  std::vector<Choice> choices;
  for (const std::vector<bool>& subset : subsets) {
    choices.push_back({subset, {}});
    choices.push_back({subset, everySynced.variants});
  }
  for (const auto& [file, contents] : variants) {
    for (std::size_t i = 0; i < contents.size(); ++i) {
      choices.push_back({std::vector<bool>(count, true), {{file, i}}});
    }
  }
  return choices;
}

std::set<Files> SimulatedDisk::afterPowerFailure(std::size_t most, Random& random) const {
  const auto variants = variantsOfFiles(random);
  std::vector<Choice> plain = plainChoices(variants);
  std::shuffle(plain.begin(), plain.end(), random);
  std::set<Files> states;
  for (const Choice& choice : plain) {
    if (states.size() < (most + 1) / 2) states.insert(chosen(choice, variants));
  }
  // Where there are not many different states, most of these are none.
  for (std::size_t i = 0; i < 2 * most && states.size() < most; ++i) {
    Choice choice;
    for (std::size_t k = 0; k < changes_.size(); ++k) {
      choice.changes.push_back(upTo(1, random) == 1);
    }
    for (const auto& [file, contents] : variants) {
      choice.variants[file] = upTo(contents.size() - 1, random);
    }
    states.insert(chosen(choice, variants));
  }
  return states;
}

}  // namespace velmora::crash
