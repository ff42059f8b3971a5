// Commands that read or change many rows at once: scans, joins, key ranges, an UPDATE of half a
// table, columns of timed values. A figure is the time of one command.
#include <ctime>

#include "data.h"
#include "workload.h"

namespace bench {

namespace {

Workload scan(const Scale& scale) {
  const int rows = scale.rows(1000000);
  const Statement byAge = {"SELECT id, name FROM items WHERE age = ?1",
                           "SELECT id, name FROM items WHERE age = ?1"};
  const Statement byName = {"SELECT id, age FROM items WHERE name = ?1",
                            "SELECT id, age FROM items WHERE name = ?1"};
  return {"3",
          {{"scan of 1M rows, int equality, 1 % match", atMostOf(Mode::duckdbMemory, 0.15),
            Fit::memory},
           {"scan of 1M rows, text equality, 0.1 % match", atMostOf(Mode::duckdbMemory, 0.06),
            Fit::memory},
           {"the first int scan, what it builds included", {}, Fit::memory}},
          plainModes,
          [=](Mode mode) {
            auto engine = openItems(mode, rows, itemValuesWithFewNames);
            // What an engine builds for its scans is built here, once.
            const double first = engine->time(byAge, {{39}});
            return Player{[=](int round) {
                            auto name = [=](int index) {
                              return Values{"name" + std::to_string(3 * round + index)};
                            };
                            auto age = [=](int index) { return Values{40 + 3 * round + index}; };
                            return Figures{timeOne(*engine, byAge, makeBatch(3, age)),
                                           timeOne(*engine, byName, makeBatch(3, name)), first};
                          },
                          [=] {
                            return answersOf(*engine, byAge, {{7}}) +
                                   answersOf(*engine, byName, {{"name99"}, {"nobody"}});
                          }};
          }};
}

// velmora names a joined column by its table as well; SQLite is told to.
Statement joinOfAll() {
  return {
      "SELECT children.id, children.name, parents.name FROM children JOIN parents "
      "ON children.parent_id = parents.id",
      "SELECT children.id AS 'children.id', children.name AS 'children.name', "
      "parents.name AS 'parents.name' FROM children JOIN parents "
      "ON children.parent_id = parents.id"};
}

Workload join(const Scale& scale) {
  const int parents = scale.rows(100000);
  const int children = scale.rows(300000);
  const Statement all = joinOfAll();
  const Statement filtered = {all.velmora + " WHERE parents.age = ?1",
                              all.sqlite + " WHERE parents.age = ?1"};
  const Statement createChildren = {
      "CREATE TABLE children id ApexInt parent_id int name string",
      "CREATE TABLE children (id INTEGER PRIMARY KEY, parent_id INT, name TEXT)"};
  return {
      "4",
      {{"join of 300k with 100k, 1 % of the parents", atMostOf(Mode::duckdbMemory, 0.5),
        Fit::memory},
       {"join of 300k with 100k, all", atMostOf(Mode::duckdbMemory, 0.4), Fit::memory}},
      plainModes,
      [=](Mode mode) {
        std::shared_ptr<Engine> engine = openEngine(mode);
        fillParents(*engine, parents);
        engine->execute(createChildren);
        engine->fill(insertChild, children, [=](int index) {
          return Values{1 + scatterBelow(parents, index, 5), "child" + std::to_string(index)};
        });
        return Player{
            [=](int round) {
              return Figures{engine->time(filtered, {{40 + round}}), engine->time(all, {{}})};
            },
            [=] { return answersOf(*engine, filtered, {{7}}) + answersOf(*engine, all, {{}}); }};
      }};
}

Workload updateHalf(const Scale& scale) {
  const int rows = scale.rows(1000000);
  const Statement update = {"UPDATE items SET score = ?1 WHERE age < 50",
                            "UPDATE items SET score = ?1 WHERE age < 50"};
  return {"6",
          {{"durable UPDATE of half of 1M rows", atMostOf(Mode::duckdbMemory, 0.4)}},
          plainModes,
          [=](Mode mode) {
            auto engine = openItems(mode, rows, itemValuesWithFewNames);
            return Player{
                [=](int round) { return Figures{engine->time(update, {{0.25 * round}})}; },
                [=] {
                  return answersOf(*engine, update, {{7.25}}) +
                         answersOf(*engine, selectItemByKey,
                                   {{1}, {2}, {3}, {4}, {5}, {6}, {7}, {8}});
                }};
          }};
}

Workload keyRange(const Scale& scale) {
  const int rows = scale.rows(1000000);
  const Statement range = {"SELECT id, name FROM items WHERE id >= ?1 && id < ?2",
                           "SELECT id, name FROM items WHERE id >= ?1 AND id < ?2"};
  return {"7",
          {{"key range, 1 % of 1M rows", atMostOf(Mode::duckdbMemory, 0.3), Fit::memory}},
          plainModes,
          [=](Mode mode) {
            auto engine = openItems(mode, rows, itemValuesWithFewNames);
            auto bounds = [=](int round) {
              return makeBatch(5, [=](int index) {
                const int first = 1 + scatterBelow(rows - rows / 100, 5 * round + index, 4);
                return Values{first, first + rows / 100};
              });
            };
            return Player{
                [=](int round) { return Figures{timeOne(*engine, range, bounds(round))}; },
                [=] { return answersOf(*engine, range, bounds(0)); }};
          }};
}

// Two states in every row, of ten days each; half of the rows cycle. They began at some second of
// the last twenty days, so that half of them are past their first change.
void fillTimed(Engine& engine, int rows) {
  const std::string states = "INSERT INTO timed number = ?1 --> ?2 @ 10 d";
  const Statement once = {states + " #TIME# ?3", ""};
  const Statement cycling = {states + " c #TIME# ?3", ""};
  const int now = static_cast<int>(std::time(nullptr));
  const int twentyDays = 20 * 24 * 60 * 60;
  engine.execute({"CREATE TABLE timed id ApexInt number int 2", ""});
  for (int index = 0; index < rows; ++index) {
    engine.execute(index % 2 == 0 ? once : cycling,
                   {scatterBelow(100, index, 12), scatterBelow(100, index, 13),
                    now - scatterBelow(twentyDays, index, 14)});
  }
}

Workload timedScan(const Scale& scale) {
  const int rows = scale.rows(1000000);
  const Statement plain = {"SELECT id FROM plain WHERE number = ?1", ""};
  const Statement timed = {"SELECT id FROM timed WHERE number = ?1", ""};
  return {"14",
          {{"scan of 1M rows, int equality, 1 % match, no states"},
           {"the same, two states in every row", atMostOf(0, "the plain one", 3)}},
          {Mode::velmora},
          [=](Mode mode) {
            std::shared_ptr<Engine> engine = openEngine(mode);
            engine->execute({"CREATE TABLE plain id ApexInt number int", ""});
            engine->fill({"INSERT INTO plain number = ?1", ""}, rows,
                         [](int index) { return Values{scatterBelow(100, index, 12)}; });
            fillTimed(*engine, rows);
            // What an engine builds for its scans is built here.
            for (const Statement& first : {plain, timed}) engine->execute(first, {1});
            return Player{
                [=](int round) {
                  const Batch batch =
                      makeBatch(3, [=](int index) { return Values{40 + 3 * round + index}; });
                  return Figures{timeOne(*engine, plain, batch), timeOne(*engine, timed, batch)};
                },
                {}};
          }};
}

}  // namespace

std::vector<Workload> scanWorkloads(const Scale& scale) {
  return {scan(scale), join(scale), updateHalf(scale), keyRange(scale), timedScan(scale)};
}

}  // namespace bench
