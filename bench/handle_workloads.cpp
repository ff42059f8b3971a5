// What handles add: prepared statements, threads, durability, aggregates, another second. Figures
// are of velmora by a handle, unless a side says otherwise.
#include <ctime>
#include <exception>
#include <stdexcept>
#include <thread>

#include "data.h"
#include "handle.h"
#include "memory.h"
#include "stopwatch.h"
#include "workload.h"

namespace bench {

namespace {

Batch randomKeys(int rows, int round, int count) {
  return makeBatch(count, [=](int index) { return Values{1 + scatterBelow(rows, index, round)}; });
}

Workload preparedSelect(const Scale& scale) {
  const int rows = scale.rows(200000);
  const int commands = scale.commands(40000);
  return {"16",
          {{"SELECT by key, prepared, values read by type, 200k rows",
            atMostOf(Mode::memoryPrepared, 0.15), Fit::memory},
           {"the same", atMostOf(Mode::velmora, 0.60), Fit::memory},
           {"the same, a text made of the values", {}, Fit::memory}},
          {Mode::velmora, Mode::handle, Mode::memoryPrepared},
          [=](Mode mode) {
            auto engine = openItems(mode, rows);
            return Player{
                [=](int round) {
                  const Batch keys = randomKeys(rows, round, commands);
                  const double read = engine->timeReading(selectItemByKey, keys) / commands;
                  return Figures{read, read, timeOne(*engine, selectItemByKey, keys)};
                },
                [=] { return answersOf(*engine, selectItemByKey, randomKeys(rows, 0, 1000)); }};
          },
          Mode::handle};
}

// Calls work(index) in so many threads, and returns the seconds until all are done; in processor
// time those that each had, on average.
double timeThreads(int count, const std::function<void(int index)>& work) {
  std::vector<std::thread> threads;
  std::vector<std::exception_ptr> failures(static_cast<std::size_t>(count));
  const Stopwatch watch;
  for (int index = 0; index < count; ++index) {
    threads.emplace_back([&, index] {
      try {
        work(index);
      } catch (...) {
        failures[static_cast<std::size_t>(index)] = std::current_exception();
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  const double seconds = watch.seconds() / (stopwatchClock == CLOCK_MONOTONIC ? 1 : count);
  for (const std::exception_ptr& failure : failures) {
    if (failure) std::rethrow_exception(failure);
  }
  return seconds;
}

// The seconds of one of the commands, each thread giving all of the batch by a statement of its
// own.
double timeReaders(velmora_db* database, int threads, const std::string& text, const Batch& batch) {
  freshMemory();
  const double seconds = timeThreads(threads, [&](int) {
    HandleStatement statement(database, text);
    for (const Values& values : batch) readRows(*statement.run(values));
  });
  return seconds / static_cast<double>(batch.size()) / threads;
}

void insertItems(velmora_db* database, int rows) {
  HandleStatement insert(database, insertItem.velmora);
  runHandle(database, "BEGIN");
  for (int index = 0; index < rows; ++index) insert.run(itemValues(index));
  runHandle(database, "COMMIT");
}

std::shared_ptr<velmora_db> openItemsByHandle(const std::string& path, std::uint32_t durability,
                                              int rows) {
  std::shared_ptr<velmora_db> database = openHandleDatabase(path, durability);
  runHandle(database.get(), createItems.velmora);
  insertItems(database.get(), rows);
  return database;
}

Workload twoReaders(const Scale& scale) {
  const int rows = scale.rows(1000000);
  const int commands = scale.commands(400000);
  const std::string scan = "SELECT COUNT(*), SUM(age) FROM items WHERE age < ?1";
  return {"17",
          {{"SELECT by key, one thread"},
           {"the same by two threads, time by all commands", atMostOf(0, "one thread", 1 / 1.7)},
           {"scan of 1M rows, COUNT and SUM, one thread"},
           {"the same by two threads, time by all commands", atMostOf(2, "one thread", 1 / 1.7)}},
          {Mode::handle},
          [=](Mode) {
            const auto database = openItemsByHandle(".", VELMORA_DURABILITY_OFF, rows);
            return Player{[=](int round) {
                            const Batch keys = randomKeys(rows, round, commands);
                            const Batch ages =
                                makeBatch(50, [](int index) { return Values{25 + index}; });
                            Figures figures;
                            for (const int threads : {1, 2}) {
                              figures.push_back(timeReaders(database.get(), threads,
                                                            selectItemByKey.velmora, keys));
                            }
                            for (const int threads : {1, 2}) {
                              figures.push_back(timeReaders(database.get(), threads, scan, ages));
                            }
                            return figures;
                          },
                          {}};
          },
          Mode::handle};
}

double timeWriters(velmora_db* database, int threads, const Batch& batch) {
  const std::size_t share = batch.size() / static_cast<std::size_t>(threads);
  freshMemory();
  const double seconds = timeThreads(threads, [&](int index) {
    HandleStatement insert(database, insertItem.velmora);
    const std::size_t first = static_cast<std::size_t>(index) * share;
    for (std::size_t i = first; i < first + share; ++i) insert.run(batch[i]);
  });
  return seconds / static_cast<double>(share) / threads;
}

Workload durabilities(const Scale& scale) {
  const int commands = scale.commands(40000);
  const int syncedCommands = scale.commands(1600);
  const auto rowsOf = [](int round, int count) {
    return makeBatch(count, [=](int index) { return itemValues(round * count + index); });
  };
  return {"18",
          {{"durable INSERT, off", atMostOf(Mode::velmora, 1)},
           {"durable INSERT, everysec", atMostOf(0, "off", 1.1)},
           {"durable INSERT, always, one thread"},
           {"the same by eight threads, time by all commands", atMostOf(2, "one thread", 1 / 3.0)}},
          {Mode::velmora, Mode::handle},
          [=](Mode mode) {
            if (mode == Mode::velmora) {
              auto engine = openItems(mode, 10000);
              return Player{[=](int round) {
                              return Figures{timeOne(*engine, insertItem, rowsOf(round, commands)),
                                             notMeasured, notMeasured, notMeasured};
                            },
                            {}};
            }
            const auto off = openItemsByHandle("off", VELMORA_DURABILITY_OFF, 10000);
            const auto everySecond =
                openItemsByHandle("everysec", VELMORA_DURABILITY_EVERYSEC, 10000);
            const auto always = openItemsByHandle("always", VELMORA_DURABILITY_ALWAYS, 10000);
            return Player{[=](int round) {
                            const Batch rows = rowsOf(round, commands);
                            const Batch few = rowsOf(round, syncedCommands);
                            return Figures{timeWriters(off.get(), 1, rows),
                                           timeWriters(everySecond.get(), 1, rows),
                                           timeWriters(always.get(), 1, few),
                                           timeWriters(always.get(), 8, few)};
                          },
                          {}};
          },
          Mode::handle};
}

// The others name a computed column as velmora does; DuckDB counts and adds in wider types than
// its answers are read in here.
const Statement countAndSum = {
    "SELECT COUNT(*), SUM(age) FROM items WHERE age < ?1",
    "SELECT COUNT(*), SUM(age) FROM items WHERE age < ?1", false,
    "SELECT COUNT(*)::INT AS \"COUNT(*)\", SUM(age)::INT AS \"SUM(age)\" FROM items "
    "WHERE age < ?1"};
const Statement byAge = {
    "SELECT age, COUNT(*), SUM(score) FROM items GROUP BY age ORDER BY age",
    "SELECT age, COUNT(*), SUM(score) FROM items GROUP BY age ORDER BY age", false,
    "SELECT age, COUNT(*)::INT AS \"COUNT(*)\", SUM(score) AS \"SUM(score)\" FROM items "
    "GROUP BY age ORDER BY age"};
const Statement bestScores = {"SELECT id, name, score FROM items ORDER BY score DESC, id LIMIT 10",
                              "SELECT id, name, score FROM items ORDER BY score DESC, id LIMIT 10"};
const Statement firstNames = {"SELECT id, name FROM items ORDER BY name LIMIT 10",
                              "SELECT id, name FROM items ORDER BY name LIMIT 10"};

Workload aggregates(const Scale& scale) {
  const int rows = scale.rows(1000000);
  const Goal goal = atMostOf(Mode::duckdbMemory, 1);
  return {"19",
          {{"COUNT and SUM over 1M rows, half of them match", goal, Fit::memory},
           {"GROUP BY of 100 groups over 1M rows", goal, Fit::memory},
           {"ORDER BY a float DESC, key LIMIT 10 over 1M rows", goal, Fit::memory},
           {"ORDER BY a text LIMIT 10 over 1M rows", goal, Fit::memory}},
          {Mode::handle, Mode::memoryPrepared, Mode::duckdbMemory},
          [=](Mode mode) {
            auto engine = openItems(mode, rows);
            const auto timeThrice = [=](const Statement& statement, const Batch& batch) {
              return engine->timeReading(statement, batch) / static_cast<double>(batch.size());
            };
            return Player{
                [=](int round) {
                  const Batch thrice = makeBatch(3, [](int) { return Values(); });
                  const Batch ages =
                      makeBatch(3, [=](int index) { return Values{48 + round + index}; });
                  return Figures{timeThrice(countAndSum, ages), timeThrice(byAge, thrice),
                                 timeThrice(bestScores, thrice), timeThrice(firstNames, thrice)};
                },
                [=] {
                  return answersOf(*engine, countAndSum, {{0}, {50}, {100}}) +
                         answersOf(*engine, byAge, {{}}) + answersOf(*engine, bestScores, {{}}) +
                         answersOf(*engine, firstNames, {{}});
                }};
          },
          Mode::handle};
}

// Two states in every row, of ten days each; half of the rows cycle. They began at some second of
// the last twenty days.
void fillTimedByHandle(velmora_db* database, int rows, int now) {
  runHandle(database, "CREATE TABLE timed id ApexInt number int 2");
  const std::string states = "INSERT INTO timed number = ?1 --> ?2 @ 10 d";
  HandleStatement once(database, states + " #TIME# ?3");
  HandleStatement cycling(database, states + " c #TIME# ?3");
  const int twentyDays = 20 * 24 * 60 * 60;
  runHandle(database, "BEGIN");
  for (int index = 0; index < rows; ++index) {
    (index % 2 == 0 ? once : cycling)
        .run({scatterBelow(100, index, 12), scatterBelow(100, index, 13),
              now - scatterBelow(twentyDays, index, 14)});
  }
  runHandle(database, "COMMIT");
}

Workload otherSecond(const Scale& scale) {
  const int rows = scale.rows(1000000);
  return {"20",
          {{"scan of 1M rows, int equality, 1 % match, two states in every row, now"},
           {"the same, AT a second of tomorrow that has been asked for", atMostOf(0, "now", 1.1)},
           {"the same, AT a second of another day each time", atMostOf(0, "now", 1.1)}},
          {Mode::handle},
          [=](Mode) {
            const int now = static_cast<int>(std::time(nullptr));
            const std::shared_ptr<velmora_db> database =
                openHandleDatabase(".", VELMORA_DURABILITY_OFF);
            fillTimedByHandle(database.get(), rows, now);
            const std::string scan = "SELECT id FROM timed WHERE number = ?1";
            const auto time = [=](const std::string& text, int round, auto secondOf) {
              HandleStatement statement(database.get(), text);
              freshMemory();
              const Stopwatch watch;
              for (int index = 3 * round; index < 3 * (round + 1); ++index) {
                Values values = {40 + index};
                const int second = secondOf(index);
                if (second != 0) values.emplace_back(second);
                readRows(*statement.run(values));
              }
              return watch.seconds() / 3;
            };
            const auto current = [](int) { return 0; };
            const auto sameDay = [=](int) { return now + 86400; };
            const auto otherDay = [=](int index) { return now + 86400 * (2 + index); };
            // What an engine builds for its scans is built here.
            time(scan, 0, current);
            return Player{[=](int round) {
                            const double ofNow = time(scan, round, current);
                            // The round before has looked at other days.
                            time(scan + " AT ?2", round, sameDay);
                            return Figures{ofNow, time(scan + " AT ?2", round, sameDay),
                                           time(scan + " AT ?2", round, otherDay)};
                          },
                          {}};
          },
          Mode::handle};
}

}  // namespace

std::vector<Workload> handleWorkloads(const Scale& scale) {
  return {preparedSelect(scale), twoReaders(scale), durabilities(scale), aggregates(scale),
          otherSecond(scale)};
}

}  // namespace bench
