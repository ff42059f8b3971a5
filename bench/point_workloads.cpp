// Commands that touch one row: INSERT, SELECT, UPDATE and DELETE by key, the two checks of a
// link, and rows of many columns. A figure is the time of one command, from many commands timed
// together.
#include "data.h"
#include "linked_tables.h"
#include "wide_table.h"
#include "workload.h"

namespace bench {

namespace {

Workload durableInsert(const Scale& scale) {
  const int commands = scale.commands(40000);
  return {"1",
          {{"durable INSERT, 4 columns", atMostOf(Mode::filePrepared, 0.30)}},
          sqliteModes,
          [=](Mode mode) {
            auto engine = openItems(mode, 10000);
            return Player{
                [=](int round) {
                  return Figures{timeOne(*engine, insertItem, makeBatch(commands, [=](int index) {
                    return itemValues(round * commands + index);
                  }))};
                },
                [=] {
                  return answersOf(*engine, selectItemByKey, {{1}, {10001}});
                }};
          }};
}

Workload selectByKey(const Scale& scale) {
  const int rows = scale.rows(200000);
  const int commands = scale.commands(40000);
  return {"2",
          {{"SELECT by key, random, 200k rows", atMostOf(Mode::memoryPrepared, 0.26), Fit::memory}},
          sqliteModes,
          [=](Mode mode) {
            auto engine = openItems(mode, rows);
            auto keys = [=](int round, int count) {
              return makeBatch(
                  count, [=](int index) { return Values{1 + scatterBelow(rows, index, round)}; });
            };
            return Player{
                [=](int round) {
                  return Figures{timeOne(*engine, selectItemByKey, keys(round, commands))};
                },
                [=] { return answersOf(*engine, selectItemByKey, keys(0, 1000)); }};
          }};
}

// Updates go to odd keys, deletes to even ones, no row is deleted twice.
Workload changeByKey(const Scale& scale) {
  const int rows = scale.rows(200000);
  const int commands = scale.commands(10000) / (scale.isQuick ? 2 : 1);
  return {"5",
          {{"durable UPDATE by key, 200k rows", atMostOf(Mode::filePrepared, 0.20)},
           {"durable DELETE by key, 200k rows", atMostOf(Mode::filePrepared, 0.20)}},
          sqliteModes,
          [=](Mode mode) {
            auto engine = openItems(mode, rows);
            auto play = [=](int round) {
              const Batch updates = makeBatch(commands, [=](int index) {
                const int odd = 1 + 2 * scatterBelow(rows / 2, index, round);
                return Values{0.25 * index, odd};
              });
              // 7919 is prime to the number of rows, so the keys come in no order and all differ.
              const Batch deletes = makeBatch(commands, [=](int index) {
                const std::int64_t number = round * commands + index;
                return Values{2 + 2 * static_cast<int>(number * 7919 % (rows / 2))};
              });
              return Figures{timeOne(*engine, updateItemByKey, updates),
                             timeOne(*engine, deleteItemByKey, deletes)};
            };
            return Player{play, [=] {
                            return answersOf(
                                *engine, selectItemByKey,
                                makeBatch(2000, [](int index) { return Values{index + 1}; }));
                          }};
          }};
}

Workload linkedCommands(const Scale& scale) {
  const int parents = scale.rows(100000);
  const int commands = scale.commands(20000);
  return {"8",
          {{"durable INSERT, link checked, 100k parents", atMostOf(Mode::filePrepared, 0.17)},
           {"DELETE of a parent refused", atMostOf(Mode::filePrepared, 0.17)}},
          sqliteModes,
          [=](Mode mode) {
            std::shared_ptr<Engine> engine = openEngine(mode);
            fillLinkedTables(*engine, parents);
            auto play = [=](int round) {
              const Batch inserts = makeBatch(commands, [=](int index) {
                return childValues(parents, round * commands + index);
              });
              const Batch deletes = makeBatch(commands, [=](int index) {
                return Values{1 + scatterBelow(parents / 2, index, round)};
              });
              return Figures{timeOne(*engine, insertChild, inserts),
                             timeOne(*engine, refusedParentDelete, deletes)};
            };
            const Statement children = {"SELECT id, parent_id, name FROM children WHERE id = ?1",
                                        "SELECT id, parent_id, name FROM children WHERE id = ?1"};
            return Player{play, [=] {
                            return answersOf(*engine, refusedParentDelete, {{1}, {2}}) +
                                   answersOf(*engine, children, {{1}, {parents / 2 + 1}});
                          }};
          }};
}

Workload wideRows(const Scale& scale) {
  const int rows = scale.rows(100000);
  const int commands = scale.commands(10000);
  const Statement select = {"SELECT * FROM wide WHERE id = ?1", "SELECT * FROM wide WHERE id = ?1"};
  return {"15",
          {{"SELECT * by key, 64 columns, 100k rows", {}, Fit::memory}},
          sqliteModes,
          [=](Mode mode) {
            std::shared_ptr<Engine> engine = openEngine(mode);
            fillWide(*engine, rows);
            auto keys = [=](int round, int count) {
              return makeBatch(
                  count, [=](int index) { return Values{1 + scatterBelow(rows, index, round)}; });
            };
            return Player{
                [=](int round) { return Figures{timeOne(*engine, select, keys(round, commands))}; },
                [=] { return answersOf(*engine, select, keys(0, 100)); }};
          }};
}

}  // namespace

std::vector<Workload> pointWorkloads(const Scale& scale) {
  return {durableInsert(scale), selectByKey(scale), changeByKey(scale), linkedCommands(scale),
          wideRows(scale)};
}

}  // namespace bench
