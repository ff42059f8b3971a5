// What concerns files and processes: CHECKPOINT, the start, and the memory that rows take. Starts
// and memory are measured in fresh processes.
#include <fcntl.h>
#include <unistd.h>

#include <filesystem>
#include <stdexcept>

#include "data.h"
#include "memory.h"
#include "stopwatch.h"
#include "sync_clock.h"
#include "workload.h"

namespace bench {

namespace {

const Statement noAutomaticCheckpoint = {"", "PRAGMA wal_autocheckpoint = 0", false,
                                         "SET checkpoint_threshold = '1TB'"};

std::size_t bytesInDirectory() {
  std::size_t bytes = 0;
  for (const auto& entry : std::filesystem::directory_iterator(".")) {
    bytes += entry.file_size();
  }
  return bytes;
}

// Writes as many bytes to a new file in blocks of a mebibyte. The file is gone afterwards.
double timeWriting(std::size_t bytes) {
  const std::string block(std::size_t{1} << 20, 'x');
  constexpr char name[] = "written";
  freshMemory();
  const Stopwatch watch;
  const int file = open(name, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  while (bytes > 0) {
    const ssize_t count = write(file, block.data(), std::min(bytes, block.size()));
    if (count <= 0) throw std::runtime_error("Cannot write a file");
    bytes -= static_cast<std::size_t>(count);
  }
  close(file);
  const double seconds = watch.seconds();
  std::filesystem::remove(name);
  return seconds;
}

struct CheckpointTime {
  double seconds;  // without the syncs
  double syncSeconds;
};

CheckpointTime timeCheckpoint(Engine& engine) {
  freshMemory();
  const double syncBefore = secondsInSync();
  const Stopwatch watch;
  engine.checkpoint();
  const double total = watch.seconds();
  const double sync = secondsInSync() - syncBefore;
  return {total - sync, sync};
}

Workload checkpoint(const Scale& scale) {
  const int rows = scale.rows(1000000);
  const Statement updateAll = {"UPDATE items SET score = ?1", "UPDATE items SET score = ?1"};
  auto playRound = [=](Engine& engine, int round) {
    engine.execute(updateAll, {0.25 * round});
    const CheckpointTime all = timeCheckpoint(engine);
    const double writing = timeWriting(bytesInDirectory());
    engine.execute(updateItemByKey, {7.25, 1 + round});
    const CheckpointTime again = timeCheckpoint(engine);
    return Figures{all.seconds, again.seconds, writing, all.syncSeconds};
  };
  return {"9",
          {{"CHECKPOINT of 1M rows", atMostOf(2, "that writing", 2)},
           {"again after one row changed", atMostOf(2, "that writing", 2)},
           {"(writing as many bytes to a new file)"},
           {"(the syncs of that checkpoint, not counted above)"}},
          preparedModes,
          [=](Mode mode) {
            auto engine = openItems(mode, rows);
            engine->execute(noAutomaticCheckpoint);
            return Player{[=](int round) { return playRound(*engine, round); },
                          [=] {
                            return answersOf(*engine, selectItemByKey, {{1}, {9}});
                          }};
          }};
}

// From nothing to the first answer, in a process that has just begun and ends as by a crash.
std::string startAndSelect(Mode mode, int key) {
  return callInFreshProcess([=] {
    freshMemory();
    const Stopwatch watch;
    // Not destroyed: an orderly stop would write files.
    Engine* engine = openEngine(mode).release();
    engine->execute(selectItemByKey, {key});
    return packFigures({watch.seconds()});
  });
}

Player starter(Mode mode, int rows) {
  auto play = [=](int round) {
    return unpackFigures(startAndSelect(mode, 1 + scatterBelow(rows, round, 8)));
  };
  auto answers = [=] {
    return callInFreshProcess([=] {
      return answersOf(*openEngine(mode).release(), selectItemByKey, {{1}, {rows / 2}, {rows}});
    });
  };
  return {play, answers};
}

Workload startFromCheckpoint(const Scale& scale) {
  const int rows = scale.rows(1000000);
  return {"10a",
          {{"start with 1M checkpointed rows, SELECT by key", atMost(40e-9 * rows), Fit::memory}},
          preparedModes,
          [=](Mode mode) {
            callInFreshProcess([=] {
              openItems(mode, rows)->checkpoint();
              return std::string();
            });
            return starter(mode, rows);
          }};
}

Workload startFromLog(const Scale& scale) {
  const int rows = scale.rows(200000);
  return {"10b",
          {{"start with 200k logged INSERTs, SELECT by key", atMostOf(Mode::filePrepared, 0.25)}},
          {Mode::velmora, Mode::filePrepared},
          [=](Mode mode) {
            callInFreshProcess([=] {
              // Neither checkpointed nor stopped: the process ends with everything in the log.
              Engine* engine = openEngine(mode).release();
              engine->execute(noAutomaticCheckpoint);
              engine->execute(createItems);
              engine->time(insertItem, makeBatch(rows, itemValues));
              return std::string();
            });
            return starter(mode, rows);
          }};
}

// Bytes a row after the INSERTs, and after each column has been scanned once.
Figures memoryOfRows(Mode mode, int rows) {
  const double before = residentBytes();
  Engine* engine = openEngine(mode).release();
  engine->execute(createItems);
  engine->fill(insertItem, rows, itemValues);
  const double filled = residentBytes();
  engine->execute(
      {"SELECT id FROM items WHERE age = 1000", "SELECT id FROM items WHERE age = 1000"});
  engine->execute(
      {"SELECT id FROM items WHERE score > 5000", "SELECT id FROM items WHERE score > 5000"});
  engine->execute(
      {"SELECT id FROM items WHERE name = 'x'", "SELECT id FROM items WHERE name = 'x'"});
  const double scanned = residentBytes();
  engine->checkpoint();
  return {(filled - before) / rows, (scanned - before) / rows};
}

Figures memoryAfterStart(Mode mode, int rows) {
  const double before = residentBytes();
  Engine* engine = openEngine(mode).release();
  engine->execute(selectItemByKey, {1});
  return {(residentBytes() - before) / rows};
}

Workload residentMemory(const Scale& scale) {
  const int rows = scale.rows(1000000);
  const Goal goal = atMost(40);
  return {"11",
          {{"memory a row, 1M rows inserted", goal, Fit::memory, Unit::bytes},
           {"after a scan of each column", goal, Fit::memory, Unit::bytes},
           {"after a start from the files", goal, Fit::memory, Unit::bytes}},
          {Mode::velmora, Mode::memoryPrepared},
          [=](Mode mode) {
            Figures figures = unpackFigures(
                callInFreshProcess([=] { return packFigures(memoryOfRows(mode, rows)); }));
            figures.push_back(unpackFigures(callInFreshProcess([=] {
                                return packFigures(memoryAfterStart(mode, rows));
                              })).front());
            // Memory is the same in every round.
            return Player{[=](int) { return figures; }, {}};
          }};
}

}  // namespace

std::vector<Workload> storageWorkloads(const Scale& scale) {
  return {checkpoint(scale), startFromCheckpoint(scale), startFromLog(scale),
          residentMemory(scale)};
}

}  // namespace bench
