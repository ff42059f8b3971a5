// The memory of a table's rows.
//
// Rows lie in chunks of 2048, each with one array for every column, so that a scan reads one
// column's values side by side and a row's values lie within one chunk. The first chunk begins
// small and doubles, so that small tables stay small; no other ever moves. The chunks of a large
// table lie in slabs as large as a huge page, which the system then fills and finds in one step
// instead of five hundred. Rows are never taken out of the middle (a delete marks them), so a row's
// index is its name everywhere: in the key map, links, undo records, scheduled changes and files.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <thread>
#include <vector>

#include "dependents.h"

namespace velmora {

class Rows {
 public:
  static constexpr std::size_t chunkRows = 2048;
  static constexpr std::size_t chunkOf(std::size_t row) { return row / chunkRows; }
  static constexpr std::size_t placeOf(std::size_t row) { return row % chunkRows; }

  // Reserves so many bytes of each row for an array of its own; what the array is found by. To be
  // called before the first row.
  std::size_t addArray(std::size_t bytesPerRow);

  Rows() { deleted_ = addArray(1); }
  ~Rows();
  Rows(const Rows&) = delete;
  Rows& operator=(const Rows&) = delete;

  std::size_t size() const noexcept { return size_; }
  std::size_t chunkCount() const noexcept { return (size_ + chunkRows - 1) / chunkRows; }
  // How many rows the chunk has.
  std::size_t sizeOf(std::size_t chunk) const noexcept {
    return chunk + 1 < chunkCount() ? chunkRows : size_ - chunk * chunkRows;
  }

  // Where the arrays of a chunk begin.
  const std::byte* memory(std::size_t chunk) const noexcept { return chunks_[chunk].memory; }
  // The values of one array in a chunk; they stay there until a row is appended.
  template <typename Value>
  Value* array(std::size_t chunk, std::size_t array) const noexcept {
    return reinterpret_cast<Value*>(chunks_[chunk].memory + array * capacity_);
  }
  template <typename Value>
  Value& at(std::size_t row, std::size_t array) const noexcept {
    return this->array<Value>(chunkOf(row), array)[placeOf(row)];
  }

  // Whether a row is deleted, 1 or 0, for each row of a chunk: the one live mark.
  const std::uint8_t* deleted(std::size_t chunk) const noexcept {
    return array<std::uint8_t>(chunk, deleted_);
  }
  bool isLive(std::size_t row) const noexcept { return at<std::uint8_t>(row, deleted_) == 0; }
  void setDeleted(std::size_t row, bool isDeleted) noexcept {
    if (isLive(row) != isDeleted) return;
    at<std::uint8_t>(row, deleted_) = isDeleted ? 1 : 0;
    chunks_[chunkOf(row)].deletedCount += isDeleted ? 1 : -1;
  }
  // Whether a row of the chunk is deleted. Where none is, a scan need not read the marks.
  bool hasDeleted(std::size_t chunk) const noexcept { return chunks_[chunk].deletedCount != 0; }

  // What the row knows of its children; null while nothing has been linked to it.
  Dependents* dependents(std::size_t row) const noexcept {
    const Chunk& chunk = chunks_[chunkOf(row)];
    return chunk.dependents == nullptr ? nullptr : chunk.dependents[placeOf(row)].get();
  }
  // The place of that, made if need be.
  std::unique_ptr<Dependents>& dependentsPlace(std::size_t row);

  std::size_t memoryBytes() const noexcept;

  // Appends live rows, whose values the caller has to make, and which have to lie in one chunk.
  // Throws std::runtime_error "Table is full" when row indices have run out.
  void append(std::size_t count) {
    const std::size_t first = size_;
    extend(count);
    make(first, count);
  }
  // The same in two steps and for any number of rows: these may not be asked for anything before
  // make() has made them, which several threads may do at once, each for chunks of its own. A call
  // makes rows of one chunk, from where the one before has ended.
  void extend(std::size_t count);
  void make(std::size_t first, std::size_t count) noexcept;
  void removeLast() noexcept;

  // Whether the system is asked for huge pages, as it is from the start. Without them many rows can
  // be made in one go without waiting for the system to find and clear so much memory in one piece;
  // it may join the pages of such rows when they are wanted again.
  void setHugePages(bool isWanted) noexcept;

 private:
  // It begins behind so many bytes of each row a chunk has room for.
  struct Array {
    std::size_t start = 0;
    std::size_t bytesPerRow = 0;
  };
  struct Chunk {
    std::byte* memory = nullptr;
    std::int32_t deletedCount = 0;
    std::unique_ptr<std::unique_ptr<Dependents>[]> dependents;  // by row; null if no row has some
  };
  std::size_t chunkBytes() const noexcept { return bytesPerRow_ * chunkRows; }
  // As many chunks, the first ones, stand alone; all of them if 0.
  std::size_t chunksPerSlab() const noexcept;
  bool isInSlab(std::size_t chunk) const noexcept {
    return chunksPerSlab() > 0 && chunk >= chunksPerSlab();
  }
  bool beginsSlab(std::size_t chunk) const noexcept {
    return isInSlab(chunk) && chunk % chunksPerSlab() == 0;
  }
  bool isThreeQuartersOfSlab(std::size_t chunk) const noexcept {
    return chunksPerSlab() > 0 && chunk % chunksPerSlab() == chunksPerSlab() * 3 / 4;
  }
  void growFirstChunk();
  void addChunk();
  // Has a thread of its own make the page of the next slab while the rest of this one is filled:
  // the system can take 10 ms to find and clear one, for which nobody is to wait.
  void askForSlab() noexcept;
  std::byte* takeSlab();

  std::vector<Array> arrays_;
  std::size_t bytesPerRow_ = 0;
  std::size_t deleted_ = 0;  // the array of that
  std::size_t size_ = 0;
  std::size_t capacity_ = 0;  // rows of the first chunk; of every chunk, once there is a second
  bool hasHugePages_ = true;
  std::vector<Chunk> chunks_;
  std::byte* comingSlab_ = nullptr;
  std::thread pageMaker_;  // at work on that
};

}  // namespace velmora
