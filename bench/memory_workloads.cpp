// The memory that rows take, by the kernel's account of a process that has nothing else.
#include "data.h"
#include "memory.h"
#include "workload.h"

namespace bench {

namespace {

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
          {Mode::velmora, Mode::memoryPrepared, Mode::duckdbMemory},
          [=](Mode mode) {
            Figures figures = measureInFreshProcess([=] { return memoryOfRows(mode, rows); });
            figures.push_back(isDuckdb(mode) ? notMeasured : measureInFreshProcess([=] {
                                                               return memoryAfterStart(mode, rows);
                                                             }).front());
            // Memory is the same in every round.
            return Player{[=](int) { return figures; }, {}};
          }};
}

}  // namespace

std::vector<Workload> memoryWorkloads(const Scale& scale) { return {residentMemory(scale)}; }

}  // namespace bench
