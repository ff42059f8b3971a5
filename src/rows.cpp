// See rows.h.
#include "rows.h"

#include <sys/mman.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>
#include <new>
#include <stdexcept>
#include <utility>

namespace velmora {
namespace {

constexpr std::size_t leastRows = 64;
constexpr std::size_t slabBytes = 2 * 1024 * 1024;  // a huge page, and aligned to one
constexpr auto maxRows = static_cast<std::size_t>(std::numeric_limits<std::int32_t>::max());
constexpr std::align_val_t lineSize{64};

std::byte* allocate(std::size_t bytes, std::align_val_t alignment) {
  return static_cast<std::byte*>(::operator new(bytes, alignment));
}

std::byte* map(std::size_t bytes) {
  void* const memory =
      mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) throw std::bad_alloc();
  return static_cast<std::byte*>(memory);
}

// From the system, not from the heap: what the heap gives may have been written to before, is what
// a forked process shares with its parent, and is not given back when it is freed.
std::byte* allocateSlab() {
  std::byte* const slab = map(slabBytes);
  if (reinterpret_cast<std::uintptr_t>(slab) % slabBytes == 0) return slab;
  munmap(slab, slabBytes);
  std::byte* const memory = map(2 * slabBytes);
  const std::size_t behind = reinterpret_cast<std::uintptr_t>(memory) % slabBytes;
  munmap(memory + 2 * slabBytes - behind, behind);
  munmap(memory, slabBytes - behind);
  return memory + slabBytes - behind;
}
void freeSlab(std::byte* slab) noexcept { munmap(slab, slabBytes); }

// Without either of these the slab works as well, only slower.
void makeHuge([[maybe_unused]] std::byte* slab) noexcept {
#ifdef MADV_HUGEPAGE
  madvise(slab, slabBytes, MADV_HUGEPAGE);
#endif
}
void makePages([[maybe_unused]] std::byte* slab) noexcept {
#ifdef MADV_POPULATE_WRITE
  madvise(slab, slabBytes, MADV_POPULATE_WRITE);
#endif
}

}  // namespace

std::size_t Rows::addArray(std::size_t bytesPerRow) {
  arrays_.push_back({bytesPerRow_, bytesPerRow});
  bytesPerRow_ += bytesPerRow;
  return arrays_.back().start;
}

Rows::~Rows() {
  for (std::size_t i = 0; i < chunks_.size(); ++i) {
    if (!isInSlab(i)) {
      ::operator delete(chunks_[i].memory, lineSize);
    } else if (beginsSlab(i)) {
      freeSlab(chunks_[i].memory);
    }
  }
  if (comingSlab_ != nullptr) freeSlab(takeSlab());
}

std::size_t Rows::chunksPerSlab() const noexcept {
  const std::size_t chunks = slabBytes / chunkBytes();
  return chunks > 1 ? chunks : 0;
}

std::unique_ptr<Dependents>& Rows::dependentsPlace(std::size_t row) {
  Chunk& chunk = chunks_[chunkOf(row)];
  if (chunk.dependents == nullptr) {
    chunk.dependents = std::make_unique<std::unique_ptr<Dependents>[]>(chunkRows);
  }
  return chunk.dependents[placeOf(row)];
}

void Rows::extend(std::size_t count) {
  if (maxRows - size_ < count) throw std::runtime_error("Table is full");
  const std::size_t size = size_ + count;
  while (capacity_ < std::min(size, chunkRows)) growFirstChunk();
  while (chunks_.size() * chunkRows < size && size > chunkRows) addChunk();
  size_ = size;
}

void Rows::make(std::size_t first, std::size_t count) noexcept {
  const std::size_t chunk = chunkOf(first);
  if (!hasHugePages_ && placeOf(first) == 0 && beginsSlab(chunk)) makePages(chunks_[chunk].memory);
  std::fill_n(array<std::uint8_t>(chunk, deleted_) + placeOf(first), count, std::uint8_t{0});
}

void Rows::removeLast() noexcept {
  setDeleted(size_ - 1, false);
  Chunk& chunk = chunks_[chunkOf(size_ - 1)];
  if (chunk.dependents != nullptr) chunk.dependents[placeOf(size_ - 1)].reset();
  --size_;
}

std::size_t Rows::memoryBytes() const noexcept {
  std::size_t bytes = 0;
  for (std::size_t i = 0; i < chunks_.size(); ++i) {
    if (!isInSlab(i)) bytes += bytesPerRow_ * capacity_;
    if (beginsSlab(i)) bytes += slabBytes;
  }
  if (comingSlab_ != nullptr) bytes += slabBytes;
  return bytes;
}

void Rows::growFirstChunk() {
  const std::size_t capacity = std::max(leastRows, 2 * capacity_);
  if (chunks_.empty()) chunks_.emplace_back();
  std::byte* const memory = allocate(bytesPerRow_ * capacity, lineSize);
  std::byte* const old = chunks_.front().memory;
  for (const Array& array : arrays_) {
    if (old == nullptr) break;
    std::memcpy(memory + array.start * capacity, old + array.start * capacity_,
                array.bytesPerRow * capacity_);
  }
  ::operator delete(old, lineSize);
  chunks_.front().memory = memory;
  capacity_ = capacity;
}

void Rows::addChunk() {
  const std::size_t chunk = chunks_.size();
  chunks_.emplace_back();
  try {
    if (!isInSlab(chunk)) {
      chunks_.back().memory = allocate(chunkBytes(), lineSize);
    } else if (beginsSlab(chunk)) {
      chunks_.back().memory = takeSlab();
    } else {
      chunks_.back().memory = chunks_[chunk - 1].memory + chunkBytes();
    }
  } catch (...) {
    chunks_.pop_back();
    throw;
  }
  if (hasHugePages_ && isThreeQuartersOfSlab(chunk)) askForSlab();
}

void Rows::askForSlab() noexcept {
  try {
    comingSlab_ = allocateSlab();
    makeHuge(comingSlab_);
    pageMaker_ = std::thread(makePages, comingSlab_);
  } catch (const std::exception&) {
    // Whoever takes the slab waits for its page.
  }
}

std::byte* Rows::takeSlab() {
  if (pageMaker_.joinable()) pageMaker_.join();
  if (comingSlab_ != nullptr) return std::exchange(comingSlab_, nullptr);
  std::byte* const slab = allocateSlab();
  if (hasHugePages_) makeHuge(slab);
  return slab;
}

void Rows::setHugePages(bool isWanted) noexcept {
  hasHugePages_ = isWanted;
  if (!isWanted) return;
  for (std::size_t i = 0; i < chunks_.size(); ++i) {
    if (beginsSlab(i)) makeHuge(chunks_[i].memory);
  }
}

}  // namespace velmora
