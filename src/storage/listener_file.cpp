// listeners.bin: the registered listeners, records back to back.
//
//   SIZE    MEANING
//     15    table name
//     15    event
//    100    target, cut at 100
//      4    number of conditions k
//   44 * k  the conditions: 15 column name, 25 value, 3 operator, 1 connective
#include <algorithm>
#include <cerrno>

#include "../record_io.h"
#include "block_io.h"
#include "storage.h"

namespace velmora {
namespace {

constexpr std::size_t targetWidth = 100;
constexpr std::int64_t fixedSize = nameWidth + nameWidth + targetWidth + 4;
constexpr std::size_t valueWidth = 25;
constexpr std::size_t operatorWidth = 3;
constexpr std::int64_t conditionSize = nameWidth + valueWidth + operatorWidth + 1;
static_assert(fixedSize == 134 && conditionSize == 44);

Condition readCondition(RecordReader& record) {
  Condition condition;
  condition.column = record.text(nameWidth);
  condition.value = record.text(valueWidth);
  condition.op = record.text(operatorWidth);
  condition.logic = record.character();
  return condition;
}

// The conditions of a record, from the offset on; nothing if one of them has no column, which none
// that was written has.
std::optional<std::vector<Condition>> readConditions(BlockReader& reader, std::int64_t offset,
                                                     std::int64_t count) {
  std::vector<Condition> conditions;
  for (std::int64_t i = 0; i < count; ++i, offset += conditionSize) {
    const std::string_view bytes = reader.at(offset, conditionSize);
    if (bytes.size() < conditionSize || bytes.front() == '\0') return std::nullopt;
    RecordReader record(bytes);
    conditions.push_back(readCondition(record));
  }
  return conditions;
}

Listener readFixedPart(RecordReader& record) {
  Listener listener;
  listener.tableName = record.text(nameWidth);
  listener.event = record.text(nameWidth);
  listener.target = record.text(targetWidth);
  return listener;
}

}  // namespace

std::string Storage::listenerRecord(const Listener& listener) {
  RecordWriter record;
  record.text(listener.tableName, nameWidth).text(listener.event, nameWidth);
  record.text(listener.target, targetWidth);
  record.int32(static_cast<std::int32_t>(listener.conditions.size()));
  for (const Condition& condition : listener.conditions) {
    record.text(condition.column, nameWidth).text(condition.value, valueWidth);
    record.text(condition.op, operatorWidth).character(condition.logic);
  }
  return record.bytes();
}

Listener Storage::asStored(const Listener& listener) {
  const std::string bytes = listenerRecord(listener);
  RecordReader record(bytes);
  Listener stored = readFixedPart(record);
  for (std::int32_t count = record.int32(); count > 0; --count) {
    stored.conditions.push_back(readCondition(record));
  }
  return stored;
}

std::optional<StoredRecords> Storage::readListeners(const std::function<void(Listener)>& use,
                                                    const Directory& directory) {
  File file(directory, listenersFileName, File::Mode::read);
  if (!file.isOpen() && errno == ENOENT) return std::nullopt;
  const auto fileSize = file.size();
  const auto end = file.contentEnd();
  if (!fileSize || !end) throwUnreadable(listenersFileName);
  StoredRecords read{0, *fileSize};
  BlockReader reader(file);
  for (std::int64_t offset = 0; offset + fixedSize <= *end;) {
    const std::string_view bytes = reader.at(offset, fixedSize);
    if (bytes.size() < fixedSize) break;
    const bool isZero = isAllZero(bytes);
    RecordReader record(bytes);
    Listener listener = readFixedPart(record);
    // How long a record with a negative count was, nobody knows; those behind it are looked for
    // where they are if it had no conditions.
    const std::int32_t stored = record.int32();
    const std::int64_t count = std::max(stored, 0);
    if (count > (*end - offset - fixedSize) / conditionSize) break;
    auto conditions = readConditions(reader, offset + fixedSize, count);
    offset += fixedSize + count * conditionSize;
    if (isZero) continue;
    read.completeSize = offset;
    if (stored < 0 || !conditions) continue;
    listener.conditions = std::move(*conditions);
    use(std::move(listener));
  }
  return read;
}

}  // namespace velmora
