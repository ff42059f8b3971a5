// See append_file.h.
#include "append_file.h"

#include <stdexcept>
#include <utility>

namespace velmora {

void AppendFile::check() {
  if (isCurrent_ && file_->isUntouched()) return;
  const auto found = identityOf(directory_, name_.c_str());
  isCurrent_ = identity_ && identity_ == found;
  if (isCurrent_) return;
  if (found && found->isForeign()) throw NotRegularFile(name_);
  const bool hasTear = tear_ && found && found->inode == tear_->inode;
  close();
  // The file that has the tear may give way to a copy of it, with another number.
  if (hasTear) tear_->inode = 0;
}

bool AppendFile::open() {
  if (isCurrent_) return true;
  file_.emplace(directory_, name_, File::Mode::append);
  identity_ = file_->identity();
  isCurrent_ = identity_.has_value();
  if (isCurrent_ && tear_ && tear_->inode == 0) tear_->inode = identity_->inode;
  return isCurrent_;
}

bool AppendFile::append(std::string_view bytes) {
  if (!open() || !cutTear()) return false;
  if (file_->write(bytes)) return true;
  const auto written = static_cast<std::int64_t>(file_->lastWritten());
  if (written == 0) return false;
  // The system leaves the position behind what it has appended, wherever the end was.
  tear_ = {identity_->inode, file_->position() - written};
  cutTear();
  return false;
}

bool AppendFile::sync() { return isCurrent_ && file_->sync(); }

std::optional<std::int64_t> AppendFile::end() {
  if (!open()) return std::nullopt;
  if (tear_ && tear_->inode == identity_->inode) return tear_->size;
  return file_->size();
}

bool AppendFile::cutTear() {
  if (tear_ && tear_->inode == identity_->inode) {
    const auto size = file_->size();
    if (!size || (*size > tear_->size && !file_->truncate(tear_->size))) return false;
  }
  tear_.reset();
  return true;
}

void AppendFile::cutTo(std::int64_t completeSize) {
  forget();
  File file(directory_, name_, File::Mode::change);
  const auto size = file.size();
  if (!size || (*size > completeSize && !file.truncate(completeSize))) {
    throw std::runtime_error("Failed to repair file: " + name_);
  }
}

void AppendFile::setName(const std::string& name) {
  if (name == name_) return;
  forget();
  name_ = name;
}

void AppendFile::forget() {
  close();
  tear_.reset();
}

void AppendFile::close() {
  isCurrent_ = false;
  identity_.reset();
  file_.reset();
}

}  // namespace velmora
