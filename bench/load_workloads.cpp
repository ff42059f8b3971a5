// Bringing many rows in: by INSERTs, and by starts from checkpointed files and from a log. Each is
// timed in a process that has just begun.
#include <filesystem>

#include "data.h"
#include "memory.h"
#include "stopwatch.h"
#include "workload.h"

namespace bench {

namespace {

// From nothing to the first answer, in a process that ends as by a crash.
double timeStart(Mode mode, int key, const std::string& directory = ".") {
  const Figures figures = measureInFreshProcess(
      [=] {
        freshMemory();
        const Stopwatch watch;
        // Not destroyed: an orderly stop would write files.
        Engine* engine = openEngine(mode).release();
        engine->execute(selectItemByKey, {key});
        return Figures{watch.seconds()};
      },
      directory);
  return figures.front();
}

Player starter(Mode mode, int rows) {
  auto play = [=](int round) { return Figures{timeStart(mode, 1 + scatterBelow(rows, round, 8))}; };
  auto answers = [=] {
    return callInFreshProcess([=] {
      return answersOf(*openEngine(mode).release(), selectItemByKey, {{1}, {rows / 2}, {rows}});
    });
  };
  return {play, answers};
}

Workload startFromCheckpoint(const std::string& number, const std::string& label, int rows,
                             const std::vector<Mode>& modes, Mode own = Mode::velmora) {
  return {number,
          {{label, atMost(40e-9 * rows)}},
          modes,
          [=](Mode mode) {
            callInFreshProcess([=] {
              openItems(mode, rows)->checkpoint();
              return std::string();
            });
            return starter(mode, rows);
          },
          own};
}

// Opens an empty table whose changes all stay in the log, by whatever the process ends.
Engine* openLogged(Mode mode) {
  Engine* engine = openEngine(mode).release();
  engine->execute(noAutomaticCheckpoint);
  engine->execute(createItems);
  return engine;
}

Workload startFromLog(const Scale& scale) {
  const int rows = scale.rows(200000);
  return {"10b",
          {{"start with 200k logged INSERTs, SELECT by key", atMostOf(Mode::filePrepared, 0.25)}},
          {Mode::velmora, Mode::filePrepared},
          [=](Mode mode) {
            callInFreshProcess([=] {
              openLogged(mode)->time(insertItem, makeBatch(rows, itemValues));
              return std::string();
            });
            return starter(mode, rows);
          }};
}

// velmora cannot be told to keep no log. With its directory removed there is nowhere to write one,
// and each INSERT finds that out. The others are in memory and load as fast as they can.
double timeWithoutLog(Mode mode, int rows) {
  Engine* engine = openLogged(mode);
  std::filesystem::remove_all(std::filesystem::current_path());
  return engine->load(insertItem, makeBatch(rows, itemValues));
}

double timeWithLog(Mode mode, int rows) {
  return openLogged(mode)->time(insertItem, makeBatch(rows, itemValues));
}

double timeInTransaction(Mode mode, int rows) {
  Engine* engine = openLogged(mode);
  const Batch batch = makeBatch(rows, itemValues);
  if (mode != Mode::velmora) return engine->load(insertItem, batch);
  engine->execute({"BEGIN", ""});
  const double seconds = engine->time(insertItem, batch);
  const Stopwatch watch;
  engine->execute({"COMMIT", ""});
  return seconds + watch.seconds();
}

Figures playLoad(Mode mode, int rows) {
  const std::string directory = "loaded";
  auto measure = [&](double (*time)(Mode, int)) {
    std::filesystem::remove_all(directory);
    return measureInFreshProcess([=] { return Figures{time(mode, rows)}; }, directory).front();
  };
  const bool hasMemory = !isFile(mode);
  const bool hasFile = mode == Mode::velmora || isFile(mode);
  const bool hasLog = hasFile && !isDuckdb(mode);
  return {hasMemory ? measure(timeWithoutLog) : notMeasured,
          hasFile ? measure(timeInTransaction) : notMeasured,
          hasLog ? measure(timeWithLog) : notMeasured,
          hasLog ? timeStart(mode, rows, directory) : notMeasured};
}

Workload load(const Scale& scale) {
  const int rows = scale.rows(1000000);
  return {"12",
          {{"1M INSERTs, the log's directory gone", {}, Fit::memory},
           {"1M INSERTs, logged, in one transaction"},
           {"1M INSERTs, logged, each by itself"},
           {"start with that log, SELECT by key"}},
          {Mode::velmora, Mode::filePrepared, Mode::memoryPrepared, Mode::duckdbFile,
           Mode::duckdbMemory},
          [=](Mode mode) {
            return Player{[=](int) { return playLoad(mode, rows); }, {}};
          }};
}

}  // namespace

std::vector<Workload> loadWorkloads(const Scale& scale) {
  std::vector<Workload> workloads = {
      load(scale),
      startFromCheckpoint(
          "10a", "start with 1M checkpointed rows, SELECT by key", scale.rows(1000000),
          {Mode::velmora, Mode::filePrepared, Mode::memoryPrepared, Mode::duckdbFile})};
  if (!scale.isQuick) {
    workloads.push_back(startFromCheckpoint("10c", "start with 10M, SELECT by key", 10000000,
                                            {Mode::velmora, Mode::filePrepared, Mode::duckdbFile}));
  }
  workloads.push_back(startFromLog(scale));
  workloads.push_back(startFromCheckpoint(
      "21", "open of 1M checkpointed rows by a handle, SELECT by key", scale.rows(1000000),
      {Mode::velmora, Mode::handle, Mode::filePrepared, Mode::duckdbFile}, Mode::handle));
  return workloads;
}

}  // namespace bench
