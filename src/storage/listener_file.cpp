// listeners.bin: the registered listeners, records back to back.
//
//   SIZE    MEANING
//     15    table name
//     15    event
//    100    target, cut at 100
//      4    number of conditions k
//   44 * k  the conditions: 15 column name, 25 value, 3 operator, 1 connective
#include <stdexcept>

#include "../record_io.h"
#include "storage.h"

namespace velmora {
namespace {

constexpr std::size_t targetWidth = 100;
constexpr std::size_t fixedSize = nameWidth + nameWidth + targetWidth + 4;
constexpr std::size_t valueWidth = 25;
constexpr std::size_t operatorWidth = 3;
constexpr std::size_t conditionSize = nameWidth + valueWidth + operatorWidth + 1;
static_assert(fixedSize == 134 && conditionSize == 44);

}  // namespace

void Storage::saveListener(const std::string& tableName, const std::string& event,
                           const std::string& target, const std::vector<Condition>& conditions,
                           const Directory& directory) {
  RecordWriter record;
  record.text(tableName, nameWidth).text(event, nameWidth).text(target, targetWidth);
  record.int32(static_cast<std::int32_t>(conditions.size()));
  for (const Condition& condition : conditions) {
    record.text(condition.column, nameWidth).text(condition.value, valueWidth);
    record.text(condition.op, operatorWidth).character(condition.logic);
  }
  File file(directory, listenersFileName, File::Mode::append);
  if (!file.isOpen()) return;
  const auto size = file.size();
  if (!file.write(record.bytes()) && size) file.truncate(*size);
}

std::optional<std::vector<ListenerRecord>> Storage::readListeners(const Directory& directory) {
  const auto bytes = readFile(directory, listenersFileName);
  if (!bytes) return std::nullopt;
  std::vector<ListenerRecord> listeners;
  RecordReader reader(*bytes);
  std::size_t completeSize = 0;
  while (reader.remaining() >= fixedSize) {
    ListenerRecord listener;
    listener.tableName = reader.text(nameWidth);
    listener.event = reader.text(nameWidth);
    listener.target = reader.text(targetWidth);
    const std::int32_t count = reader.int32();
    if (count < 0) return listeners;  // no torn record: nothing behind it can be read or judged
    if (static_cast<std::size_t>(count) > reader.remaining() / conditionSize) break;
    for (std::int32_t i = 0; i < count; ++i) {
      Condition condition;
      condition.column = reader.text(nameWidth);
      condition.value = reader.text(valueWidth);
      condition.op = reader.text(operatorWidth);
      condition.logic = reader.character();
      listener.conditions.push_back(std::move(condition));
    }
    listeners.push_back(std::move(listener));
    completeSize = reader.position();
  }
  if (completeSize < bytes->size()) {
    File file(directory, listenersFileName, File::Mode::readWrite);
    if (!file.truncate(static_cast<std::int64_t>(completeSize))) {
      throw std::runtime_error(std::string("Failed to repair file: ") + listenersFileName);
    }
  }
  return listeners;
}

}  // namespace velmora
