// The linked tables and the statements that run on them.
#include "linked_tables.h"

namespace bench {

namespace {

const Statement createChildren = {
    "CREATE TABLE children id ApexInt parent_id int name string",
    "CREATE TABLE children (id INTEGER PRIMARY KEY, parent_id INT REFERENCES parents (id), "
    "name TEXT)"};
const Statement linkChildren = {"LINK children.parent_id --> parents.id",
                                "CREATE INDEX children_by_parent ON children (parent_id)"};

}  // namespace

const Statement refusedParentDelete = {"DELETE FROM parents WHERE id = ?1",
                                       "DELETE FROM parents WHERE id = ?1", true};
const Statement updateParentByKey = {"UPDATE parents SET score = ?1 WHERE id = ?2",
                                     "UPDATE parents SET score = ?1 WHERE id = ?2"};
const Statement deleteParentByKey = {"DELETE FROM parents WHERE id = ?1",
                                     "DELETE FROM parents WHERE id = ?1"};

void fillLinkedTables(Engine& engine, int parentCount, const std::string& suffix) {
  fillParents(engine, parentCount, suffix);
  engine.execute(onTables(createChildren, suffix));
  engine.execute(onTables(linkChildren, suffix));
  engine.fill(onTables(insertChild, suffix), parentCount / 2, [](int index) {
    return Values{index + 1, "child" + std::to_string(index)};
  });
}

Values childValues(int parentCount, int index) {
  return {1 + scatterBelow(parentCount / 2, index, 6), "child" + std::to_string(index)};
}

}  // namespace bench
