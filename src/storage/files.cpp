// See files.h.
#include "files.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <memory>
#include <stdexcept>

namespace velmora {
namespace {

static_assert(Directory::current == AT_FDCWD);

std::atomic<FileHook> fileHook = nullptr;

// 0, or what the hook wants; a failing operation has its errno set.
int announce(FileOperation operation, const std::string& name) {
  const FileHook hook = fileHook.load(std::memory_order_relaxed);
  if (hook == nullptr) return 0;
  const int wish = hook(operation, name.c_str());
  if (wish > 0) errno = wish;
  return wish;
}

int flagsOf(File::Mode mode) {
  switch (mode) {
    case File::Mode::read:
      return O_RDONLY;
    case File::Mode::readWrite:
      return O_RDWR;
    case File::Mode::create:
      return O_RDWR | O_CREAT;
    case File::Mode::replace:
      return O_RDWR | O_CREAT | O_TRUNC;
    case File::Mode::append:
      return O_WRONLY | O_CREAT | O_APPEND;
  }
  return O_RDONLY;
}

// Asks for the identity alone: a file system that was asked for a file's times has to write the
// file's next ones out, and appending then takes twice as long.
std::optional<FileIdentity> identityAt(int descriptor, const char* name, int flags) {
  struct statx status;
  constexpr unsigned wanted = STATX_TYPE | STATX_MODE | STATX_INO | STATX_UID | STATX_GID;
  if (statx(descriptor, name, flags, wanted, &status) != 0) return std::nullopt;
  const std::uint64_t device = std::uint64_t{status.stx_dev_major} << 32 | status.stx_dev_minor;
  return FileIdentity{device, status.stx_ino, status.stx_mode, status.stx_uid, status.stx_gid};
}

// Calls a system function until it is not interrupted by a signal.
template <typename Call>
auto uninterrupted(Call call) {
  while (true) {
    const auto result = call();
    if (result >= 0 || errno != EINTR) return result;
  }
}

}  // namespace

void setFileHook(FileHook hook) noexcept { fileHook.store(hook, std::memory_order_relaxed); }

File::File(const Directory& directory, const std::string& name, Mode mode) : name_(name) {
  if (announce(FileOperation::open, name) > 0) return;
  constexpr mode_t permissions = 0666;
  descriptor_ = uninterrupted([&] {
    // Nothing but a regular file belongs here; opening a pipe must not wait for its other end.
    return openat(directory.descriptor, name.c_str(), flagsOf(mode) | O_CLOEXEC | O_NONBLOCK,
                  permissions);
  });
}

File::~File() {
  if (isOpen()) close(descriptor_);
}

bool File::write(std::string_view bytes) {
  lastWritten_ = 0;
  const int wish = announce(FileOperation::write, name_);
  if (wish > 0) return false;
  const std::size_t end = wish == shortWrite ? bytes.size() / 2 : bytes.size();
  while (lastWritten_ < end) {
    const ssize_t count = uninterrupted(
        [&] { return ::write(descriptor_, bytes.data() + lastWritten_, end - lastWritten_); });
    if (count <= 0) return false;
    lastWritten_ += static_cast<std::size_t>(count);
  }
  if (wish == shortWrite) errno = ENOSPC;
  return end == bytes.size();
}

bool File::writeAt(std::int64_t offset, std::string_view bytes) {
  if (uninterrupted([&] { return lseek(descriptor_, offset, SEEK_SET); }) < 0) return false;
  return write(bytes);
}

std::optional<std::size_t> File::readAt(std::int64_t offset, char* out, std::size_t count) {
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

std::optional<std::int64_t> File::size() const {
  struct stat status = {};
  if (fstat(descriptor_, &status) != 0) return std::nullopt;
  return status.st_size;
}

std::optional<FileIdentity> File::identity() const {
  return identityAt(descriptor_, "", AT_EMPTY_PATH);
}

bool File::truncate(std::int64_t size) {
  if (announce(FileOperation::truncate, name_) > 0) return false;
  return uninterrupted([&] { return ftruncate(descriptor_, size); }) == 0;
}

bool File::sync() {
  if (announce(FileOperation::sync, name_) > 0) return false;
  return uninterrupted([&] { return fdatasync(descriptor_); }) == 0;
}

std::optional<std::string> readFile(const Directory& directory, const std::string& name) {
  File file(directory, name, File::Mode::read);
  if (!file.isOpen() && errno == ENOENT) return std::nullopt;
  const auto size = file.size();
  std::string bytes(static_cast<std::size_t>(size.value_or(0)), '\0');
  const auto count = size ? file.readAt(0, bytes.data(), bytes.size()) : std::nullopt;
  if (!count) throw std::runtime_error("Failed to read file: " + name);
  bytes.resize(*count);
  return bytes;
}

std::optional<FileIdentity> identityOf(const Directory& directory, const char* name) {
  return identityAt(directory.descriptor, name, 0);
}

bool removeFile(const Directory& directory, const std::string& name) {
  if (announce(FileOperation::remove, name) > 0) return false;
  return unlinkat(directory.descriptor, name.c_str(), 0) == 0 || errno == ENOENT;
}

bool renameFile(const Directory& directory, const std::string& from, const std::string& to) {
  if (announce(FileOperation::rename, from) > 0) return false;
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

std::vector<std::string> listFiles(const Directory& directory, std::string_view suffix) {
  const bool isRefused = announce(FileOperation::list, ".") > 0;
  const int descriptor =
      isRefused ? -1 : openat(directory.descriptor, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  const std::unique_ptr<DIR, int (*)(DIR*)> listing(
      descriptor < 0 ? nullptr : fdopendir(descriptor), closedir);
  if (listing == nullptr) {
    if (descriptor >= 0) close(descriptor);
    throw std::runtime_error("Failed to list directory");
  }
  std::vector<std::string> names;
  while (const dirent* const entry = readdir(listing.get())) {
    const std::string_view name = entry->d_name;
    struct stat status = {};
    if (name.ends_with(suffix) && fstatat(directory.descriptor, entry->d_name, &status, 0) == 0 &&
        S_ISREG(status.st_mode)) {
      names.emplace_back(name);
    }
  }
  std::sort(names.begin(), names.end());
  return names;
}

DirectoryLock::DirectoryLock() : descriptor_(open(".", O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
  if (descriptor_ < 0) throw std::runtime_error("Failed to open the database directory");
  if (uninterrupted([&] { return flock(descriptor_, LOCK_EX | LOCK_NB); }) != 0) {
    close(descriptor_);
    throw std::runtime_error("Database directory is already in use");
  }
}

DirectoryLock::~DirectoryLock() { close(descriptor_); }

}  // namespace velmora
