// UndoLog: how to take back what commands have changed in a database's memory, newest first: after
// a command that failed half-way, and at a ROLLBACK. A change notes here how to take it back before
// it is made, so that taking back needs no memory.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <variant>
#include <vector>

#include "../database/database.h"
#include "../value.h"

namespace velmora {

class UndoLog {
 public:
  explicit UndoLog(Database& database) : database_(&database) {}

  // How many changes are noted: what undoTo goes back to.
  std::size_t size() const noexcept { return changes_.size(); }
  bool isEmpty() const noexcept { return changes_.empty(); }
  // The changes stay.
  void clear() noexcept {
    changes_.clear();
    areParentsUnsure_ = false;
  }

  // A row that is about to be appended.
  void noteInsert(Table& table, std::size_t row);
  // The row has been filed: from now on it has to be taken out of the key map and of its parents.
  void noteFiled();
  // Rows that are about to be deleted; how many of them are is told as it happens.
  void noteDeletions(Table& table, std::size_t mostRows);
  void noteDeleted(std::int32_t row);
  // A column that is about to be given other values in these rows.
  void noteUpdate(Table& table, std::size_t column, const std::vector<std::int32_t>& rows,
                  std::int64_t now);
  // A change of the catalogue, and what takes it back.
  void noteCatalogue(std::function<void()> takeBack);

  // Takes back all changes but the first ones, so many.
  void undoTo(std::size_t size, std::int64_t now);

 private:
  struct Insert {
    Table* table;
    std::size_t row;
    bool isFiled = false;
  };
  struct Deletion {
    Table* table;
    std::vector<std::int32_t> rows;
  };
  // The values that were there; of timed ones the cells, null elsewhere.
  struct Update {
    Table* table;
    std::size_t column;
    std::vector<std::int32_t> rows;
    std::vector<Value> values;
    std::vector<std::pair<std::int32_t, Cell>> timed;
  };
  struct Catalogue {
    std::function<void()> takeBack;
  };

  void undo(Insert& change, std::int64_t now);
  void undo(Deletion& change, std::int64_t now);
  void undo(Update& change, std::int64_t now);
  void undo(Catalogue& change, std::int64_t now);
  template <typename Rare>
  void undo(std::unique_ptr<Rare>& change, std::int64_t now) {
    undo(*change, now);
  }

  Database* database_;
  // What is rare lies elsewhere: a transaction may be very many inserts.
  using Change = std::variant<Insert, std::unique_ptr<Deletion>, std::unique_ptr<Update>,
                              std::unique_ptr<Catalogue>>;
  std::vector<Change> changes_;
  // Parents list the rows that were theirs before an update or a deletion; where a change of the
  // catalogue was taken back, they may not do so any more.
  bool areParentsUnsure_ = false;
};

}  // namespace velmora
