// CHECKPOINT: what it takes by how much has changed, and how long another caller waits meanwhile.
#include <fcntl.h>
#include <unistd.h>

#include <filesystem>
#include <stdexcept>

#include "data.h"
#include "file_account.h"
#include "memory.h"
#include "second_caller.h"
#include "stopwatch.h"
#include "workload.h"

namespace bench {

namespace {

constexpr char spareName[] = "spare";
const Statement updateAll = {"UPDATE items SET score = ?1", "UPDATE items SET score = ?1"};

// Rows that have a null and a timed value each, which table files of fixed width cannot hold.
const Statement createHeld = {
    "CREATE TABLE held id ApexInt age int score float colour string 2",
    "CREATE TABLE held (id INTEGER PRIMARY KEY, age INT, score REAL, colour TEXT)"};
const Statement insertHeld = {"INSERT INTO held score = ?1 colour = 'red' --> 'green' @ 10 s c",
                              "INSERT INTO held (score, colour) VALUES (?1, 'red')"};
const Statement updateHeld = {"UPDATE held SET score = ?1 WHERE id = ?2",
                              "UPDATE held SET score = ?1 WHERE id = ?2"};
const Statement selectHeld = {"SELECT id, age, score FROM held WHERE id = ?1",
                              "SELECT id, age, score FROM held WHERE id = ?1"};

int openSpare() {
  const int file = open(spareName, O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
  if (file < 0) throw std::runtime_error("Cannot open a file");
  return file;
}

void writeBytes(int file, std::size_t bytes) {
  static const std::string block(std::size_t{1} << 20, 'x');
  while (bytes > 0) {
    const ssize_t count = write(file, block.data(), std::min(bytes, block.size()));
    if (count <= 0) throw std::runtime_error("Cannot write a file");
    bytes -= static_cast<std::size_t>(count);
  }
}

// Writes as many bytes over a file that has them already, in memory and on the disk, in blocks of a
// mebibyte. The file is gone afterwards.
double timeOverwriting(std::size_t bytes) {
  const int first = openSpare();
  writeBytes(first, bytes);
  fsync(first);
  close(first);
  freshMemory();
  const Stopwatch watch;
  const int file = openSpare();
  writeBytes(file, bytes);
  close(file);
  const double seconds = watch.seconds();
  std::filesystem::remove(spareName);
  return seconds;
}

struct CheckpointCost {
  double seconds;  // without the syncs
  double syncSeconds;
  std::size_t bytes;
};

CheckpointCost measureCheckpoint(Engine& engine) {
  freshMemory();
  const double syncBefore = secondsInSync();
  const std::size_t bytesBefore = bytesWritten();
  const Stopwatch watch;
  engine.checkpoint();
  const double total = watch.seconds();
  const double sync = secondsInSync() - syncBefore;
  return {total - sync, sync, bytesWritten() - bytesBefore};
}

// Sets the scores of rows all over the table, others each time.
void changeScattered(Engine& engine, int rows, int count, int round,
                     const Statement& update = updateItemByKey) {
  engine.change(
      update, makeBatch(count, [=](int index) {
        return Values{0.25 * (round + index % 100), 1 + scatterBelow(rows, index, 16 + round)};
      }));
}

Workload checkpoint(const Scale& scale) {
  const int rows = scale.rows(1000000);
  const int someRows = scale.rows(10000);
  auto playRound = [=](Engine& engine, int round) {
    engine.execute(updateAll, {0.25 * round});
    const CheckpointCost all = measureCheckpoint(engine);
    Figures figures = {all.seconds, timeOverwriting(all.bytes), all.syncSeconds};
    for (const int count : {1, 100, someRows}) {
      changeScattered(engine, rows, count, round);
      const CheckpointCost cost = measureCheckpoint(engine);
      figures.insert(figures.end(), {cost.seconds, cost.syncSeconds});
    }
    return figures;
  };
  return {"9",
          {{"CHECKPOINT of 1M rows, all changed", atMostOf(1, "that writing", 1.3)},
           {"(writing as many bytes over a spare file)", {}, Fit::none},
           {"(syncs of that checkpoint, not counted above)", {}, Fit::none},
           {"CHECKPOINT, one row changed", atMost(0.001)},
           {"(its syncs)", {}, Fit::none},
           {"CHECKPOINT, 100 scattered rows changed"},
           {"(its syncs)", {}, Fit::none},
           {"CHECKPOINT, 10,000 scattered rows changed"},
           {"(its syncs)", {}, Fit::none}},
          {Mode::velmora, Mode::filePrepared, Mode::memoryPrepared, Mode::duckdbFile},
          [=](Mode mode) {
            auto engine = openItems(mode, rows);
            engine->execute(noAutomaticCheckpoint);
            return Player{[=](int round) { return playRound(*engine, round); },
                          [=] {
                            return answersOf(*engine, selectItemByKey, {{1}, {9}});
                          }};
          }};
}

Workload checkpointBesideOthers(const Scale& scale) {
  const int rows = scale.rows(1000000);
  auto playRound = [=](Engine& engine, int round) {
    auto longest = [&] {
      freshMemory();
      return longestSelectDuring(rows, [&] { engine.checkpoint(); });
    };
    engine.execute(updateAll, {0.25 * round});
    const double ofAll = longest();
    changeScattered(engine, rows, 1, round);
    return Figures{ofAll, longest()};
  };
  return {"13",
          {{"longest SELECT of another thread while 1M changed rows are checkpointed"},
           {"the same, one row changed"}},
          {Mode::velmora},
          [=](Mode mode) {
            auto engine = openItems(mode, rows);
            return Player{[=](int round) { return playRound(*engine, round); }, {}};
          }};
}

Workload checkpointByHandle(const Scale& scale) {
  const int rows = scale.rows(1000000);
  auto playRound = [=](Engine& engine, int round) {
    changeScattered(engine, rows, 1, round);
    const CheckpointCost cost = measureCheckpoint(engine);
    return Figures{cost.seconds, cost.syncSeconds};
  };
  return {"22",
          {{"CHECKPOINT by a handle, one row of 1M changed", atMost(0.001)},
           {"(its syncs)", {}, Fit::none}},
          {Mode::velmora, Mode::handle, Mode::filePrepared},
          [=](Mode mode) {
            auto engine = openItems(mode, rows);
            engine->execute(noAutomaticCheckpoint);
            engine->checkpoint();
            return Player{[=](int round) { return playRound(*engine, round); },
                          [=] {
                            return answersOf(*engine, selectItemByKey, {{1}, {9}});
                          }};
          },
          Mode::handle};
}

Workload checkpointOfExactValues(const Scale& scale) {
  const int rows = scale.rows(1000000);
  auto playRound = [=](Engine& engine, int round) {
    changeScattered(engine, rows, 1, round, updateHeld);
    const CheckpointCost cost = measureCheckpoint(engine);
    return Figures{cost.seconds, cost.syncSeconds};
  };
  return {"23",
          {{"CHECKPOINT by a handle, one row of 1M with nulls and timed values", atMost(0.001)},
           {"(its syncs)", {}, Fit::none}},
          {Mode::handle, Mode::filePrepared},
          [=](Mode mode) {
            std::shared_ptr<Engine> engine = openEngine(mode);
            engine->execute(createHeld);
            engine->fill(insertHeld, rows, [](int index) { return Values{0.5 * index}; });
            engine->execute(noAutomaticCheckpoint);
            engine->checkpoint();
            return Player{[=](int round) { return playRound(*engine, round); },
                          [=] {
                            return answersOf(*engine, selectHeld, {{1}, {9}});
                          }};
          },
          Mode::handle};
}

}  // namespace

std::vector<Workload> checkpointWorkloads(const Scale& scale) {
  return {checkpoint(scale), checkpointBesideOthers(scale), checkpointByHandle(scale),
          checkpointOfExactValues(scale)};
}

}  // namespace bench
