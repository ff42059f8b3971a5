// See undo_log.h.
#include "undo_log.h"

#include <utility>

#include "../typed_value.h"

namespace velmora {

void UndoLog::noteInsert(Table& table, std::size_t row) {
  changes_.emplace_back(Insert{&table, row});
}

void UndoLog::noteFiled() { std::get<Insert>(changes_.back()).isFiled = true; }

void UndoLog::noteDeletions(Table& table, std::size_t mostRows) {
  auto deletion = std::make_unique<Deletion>(Deletion{&table, {}});
  deletion->rows.reserve(mostRows);
  changes_.emplace_back(std::move(deletion));
}

void UndoLog::noteDeleted(std::int32_t row) {
  std::get<std::unique_ptr<Deletion>>(changes_.back())->rows.push_back(row);
}

void UndoLog::noteUpdate(Table& table, std::size_t column, const std::vector<std::int32_t>& rows,
                         std::int64_t now) {
  auto update = std::make_unique<Update>(Update{&table, column, rows, {}, {}});
  update->values.reserve(rows.size());
  const ColumnValues& values = table.values(column);
  for (const std::int32_t each : rows) {
    const auto row = static_cast<std::size_t>(each);
    if (values.rule(row) == nullptr) {
      update->values.push_back(ownedValue(values.value(row, now)));
    } else {
      update->timed.emplace_back(each, values.cell(row));
      update->values.emplace_back();
    }
  }
  changes_.emplace_back(std::move(update));
}

void UndoLog::noteCatalogue(std::function<void()> takeBack) {
  changes_.emplace_back(std::make_unique<Catalogue>(Catalogue{std::move(takeBack)}));
}

void UndoLog::undoTo(std::size_t size, std::int64_t now) {
  while (changes_.size() > size) {
    std::visit([&](auto& change) { undo(change, now); }, changes_.back());
    changes_.pop_back();
  }
  if (!areParentsUnsure_) return;
  for (const auto& [name, table] : database_->tables) database_->linkRows(table, now);
  areParentsUnsure_ = !changes_.empty();
}

void UndoLog::undo(Insert& change, std::int64_t now) {
  if (change.isFiled) {
    database_->unlinkRow(*change.table, static_cast<std::int32_t>(change.row), now);
    if (change.table->hasPrimaryKey()) change.table->unfileRow(change.row);
  }
  if (change.table->rowCount() > change.row) change.table->removeLastRow();
}

void UndoLog::undo(Deletion& change, std::int64_t /*now*/) {
  for (const std::int32_t each : change.rows) {
    const auto row = static_cast<std::size_t>(each);
    change.table->setDeleted(row, false);
    // Another row may have had its key meanwhile.
    if (change.table->hasPrimaryKey()) change.table->fileRow(row);
  }
}

// The parents that the rows had then still list them.
void UndoLog::undo(Update& change, std::int64_t now) {
  Table& table = *change.table;
  const bool isKey = static_cast<std::int32_t>(change.column) == table.primaryKeyIndex;
  if (isKey) {
    for (const std::int32_t row : change.rows) table.unfileRow(static_cast<std::size_t>(row));
  }
  for (std::size_t i = 0; i < change.rows.size(); ++i) {
    table.setValue(static_cast<std::size_t>(change.rows[i]), change.column, change.values[i]);
  }
  for (const auto& [row, cell] : change.timed) {
    table.restore(static_cast<std::size_t>(row), change.column, cell, now);
  }
  if (isKey) {
    for (const std::int32_t row : change.rows) table.fileRow(static_cast<std::size_t>(row));
  }
}

void UndoLog::undo(Catalogue& change, std::int64_t /*now*/) {
  change.takeBack();
  areParentsUnsure_ = true;
}

}  // namespace velmora
