// See exact_values.h.
#include "exact_values.h"

#include <algorithm>
#include <cerrno>
#include <optional>
#include <stdexcept>

#include "../record_io.h"
#include "../text.h"
#include "block_io.h"
#include "checkpoint_steps.h"
#include "file_names.h"
#include "table_rows.h"

namespace velmora {
namespace {

constexpr std::string_view magic = "velmexct";
constexpr std::size_t widestText = 60;
constexpr std::int64_t headerSize = 16;
static_assert(magic.size() + 8 == headerSize);

enum class Entry : char { none = 0, null = 'n', text = 't', timed = 's' };

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
// ascending.
template <typename Use>
void forEachEntry(const Table& table, std::size_t first, std::size_t count, Use use) {
  std::vector<ColumnValues::Chunk> chunks(table.columns.size());
  for (std::size_t row = first; row < first + count; ++row) {
    for (std::size_t column = 0; column < chunks.size(); ++column) {
      const ColumnValues& values = table.values(column);
      const bool isNewChunk = row == first || Rows::placeOf(row) == 0;
      if (isNewChunk) chunks[column] = values.chunk(Rows::chunkOf(row));
      const Entry entry = entryOf(values, chunks[column], row);
      if (entry != Entry::none) use(row, column, entry);
    }
  }
}

// Begins the file when the first entry comes.
class Writer {
 public:
  Writer(const Table& table, const Directory& directory, CheckpointJournal& journal)
      : table_(table), directory_(directory), journal_(journal) {}

  bool write() {
    std::int64_t count = 0;
    forEachEntry(table_, 0, table_.rowCount(),
                 [&](std::size_t row, std::size_t column, Entry entry) {
                   if (count++ == 0) begin();
                   put(row, column, entry);
                 });
    if (count == 0) return false;
    file_->seek(0);
    file_->write(magic);
    putNumber(putInt64, count);
    file_->finish();
    return true;
  }

 private:
  void begin() {
    const std::string name = fileNameOf(table_.tableName, exactExtension);
    file_.emplace(directory_, addNewFile(journal_, name, directory_));
    file_->seek(headerSize);
  }
  void put(std::size_t row, std::size_t column, Entry entry) {
    putNumber(putInt32, static_cast<std::int32_t>(row));
    putNumber(putInt32, static_cast<std::int32_t>(column));
    const char kind = static_cast<char>(entry);
    file_->write({&kind, 1});
    if (entry == Entry::text) {
      TextRoom room;
      putText(table_.text(row, column, 0, room));
    }
    if (entry == Entry::timed) putRule(*table_.values(column).rule(row));
  }
  void putRule(const TempRule& rule) {
    file_->write(rule.repeat ? "\1" : std::string_view("\0", 1));
    putNumber(putInt64, rule.startTime);
    putNumber(putInt64, rule.cycleLength);
    putNumber(putInt32, static_cast<std::int32_t>(rule.states.size()));
    for (const TempState& state : rule.states) {
      putNumber(putInt64, state.duration);
      putText(state.value);
    }
  }
  void putText(std::string_view text) {
    putNumber(putInt32, static_cast<std::int32_t>(text.size()));
    file_->write(text);
  }
  template <typename Number>
  void putNumber(char* (*encode)(char*, Number) noexcept, Number number) {
    file_->written(encode(file_->room(sizeof number), number));
  }

  const Table& table_;
  const Directory& directory_;
  CheckpointJournal& journal_;
  std::optional<NewFile> file_;
};

class Reader {
 public:
  Reader(Table& table, File& file)
      : table_(table), file_(file), reader_(file), size_(file.size().value_or(0)) {}

  void read() {
    require(take(magic.size()) == magic);
    for (std::int64_t count = getInt64(take(8).data()); count > 0; --count) readEntry();
    require(position_ == size_);
  }

 private:
  void readEntry() {
    const auto row = static_cast<std::size_t>(number32());
    const auto column = static_cast<std::size_t>(number32());
    const auto entry = static_cast<Entry>(take(1).front());
    require(row < table_.rowCount() && column < table_.columns.size());
    if (entry == Entry::null) {
      table_.setValue(row, column, Value());
    } else if (entry == Entry::text) {
      const ValueKind kind = table_.kind(column);
      require(kind == ValueKind::text || kind == ValueKind::unknown);
      table_.setValue(row, column, std::string(text()));
    } else {
      require(entry == Entry::timed);
      Cell cell;
      cell.tempRule = rule();
      table_.restore(row, column, cell, 0);
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
};

bool isPlainRule(const TempRule& rule, std::int32_t maxStates) {
  return rule.states.size() <= static_cast<std::size_t>(maxStates) &&
         std::all_of(rule.states.begin(), rule.states.end(),
                     [](const TempState& state) { return fitsField(state.value); });
}

}  // namespace

bool writeExactValues(const Table& table, const Directory& directory, CheckpointJournal& journal) {
  return Writer(table, directory, journal).write();
}

bool haveChangesExactValues(const Table& table) {
  bool isAny = false;
  table.forEachDirtyRun([&](std::size_t first, std::size_t count) {
    forEachEntry(table, first, count, [&](std::size_t, std::size_t, Entry) { isAny = true; });
  });
  return isAny;
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
  forEachEntry(table, 0, table.rowCount(), [&](std::size_t row, std::size_t column, Entry entry) {
    isPlain = isPlain && entry == Entry::timed &&
              isPlainRule(*table.values(column).rule(row), table.columns[column].maxStates);
  });
  return isPlain && floatsHaveSixDecimals(table);
}

}  // namespace velmora
