// See files.h.
#include "files.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <memory>
#include <stdexcept>
#include <utility>

#include "../text.h"
#include "file_names.h"

namespace velmora {
namespace {

static_assert(Directory::current == AT_FDCWD);

std::atomic<FileHook> fileHook = nullptr;

// 0, or what the hook wants; a failing operation has its errno set.
int announce(FileOperation operation, const std::string& name, const char* target = nullptr) {
  const FileHook hook = fileHook.load(std::memory_order_relaxed);
  if (hook == nullptr) return 0;
  const int wish = hook({operation, name.c_str(), target});
  if (wish > 0) errno = wish;
  return wish;
}

int flagsOf(File::Mode mode) {
  switch (mode) {
    case File::Mode::read:
      return O_RDONLY;
    case File::Mode::change:
      return O_RDWR;
    case File::Mode::append:
      return O_WRONLY | O_CREAT | O_APPEND;
    case File::Mode::create:
      return O_WRONLY | O_CREAT | O_EXCL;
    case File::Mode::overwrite:
      return O_WRONLY;
  }
  return O_RDONLY;
}

// Asks for the identity alone: a file system that was asked for a file's times has to write the
// file's next ones out, and appending then takes twice as long.
std::optional<FileIdentity> identityAt(int descriptor, const char* name, int flags) {
  struct statx status;
  constexpr unsigned wanted =
      STATX_TYPE | STATX_MODE | STATX_INO | STATX_UID | STATX_GID | STATX_NLINK;
  if (statx(descriptor, name, flags, wanted, &status) != 0) return std::nullopt;
  const std::uint64_t device = std::uint64_t{status.stx_dev_major} << 32 | status.stx_dev_minor;
  return FileIdentity{device,         status.stx_ino, status.stx_mode,
                      status.stx_uid, status.stx_gid, status.stx_nlink};
}

// Calls a system function until it is not interrupted by a signal.
template <typename Call>
auto uninterrupted(Call call) {
  while (true) {
    const auto result = call();
    if (result >= 0 || errno != EINTR) return result;
  }
}

// Puts a copy in the file's place, so that its other names keep what they have when it is changed.
bool replaceByCopy(const Directory& directory, const std::string& name) {
  const std::string copyName = unfinishedName(name);
  {
    File source(directory, name, File::Mode::read);
    File copy(directory, copyName, File::Mode::create);
    if (!copy.takeModeOf(source)) return false;
    std::string block(64 * 1024, '\0');
    std::int64_t offset = 0;
    while (true) {
      const auto count = source.readAt(offset, block.data(), block.size());
      if (!count) return false;
      if (*count == 0) break;
      if (!copy.write(std::string_view(block).substr(0, *count))) return false;
      offset += static_cast<std::int64_t>(*count);
    }
    if (!copy.sync()) return false;
  }
  return renameFile(directory, copyName, name) && syncDirectory(directory);
}

}  // namespace

NotRegularFile::NotRegularFile(std::string_view name)
    : std::runtime_error("Not a regular file: " + printable(name)) {}

bool FileIdentity::isForeign() const noexcept { return !S_ISREG(mode) && !S_ISDIR(mode); }

void setFileHook(FileHook hook) noexcept { fileHook.store(hook, std::memory_order_relaxed); }
bool hasFileHook() noexcept { return fileHook.load(std::memory_order_relaxed) != nullptr; }

File::File(const Directory& directory, const std::string& name, Mode mode) : name_(name) {
  if (mode == Mode::read && directory.awaited != nullptr) {
    openAwaited(directory);
    return;
  }
  if (mode == Mode::overwrite) {
    open(directory, mode);
    if (isOpen() && !hasSecondName()) return;
    if (isOpen()) close(std::exchange(descriptor_, -1));
    mode = Mode::create;
  }
  if (mode == Mode::create && !removeFile(directory, name)) return;
  open(directory, mode);
  const bool isChangedInPlace = mode == Mode::change || mode == Mode::append;
  if (!isOpen() || !isChangedInPlace || !hasSecondName()) return;
  close(std::exchange(descriptor_, -1));
  if (replaceByCopy(directory, name)) open(directory, mode);
}

bool File::hasSecondName() const {
  const auto opened = identity();
  return opened && opened->nameCount >= 2;
}

void File::openAwaited(const Directory& directory) {
  const AwaitedFiles& awaited = *directory.awaited;
  if (awaited.removed.contains(name_)) {
    errno = ENOENT;
    return;
  }
  if (awaited.replaced.contains(name_)) {
    const std::string name = std::exchange(name_, checkpointName(name_));
    open(directory, Mode::read);
    if (isOpen() || errno != ENOENT) return;
    name_ = name;
  }
  open(directory, Mode::read);
  const auto patched = awaited.patched.find(name_);
  if (!isOpen() || patched == awaited.patched.end()) return;
  patch_ = &patched->second;
  journal_ = std::make_unique<File>(Directory{directory.descriptor}, markerFileName, Mode::read);
}

void File::open(const Directory& directory, Mode mode) {
  if (announce(FileOperation::open, name_) > 0) return;
  // Looked at before it is opened, since to open a device may already do something.
  requireRegular(directory, name_);
  constexpr mode_t permissions = 0666;
  constexpr int always = O_CLOEXEC | O_NONBLOCK | O_NOFOLLOW | O_NOCTTY;
  descriptor_ = uninterrupted([&] {
    return openat(directory.descriptor, name_.c_str(), flagsOf(mode) | always, permissions);
  });
  if (!isOpen()) return;
  const auto opened = identity();
  if (opened && S_ISREG(opened->mode)) return;
  close(std::exchange(descriptor_, -1));
  if (opened && opened->isForeign()) throw NotRegularFile(name_);
  errno = opened ? EISDIR : EIO;
}

File::~File() {
  if (isOpen()) close(descriptor_);
}

// At the file position for a negative offset.
bool File::writePiece(std::string_view bytes, std::int64_t offset, int wish) {
  if (wish > 0) return false;
  const std::size_t end = wish == shortWrite ? bytes.size() / 2 : bytes.size();
  for (std::size_t done = 0; done < end;) {
    const char* const from = bytes.data() + done;
    const std::int64_t to = offset + static_cast<std::int64_t>(done);
    const ssize_t count = uninterrupted([&] {
      return offset < 0 ? ::write(descriptor_, from, end - done)
                        : pwrite(descriptor_, from, end - done, to);
    });
    if (count <= 0) return false;
    done += static_cast<std::size_t>(count);
    lastWritten_ += static_cast<std::size_t>(count);
  }
  if (wish == shortWrite) errno = ENOSPC;
  return wish != shortWrite;
}

bool File::write(std::string_view bytes) {
  if (fileHook.load(std::memory_order_relaxed) != nullptr) {
    const bool isAppended = (fcntl(descriptor_, F_GETFL) & O_APPEND) != 0;
    return writePages(bytes, isAppended ? size().value_or(0) : position(), false);
  }
  lastWritten_ = 0;
  return writePiece(bytes, -1, 0);
}

bool File::writeAt(std::int64_t offset, std::string_view bytes) {
  if (fileHook.load(std::memory_order_relaxed) != nullptr) return writePages(bytes, offset, true);
  lastWritten_ = 0;
  return writePiece(bytes, offset, 0);
}

// Page by page, for the hook.
bool File::writePages(std::string_view bytes, std::int64_t offset, bool isPlaced) {
  constexpr std::int64_t pageSize = 4096;
  lastWritten_ = 0;
  do {
    const auto toPageEnd = static_cast<std::size_t>(pageSize - offset % pageSize);
    const std::string_view piece = bytes.substr(0, toPageEnd);
    const int wish = announce(FileOperation::write, name_);
    if (!writePiece(piece, isPlaced ? offset : -1, wish)) return false;
    bytes.remove_prefix(piece.size());
    offset += static_cast<std::int64_t>(piece.size());
  } while (!bytes.empty());
  return true;
}

std::int64_t File::position() const { return lseek(descriptor_, 0, SEEK_CUR); }

std::optional<std::size_t> File::readAt(std::int64_t offset, char* out, std::size_t count) {
  return patch_ == nullptr ? readStored(offset, out, count) : readPatched(offset, out, count);
}

std::optional<std::size_t> File::readStored(std::int64_t offset, char* out, std::size_t count) {
  if (announce(FileOperation::read, name_) > 0) return std::nullopt;
  std::size_t done = 0;
  while (done < count) {
    const ssize_t part = uninterrupted([&] {
      return pread(descriptor_, out + done, count - done, offset + static_cast<std::int64_t>(done));
    });
    if (part < 0) return std::nullopt;
    if (part == 0) break;
    done += static_cast<std::size_t>(part);
  }
  return done;
}

// The bytes of the file with those of the journal over them.
std::optional<std::size_t> File::readPatched(std::int64_t offset, char* out, std::size_t count) {
  const std::int64_t end = std::min(patch_->fileSize, offset + static_cast<std::int64_t>(count));
  const auto wanted = static_cast<std::size_t>(std::max(end - offset, std::int64_t{0}));
  const auto found = readStored(offset, out, wanted);
  if (!found) return std::nullopt;
  std::fill(out + *found, out + wanted, '\0');
  auto piece =
      std::partition_point(patch_->pieces.begin(), patch_->pieces.end(),
                           [&](const Piece& each) { return each.offset + each.size <= offset; });
  for (; piece != patch_->pieces.end() && piece->offset < end; ++piece) {
    const std::int64_t from = std::max(piece->offset, offset);
    const auto size = static_cast<std::size_t>(std::min(piece->offset + piece->size, end) - from);
    const std::int64_t source = piece->source + (from - piece->offset);
    if (journal_->readAt(source, out + (from - offset), size) != size) return std::nullopt;
  }
  return wanted;
}

std::optional<std::int64_t> File::size() const {
  if (patch_ != nullptr) return patch_->fileSize;
  struct stat status = {};
  if (fstat(descriptor_, &status) != 0) return std::nullopt;
  return status.st_size;
}

std::optional<std::int64_t> File::contentEnd() const {
  const auto whole = size();
  if (!whole || patch_ != nullptr) return whole;
  std::int64_t end = 0;
  while (end < *whole) {
    const std::int64_t data = lseek(descriptor_, end, SEEK_DATA);
    if (data < 0) return errno == ENXIO ? end : *whole;  // nothing more, or the system cannot tell
    end = lseek(descriptor_, data, SEEK_HOLE);
    if (end < 0) return *whole;
  }
  return std::min(end, *whole);
}

std::optional<FileIdentity> File::identity() const {
  return identityAt(descriptor_, "", AT_EMPTY_PATH);
}

bool File::takeModeOf(const File& other) {
  constexpr unsigned permissions = 07777;
  const auto from = other.identity();
  return from && fchmod(descriptor_, from->mode & permissions) == 0;
}

bool File::truncate(std::int64_t size) {
  if (announce(FileOperation::truncate, name_) > 0) return false;
  return uninterrupted([&] { return ftruncate(descriptor_, size); }) == 0;
}

bool File::sync() {
  if (announce(FileOperation::sync, name_) > 0) return false;
  return uninterrupted([&] { return fdatasync(descriptor_); }) == 0;
}

void throwUnreadable(std::string_view name) {
  throw Unreadable("Failed to read file: " + printable(name));
}

std::optional<std::string> readFile(const Directory& directory, const std::string& name) {
  File file(directory, name, File::Mode::read);
  if (!file.isOpen() && errno == ENOENT) return std::nullopt;
  const auto size = file.size();
  std::string bytes(static_cast<std::size_t>(size.value_or(0)), '\0');
  const auto count = size ? file.readAt(0, bytes.data(), bytes.size()) : std::nullopt;
  if (!count) throwUnreadable(name);
  bytes.resize(*count);
  return bytes;
}

std::int64_t sizeOf(const Directory& directory, const std::string& name) {
  const File file(directory, name, File::Mode::read);
  if (!file.isOpen() && errno == ENOENT) return 0;
  const auto size = file.size();
  if (!size) throwUnreadable(name);
  return *size;
}

void requireRegular(const Directory& directory, const std::string& name) {
  const auto found = identityOf(directory, name.c_str());
  if (found && found->isForeign()) throw NotRegularFile(name);
}

std::optional<FileIdentity> identityOf(const Directory& directory, const char* name) {
  return identityAt(directory.descriptor, name, AT_SYMLINK_NOFOLLOW);
}

bool removeFile(const Directory& directory, const std::string& name) {
  if (announce(FileOperation::remove, name) > 0) return false;
  return unlinkat(directory.descriptor, name.c_str(), 0) == 0 || errno == ENOENT;
}

bool renameFile(const Directory& directory, const std::string& from, const std::string& to) {
  if (announce(FileOperation::rename, from, to.c_str()) > 0) return false;
  return renameat(directory.descriptor, from.c_str(), directory.descriptor, to.c_str()) == 0 ||
         errno == ENOENT;
}

bool syncDirectory(const Directory& directory) {
  if (announce(FileOperation::sync, ".") > 0) return false;
  const int descriptor = openat(directory.descriptor, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (descriptor < 0) return false;
  const bool isSynced = uninterrupted([&] { return fsync(descriptor); }) == 0;
  close(descriptor);
  return isSynced;
}

std::vector<DirectoryEntry> listFiles(const Directory& directory, std::string_view suffix) {
  const bool isRefused = announce(FileOperation::list, ".") > 0;
  const int descriptor =
      isRefused ? -1 : openat(directory.descriptor, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  const std::unique_ptr<DIR, int (*)(DIR*)> listing(
      descriptor < 0 ? nullptr : fdopendir(descriptor), closedir);
  if (listing == nullptr) {
    if (descriptor >= 0) close(descriptor);
    throw Unreadable("Failed to list directory");
  }
  std::vector<DirectoryEntry> entries;
  while (const dirent* const entry = readdir(listing.get())) {
    const std::string_view name = entry->d_name;
    if (!name.ends_with(suffix)) continue;
    const auto identity = identityOf(directory, entry->d_name);
    if (!identity || S_ISDIR(identity->mode)) continue;
    entries.push_back({std::string(name), static_cast<bool>(S_ISREG(identity->mode))});
  }
  std::sort(entries.begin(), entries.end(),
            [](const DirectoryEntry& a, const DirectoryEntry& b) { return a.name < b.name; });
  return entries;
}

}  // namespace velmora
