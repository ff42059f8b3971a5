// See disk_journal.h.
#include "disk_journal.h"

#include <cstdint>
#include <cstring>
#include <fstream>
#include <iterator>

namespace velmora::crash {
namespace {

void putText(std::string& out, const std::string& text) {
  const auto size = static_cast<std::uint32_t>(text.size());
  char bytes[sizeof size];
  std::memcpy(bytes, &size, sizeof size);
  out.append(bytes, sizeof size).append(text);
}

std::string takeText(const std::string& bytes, std::size_t& position) {
  std::uint32_t size = 0;
  std::memcpy(&size, bytes.data() + position, sizeof size);
  const std::size_t start = position + sizeof size;
  position = start + size;
  return bytes.substr(start, size);
}

}  // namespace

void DiskJournal::add(const FileEvent& event, int wish) {
  settle();
  DiskStep step;
  step.operation = event.operation;
  step.name = event.name;
  if (event.target != nullptr) step.target = event.target;
  step.hasFailed = wish != 0;
  steps_.push_back(step);
  isSettled_ = false;
}

// The operation has been made by now.
void DiskJournal::settle() {
  if (isSettled_) return;
  isSettled_ = true;
  DiskStep& step = steps_.back();
  if (step.operation != FileOperation::open && step.operation != FileOperation::write &&
      step.operation != FileOperation::truncate) {
    return;
  }
  std::ifstream file(step.name, std::ios::binary);
  step.isThere = file.is_open();
  step.bytes.assign(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

std::string DiskJournal::take() {
  settle();
  std::string bytes;
  for (const DiskStep& step : steps_) {
    bytes += static_cast<char>(step.operation);
    bytes += static_cast<char>(step.hasFailed);
    bytes += static_cast<char>(step.isThere);
    putText(bytes, step.name);
    putText(bytes, step.target);
    putText(bytes, step.bytes);
  }
  steps_.clear();
  return bytes;
}

std::vector<DiskStep> DiskJournal::read(const std::string& bytes) {
  std::vector<DiskStep> steps;
  for (std::size_t position = 0; position < bytes.size();) {
    DiskStep step;
    step.operation = static_cast<FileOperation>(bytes[position++]);
    step.hasFailed = bytes[position++] != 0;
    step.isThere = bytes[position++] != 0;
    step.name = takeText(bytes, position);
    step.target = takeText(bytes, position);
    step.bytes = takeText(bytes, position);
    steps.push_back(std::move(step));
  }
  return steps;
}

}  // namespace velmora::crash
