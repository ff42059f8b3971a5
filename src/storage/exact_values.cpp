// See exact_values.h.
#include "exact_values.h"

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <memory>
#include <stdexcept>

#include "../record_io.h"
#include "../text.h"
#include "block_io.h"
#include "checkpoint_steps.h"
#include "file_names.h"
#include "table_rows.h"

namespace velmora {
namespace {

constexpr std::string_view wholeMagic = "velmexct";
constexpr std::string_view grownMagic = "velmexc2";
constexpr std::size_t magicSize = wholeMagic.size();
constexpr std::size_t widestText = 60;
constexpr std::int64_t headerSize = 16;
constexpr std::size_t fixedSize = 4 + 4 + 1;  // of an entry
static_assert(grownMagic.size() == magicSize && magicSize + 8 == headerSize);

enum class Entry : char { none = 0, null = 'n', text = 't', timed = 's', anew = '-' };

bool fitsField(std::string_view text) {
  return text.size() <= widestText && text.find('\0') == std::string_view::npos;
}

// What has to be written of a cell.
Entry entryOf(const ColumnValues& values, const ColumnValues::Chunk& chunk, std::size_t row) {
  const std::size_t place = Rows::placeOf(row);
  const bool isOdd = chunk.isOdd(place);
  if (isOdd && values.oddCell(row).tempRule != nullptr) return Entry::timed;
  switch (values.kind()) {
    case ValueKind::integer:
    case ValueKind::longInteger:
      return isOdd && values.oddCell(row).value == missingValue ? Entry::null : Entry::none;
    case ValueKind::boolean:
      return chunk.codes[place] == static_cast<std::uint8_t>(BoolCode::missing) ? Entry::null
                                                                                : Entry::none;
    case ValueKind::real:
    case ValueKind::doubleReal:
      return Entry::none;
    case ValueKind::text:
    case ValueKind::unknown:
      break;
  }
  return isOdd || !fitsField(chunk.texts()[place]) ? Entry::text : Entry::none;
}

// Calls use(row, column, entry) for each cell of so many rows of which something has to be written,
// ascending; rows before one of which a file may have entries already begin anew.
template <typename Use>
void forEachEntry(const Table& table, std::size_t first, std::size_t count, std::size_t firstNew,
                  Use use) {
  std::vector<ColumnValues::Chunk> chunks(table.columns.size());
  for (std::size_t row = first; row < first + count; ++row) {
    if (row < firstNew) use(row, 0, Entry::anew);
    for (std::size_t column = 0; column < chunks.size(); ++column) {
      const ColumnValues& values = table.values(column);
      const bool isNewChunk = row == first || Rows::placeOf(row) == 0;
      if (isNewChunk) chunks[column] = values.chunk(Rows::chunkOf(row));
      const Entry entry = entryOf(values, chunks[column], row);
      if (entry != Entry::none) use(row, column, entry);
    }
  }
}

template <typename Number>
void add(std::string& bytes, Number number) {
  char field[sizeof number];
  putNumber(field, number);
  bytes.append(field, sizeof field);
}

void addText(std::string& bytes, std::string_view text) {
  add(bytes, static_cast<std::int32_t>(text.size()));
  bytes += text;
}

void addRule(std::string& bytes, const TempRule& rule) {
  bytes += rule.repeat ? '\1' : '\0';
  add(bytes, rule.startTime);
  add(bytes, rule.cycleLength);
  add(bytes, static_cast<std::int32_t>(rule.states.size()));
  for (const TempState& state : rule.states) {
    add(bytes, state.duration);
    addText(bytes, state.value);
  }
}

// Makes the entries of so many rows, each as the file has it, for use(bytes).
template <typename Use>
void forEachRecord(const Table& table, std::size_t first, std::size_t count, std::size_t firstNew,
                   Use use) {
  std::string bytes;
  forEachEntry(table, first, count, firstNew,
               [&](std::size_t row, std::size_t column, Entry entry) {
                 char fixed[fixedSize];
                 putInt32(fixed, static_cast<std::int32_t>(row));
                 putInt32(fixed + 4, static_cast<std::int32_t>(column));
                 fixed[fixedSize - 1] = static_cast<char>(entry);
                 bytes.assign(fixed, fixedSize);
                 if (entry == Entry::text) {
                   TextRoom room;
                   addText(bytes, table.text(row, column, 0, room));
                 }
                 if (entry == Entry::timed) addRule(bytes, *table.values(column).rule(row));
                 use(std::string_view(bytes));
               });
}

// The same for the rows that have changed.
template <typename Use>
void forEachChange(const Table& table, std::size_t firstNew, Use use) {
  table.forEachDirtyRun([&](std::size_t first, std::size_t count) {
    forEachRecord(table, first, count, firstNew, use);
  });
}

std::string header(std::string_view magic, std::int64_t number) {
  std::string bytes(magic);
  add(bytes, number);
  return bytes;
}

// Writes a new file, unless there is no entry: of all rows, or of those that have changed, where no
// others have any.
bool writeWhole(const Table& table, bool haveOthersNone, const Directory& directory,
                CheckpointJournal& journal) {
  std::optional<NewFile> file;
  std::int64_t count = 0;
  const auto put = [&](std::string_view bytes) {
    if (!file) {
      const std::string name = fileNameOf(table.tableName, exactExtension);
      file.emplace(directory, addNewFile(journal, name, directory));
      file->seek(headerSize);
    }
    file->write(bytes);
    ++count;
  };
  haveOthersNone ? forEachChange(table, 0, put) : forEachRecord(table, 0, table.rowCount(), 0, put);
  if (!file) return false;
  file->seek(0);
  file->write(header(wholeMagic, count));
  file->finish();
  return true;
}

// Where in a file of that size the entries begin that were added to it; nothing if it is not such a
// file, or not one that can be changed in place.
std::optional<std::int64_t> startOfAdded(const std::string& name, std::int64_t size,
                                         const Directory& directory) {
  File file(directory, name, File::Mode::read);
  char found[headerSize];
  if (!file.isOpen() || file.size() != size || !isPatchable(directory, name)) return std::nullopt;
  if (file.readAt(0, found, sizeof found) != sizeof found) return std::nullopt;
  const std::string_view magic(found, magicSize);
  if (magic == wholeMagic) return size;
  const std::int64_t start = getInt64(found + magicSize);
  const bool isGrown = magic == grownMagic && start >= headerSize && start <= size;
  return isGrown ? std::optional(start) : std::nullopt;
}

// How many bytes the entries of the rows that have changed take, or some more than the most.
std::int64_t sizeOfChanges(const Table& table, std::int64_t most) {
  std::int64_t size = 0;
  table.forEachDirtyRun([&](std::size_t first, std::size_t count) {
    for (const std::size_t end = first + count; first < end && size <= most;) {
      const std::size_t some = std::min(end - first, Rows::chunkRows);
      forEachRecord(table, first, some, table.storedRowCount(),
                    [&](std::string_view bytes) { size += std::ssize(bytes); });
      first += some;
    }
  });
  return size;
}

// Puts the entries of the rows that have changed behind those that the file of that size has, as
// long as less has been added than is worth a new file, which takes a look at every row.
bool addChanges(const Table& table, std::int64_t size, const Directory& directory,
                CheckpointJournal& journal) {
  constexpr std::int64_t pageSize = 4096;
  const std::string name = fileNameOf(table.tableName, exactExtension);
  const auto start = startOfAdded(name, size, directory);
  if (!start) return false;
  const auto rowCount = static_cast<std::int64_t>(table.rowCount());
  const std::int64_t most = *start + std::max({*start / 2, rowCount, pageSize}) - size;
  if (sizeOfChanges(table, most) > most) return false;
  PatchWriter patch(journal, directory, name);
  patch.put(0, header(grownMagic, *start));
  forEachChange(table, table.storedRowCount(), [&](std::string_view bytes) {
    patch.put(size, bytes);
    size += std::ssize(bytes);
  });
  patch.finish(size);
  return true;
}

class Reader {
 public:
  Reader(Table& table, File& file)
      : table_(table), file_(file), reader_(file), size_(file.size().value_or(0)) {}

  void read() {
    const std::string magic(take(magicSize));
    const std::int64_t number = number64();
    if (magic == grownMagic) {
      require(number >= headerSize && number <= size_);
      findBeginnings(number);
      position_ = headerSize;
      while (position_ < number) apply(next());
      require(position_ == number);
      while (position_ < size_) apply(next());
    } else {
      require(magic == wholeMagic);
      for (std::int64_t count = number; count > 0; --count) apply(next());
      require(position_ == size_);
    }
  }

 private:
  struct Found {
    std::int64_t offset;
    std::size_t row;
    std::size_t column;
    Entry entry;
    std::string_view text{};
    std::unique_ptr<TempRule> rule{};
  };

  Found next() {
    Found found{position_, static_cast<std::size_t>(number32()),
                static_cast<std::size_t>(number32()), static_cast<Entry>(take(1).front())};
    require(found.row < table_.rowCount() && found.column < table_.columns.size());
    if (found.entry == Entry::text) found.text = text();
    if (found.entry == Entry::timed) found.rule = rule();
    return found;
  }
  // Where the last entries of each row begin that were added. At a fault the search ends, which is
  // then met again.
  void findBeginnings(std::int64_t start) {
    beginnings_.resize(table_.rowCount());
    try {
      for (position_ = start; position_ < size_;) {
        const Found found = next();
        if (found.entry == Entry::anew) beginnings_[found.row] = found.offset;
      }
    } catch (const Unreadable&) {
      throw;
    } catch (const std::runtime_error&) {
    }
  }
  void apply(Found&& found) {
    if (!beginnings_.empty() && found.offset < beginnings_[found.row]) return;
    if (found.entry == Entry::null) {
      table_.setValue(found.row, found.column, Value());
    } else if (found.entry == Entry::text) {
      const ValueKind kind = table_.kind(found.column);
      require(kind == ValueKind::text || kind == ValueKind::unknown);
      table_.setValue(found.row, found.column, std::string(found.text));
    } else if (found.entry == Entry::timed) {
      Cell cell;
      cell.tempRule = std::move(found.rule);
      table_.restore(found.row, found.column, cell, 0);
    } else {
      require(found.entry == Entry::anew && !beginnings_.empty());
    }
  }
  std::unique_ptr<TempRule> rule() {
    auto rule = std::make_unique<TempRule>();
    rule->repeat = take(1).front() != '\0';
    rule->startTime = number64();
    rule->cycleLength = number64();
    const std::int32_t count = number32();
    require(count > 0);
    for (std::int32_t i = 0; i < count; ++i) {
      const std::int64_t duration = number64();
      rule->states.push_back({Text(text()), duration});
    }
    return rule;
  }
  std::string_view text() {
    const std::int32_t size = number32();
    require(size >= 0);
    return take(static_cast<std::size_t>(size));
  }
  std::int32_t number32() { return getInt32(take(4).data()); }
  std::int64_t number64() { return getInt64(take(8).data()); }
  std::string_view take(std::size_t count) {
    require(static_cast<std::int64_t>(count) <= size_ - position_);
    const std::string_view bytes = reader_.at(position_, count);
    require(bytes.size() == count);
    position_ += static_cast<std::int64_t>(count);
    return bytes;
  }
  void require(bool isRight) const {
    if (!isRight) throw std::runtime_error("Corrupt file: " + printable(file_.name()));
  }

  Table& table_;
  File& file_;
  BlockReader reader_;
  std::int64_t size_;
  std::int64_t position_ = 0;
  std::vector<std::int64_t> beginnings_;  // by row: what stands before is void; empty for no row
};

bool isPlainRule(const TempRule& rule, std::int32_t maxStates) {
  return rule.states.size() <= static_cast<std::size_t>(maxStates) &&
         std::all_of(rule.states.begin(), rule.states.end(),
                     [](const TempState& state) { return fitsField(state.value); });
}

}  // namespace

bool writeExactValues(const Table& table, std::optional<std::int64_t> oldSize,
                      const Directory& directory, CheckpointJournal& journal) {
  const bool areOthersFiled =
      oldSize && !table.isAllDirty() && table.storedRowCount() <= table.rowCount();
  if (areOthersFiled && *oldSize > 0 && addChanges(table, *oldSize, directory, journal)) {
    return true;
  }
  return writeWhole(table, areOthersFiled && *oldSize == 0, directory, journal);
}

void readExactValues(Table& table, const Directory& directory) {
  const std::string name = fileNameOf(table.tableName, exactExtension);
  File file(directory, name, File::Mode::read);
  if (!file.isOpen() && errno == ENOENT) return;
  if (!file.isOpen()) throwUnreadable(name);
  Reader(table, file).read();
}

bool needsNoExactValues(const Table& table) {
  for (const Column& column : table.columns) {
    if (column.type == longType || column.type == doubleType) return false;
  }
  bool isPlain = true;
  forEachEntry(
      table, 0, table.rowCount(), 0, [&](std::size_t row, std::size_t column, Entry entry) {
        isPlain = isPlain && entry == Entry::timed &&
                  isPlainRule(*table.values(column).rule(row), table.columns[column].maxStates);
      });
  return isPlain && floatsHaveSixDecimals(table);
}

}  // namespace velmora
