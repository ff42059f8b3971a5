// The rows of a table.
//
// Rows lie in fixed-size chunks that never move: a row's header and its cells side by side, so
// reading a row touches adjacent cache lines and appending one never copies the others. The chunks
// of a large table lie in slabs as large as a huge page, which the system then fills and finds in
// one step instead of five hundred. Rows are never taken out of the middle (a delete marks them),
// so a row's index is its name everywhere: in the key map, links, undo records, scheduled changes
// and files.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "cell.h"
#include "text.h"

namespace velmora {

// The child side of a link, as a parent row remembers it.
struct ForeignRelation {
  Text childTable;
  Text childColumn;
  bool operator==(const ForeignRelation&) const = default;
};

// Row indices, ascending, each once. The first lies in the object itself: most parents have few
// children, and whether there is one is asked most often.
class RowIndices {
 public:
  std::size_t size() const noexcept { return first_ == none ? 0 : 1 + others_.size(); }
  std::int32_t operator[](std::size_t place) const noexcept {
    return place == 0 ? first_ : others_[place - 1];
  }
  void add(std::int32_t row);
  void remove(std::int32_t row);

 private:
  static constexpr std::int32_t none = -1;
  std::int32_t first_ = none;
  std::vector<std::int32_t> others_;
};

// The child rows that were linked to a parent row through one relation. A child that has moved to
// another key since stays listed; who asks compares its current key.
struct Dependents {
  ForeignRelation relation;
  RowIndices childRows;
  std::unique_ptr<Dependents> next;  // those of another relation; null behind the last
};

// The header of a stored row; its cells follow it in memory. Made and destroyed by Rows alone.
struct Row {
  std::unique_ptr<Dependents> links;  // null while nothing has been linked to this row
  std::uint32_t cellCount = 0;
  bool isReferenced = false;  // set when a child row was linked; tells deletes to look at links

  std::span<Cell> cells() noexcept { return {reinterpret_cast<Cell*>(this + 1), cellCount}; }
  std::span<const Cell> cells() const noexcept {
    return {reinterpret_cast<const Cell*>(this + 1), cellCount};
  }

  Row() = default;
  Row(const Row&) = delete;
  Row& operator=(const Row&) = delete;
};

static_assert(sizeof(Row) == 16 && alignof(Row) >= alignof(Cell));

// The row sequence of one table.
class Rows {
 public:
  explicit Rows(std::size_t cellsPerRow = 0);
  ~Rows();
  Rows(Rows&& other) noexcept;
  Rows& operator=(Rows&& other) noexcept;

  std::size_t size() const noexcept { return size_; }
  bool empty() const noexcept { return size_ == 0; }
  Row& operator[](std::size_t index) noexcept { return *rowAt(index); }
  const Row& operator[](std::size_t index) const noexcept { return *rowAt(index); }
  // Throws std::out_of_range for an index outside the sequence.
  Row& at(std::size_t index);
  const Row& at(std::size_t index) const;
  Row& back() noexcept { return *rowAt(size_ - 1); }

  // Has a cell brought into the cache, for a loop that will come to it in some steps: rows lie far
  // apart, and waiting for each is most of what reading many of them costs. Inlined always, since
  // compilers drop calls of functions that change nothing.
  [[gnu::always_inline]] void prefetch(std::size_t index, std::size_t column) const noexcept {
    __builtin_prefetch(reinterpret_cast<const Cell*>(rowAt(index) + 1) + column);
  }
  // The same for the whole row, if it is a usual one, or else its first cells.
  [[gnu::always_inline]] void prefetch(std::size_t index) const noexcept {
    constexpr std::size_t mostCells = 16;
    __builtin_prefetch(rowAt(index));
    const std::size_t cells = std::min(cellsPerRow_, mostCells);
    for (std::size_t cell = 1; cell < cells; cell += 2) prefetch(index, cell);
  }

  // Appends a row of default cells; references to other rows stay valid. Throws std::runtime_error
  // "Table is full" when row indices have run out.
  Row& emplaceBack();
  void popBack() noexcept;

  // Whether the system is asked for huge pages, as it is from the start. Without them many rows can
  // be made in one go without waiting for the system to find and clear so much memory in one piece;
  // it may join the pages of such rows when they are wanted again.
  void setHugePages(bool isWanted) noexcept;

 private:
  Row* rowAt(std::size_t index) const noexcept {
    return reinterpret_cast<Row*>(chunks_[index >> chunkShift_] +
                                  (index & ((std::size_t{1} << chunkShift_) - 1)) * rowBytes_);
  }
  std::size_t chunkBytes() const noexcept { return rowBytes_ << chunkShift_; }
  // Whether the chunk of this number is in a slab, and whether it is the slab's first.
  bool isInSlab(std::size_t chunk) const noexcept {
    return chunksPerSlab_ > 0 && chunk >= chunksPerSlab_;
  }
  bool beginsSlab(std::size_t chunk) const noexcept {
    return isInSlab(chunk) && chunk % chunksPerSlab_ == 0;
  }
  void addChunk();
  void clear() noexcept;

  std::size_t cellsPerRow_;
  std::size_t rowBytes_;
  unsigned chunkShift_;        // log2 of the rows in a chunk
  std::size_t chunksPerSlab_;  // as many chunks, the first ones, stand alone; all of them if 0
  std::size_t size_ = 0;
  bool hasHugePages_ = true;
  std::vector<std::byte*> chunks_;
};

}  // namespace velmora
