// See rows.h.
#include "rows.h"

#include <sys/mman.h>

#include <algorithm>
#include <limits>
#include <new>
#include <stdexcept>
#include <utility>

namespace velmora {
namespace {

constexpr std::size_t mostChunkBytes = 64 * 1024;  // unless a single row is larger
constexpr unsigned maxChunkShift = 10;
constexpr std::size_t slabBytes = 2 * 1024 * 1024;  // a huge page, and aligned to one
constexpr auto maxRows = static_cast<std::size_t>(std::numeric_limits<std::int32_t>::max());

unsigned shiftFor(std::size_t rowBytes) {
  unsigned shift = 0;
  while (shift < maxChunkShift && (rowBytes << (shift + 1)) <= mostChunkBytes) ++shift;
  return shift;
}

std::byte* newSlab() {
  return static_cast<std::byte*>(::operator new(slabBytes, std::align_val_t(slabBytes)));
}

void makeHuge(std::byte* slab) noexcept {
#ifdef MADV_HUGEPAGE
  madvise(slab, slabBytes, MADV_HUGEPAGE);  // without it the slab works as well, only slower
#else
  static_cast<void>(slab);
#endif
}

}  // namespace

void RowIndices::add(std::int32_t row) {
  if (first_ == none) {
    first_ = row;
    return;
  }
  if (row == first_) return;
  const std::int32_t other = std::max(row, first_);
  if (others_.empty() || others_.back() < other) {
    others_.push_back(other);
  } else if (const auto at = std::lower_bound(others_.begin(), others_.end(), other);
             *at != other) {
    others_.insert(at, other);
  }
  first_ = std::min(row, first_);
}

void RowIndices::remove(std::int32_t row) {
  if (row == first_) {
    first_ = others_.empty() ? none : others_.front();
    row = first_;
  }
  const auto at = std::lower_bound(others_.begin(), others_.end(), row);
  if (at != others_.end() && *at == row) others_.erase(at);
}

Rows::Rows(std::size_t cellsPerRow)
    : cellsPerRow_(cellsPerRow),
      rowBytes_(sizeof(Row) + cellsPerRow * sizeof(Cell)),
      chunkShift_(shiftFor(rowBytes_)),
      chunksPerSlab_(chunkBytes() <= mostChunkBytes ? slabBytes / chunkBytes() : 0) {}

Rows::~Rows() { clear(); }

Rows::Rows(Rows&& other) noexcept
    : cellsPerRow_(other.cellsPerRow_),
      rowBytes_(other.rowBytes_),
      chunkShift_(other.chunkShift_),
      chunksPerSlab_(other.chunksPerSlab_),
      size_(std::exchange(other.size_, 0)),
      hasHugePages_(other.hasHugePages_),
      chunks_(std::move(other.chunks_)) {}

Rows& Rows::operator=(Rows&& other) noexcept {
  if (this != &other) {
    clear();
    cellsPerRow_ = other.cellsPerRow_;
    rowBytes_ = other.rowBytes_;
    chunkShift_ = other.chunkShift_;
    chunksPerSlab_ = other.chunksPerSlab_;
    size_ = std::exchange(other.size_, 0);
    hasHugePages_ = other.hasHugePages_;
    chunks_ = std::move(other.chunks_);
  }
  return *this;
}

void Rows::clear() noexcept {
  while (size_ > 0) popBack();
  for (std::size_t i = 0; i < chunks_.size(); ++i) {
    if (!isInSlab(i)) {
      ::operator delete(chunks_[i]);
    } else if (beginsSlab(i)) {
      ::operator delete(chunks_[i], std::align_val_t(slabBytes));
    }
  }
  chunks_.clear();
}

void Rows::setHugePages(bool isWanted) noexcept {
  hasHugePages_ = isWanted;
  if (!isWanted) return;
  for (std::size_t i = 0; i < chunks_.size(); ++i) {
    if (beginsSlab(i)) makeHuge(chunks_[i]);
  }
}

void Rows::addChunk() {
  const std::size_t chunk = chunks_.size();
  chunks_.push_back(nullptr);
  try {
    if (!isInSlab(chunk)) {
      chunks_.back() = static_cast<std::byte*>(::operator new(chunkBytes()));
    } else if (beginsSlab(chunk)) {
      chunks_.back() = newSlab();
      if (hasHugePages_) makeHuge(chunks_.back());
    } else {
      chunks_.back() = chunks_[chunk - 1] + chunkBytes();
    }
  } catch (...) {
    chunks_.pop_back();
    throw;
  }
}

Row& Rows::at(std::size_t index) {
  if (index >= size_) throw std::out_of_range("Row index outside the table");
  return *rowAt(index);
}

const Row& Rows::at(std::size_t index) const {
  if (index >= size_) throw std::out_of_range("Row index outside the table");
  return *rowAt(index);
}

Row& Rows::emplaceBack() {
  if (size_ == maxRows) throw std::runtime_error("Table is full");
  if (size_ >> chunkShift_ == chunks_.size()) addChunk();
  Row* const row = new (static_cast<void*>(rowAt(size_))) Row;
  row->cellCount = static_cast<std::uint32_t>(cellsPerRow_);
  std::uninitialized_default_construct(row->cells().begin(), row->cells().end());
  ++size_;
  return *row;
}

void Rows::popBack() noexcept {
  Row& row = back();
  std::destroy(row.cells().begin(), row.cells().end());
  std::destroy_at(&row);
  --size_;
}

}  // namespace velmora
