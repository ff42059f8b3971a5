// Growth: the one-row commands on tables of four sizes, commands of many tokens, and the longest
// pauses of INSERT while a table grows.
#include <algorithm>
#include <cmath>
#include <filesystem>

#include "data.h"
#include "linked_tables.h"
#include "memory.h"
#include "workload.h"

namespace bench {

namespace {

struct Size {
  int rows;
  std::string name;
};

std::vector<Size> sizes(const Scale& scale) {
  std::vector<Size> all = {{1000, "1k"}, {10000, "10k"}, {100000, "100k"}, {1000000, "1M"}};
  if (scale.isQuick) all.pop_back();
  return all;
}

// Measures of one command, one for each size; the last is held against the first, which will have
// the given index among all measures.
void addMeasures(std::vector<Measure>& measures, const std::string& command,
                 const std::vector<Size>& allSizes, const std::string& unit, Fit fit) {
  const std::size_t first = measures.size();
  const double growth = std::log(allSizes.back().rows) / std::log(allSizes.front().rows);
  for (const Size& size : allSizes) {
    const std::string label = command + ", " + size.name + " " + unit;
    measures.push_back({label, {}, fit});
  }
  measures.back().goal = atMostOf(first, "the first", growth);
}

// A command and its values: those of the command with this number, counted through all rounds.
struct Command {
  std::string name;
  Statement statement;
  Fit fit;
  bool isDelete;
  Values (*values)(int rows, int number);
};

const std::vector<Command> itemCommands = {
    {"1: INSERT", insertItem, Fit::file, false, [](int, int number) { return itemValues(number); }},
    {"2: SELECT by key", selectItemByKey, Fit::memory, false,
     [](int rows, int number) { return Values{1 + 2 * scatterBelow(rows / 2, number, 9)}; }},
    {"5: UPDATE by key", updateItemByKey, Fit::file, false,
     [](int rows, int number) {
       return Values{0.25 * number, 1 + 2 * scatterBelow(rows / 2, number, 10)};
     }},
    // Even keys in no order; 7919 is prime to every size, so that none comes twice.
    {"5: DELETE by key", deleteItemByKey, Fit::file, true, [](int rows, int number) {
       return Values{2 + 2 * static_cast<int>(std::int64_t{number} * 7919 % (rows / 2))};
     }}};

const std::vector<Command> linkedCommands = {
    {"8: INSERT of a child", insertChild, Fit::file, false,
     [](int rows, int number) { return childValues(rows, number); }},
    {"8: refused DELETE of a parent", refusedParentDelete, Fit::file, false,
     [](int rows, int number) { return Values{1 + scatterBelow(rows / 2, number, 11)}; }},
    {"8: UPDATE of a parent", updateParentByKey, Fit::file, false,
     [](int rows, int number) {
       return Values{0.25 * number, 1 + scatterBelow(rows / 2, number, 12)};
     }},
    {"8: DELETE of a childless parent", deleteParentByKey, Fit::file, true,
     [](int rows, int number) {
       return Values{1 + rows / 2 + static_cast<int>(std::int64_t{number} * 7919 % (rows / 2))};
     }}};

Figures timeCommands(Engine& engine, const std::vector<Command>& commands,
                     const std::vector<Size>& allSizes, int round) {
  Figures figures;
  for (const Command& command : commands) {
    for (const Size& size : allSizes) {
      // The rows to delete must last for all rounds.
      const int count = command.isDelete ? std::min(1000, size.rows / 16) : 1000;
      const Batch batch = makeBatch(
          count, [&](int index) { return command.values(size.rows, round * count + index); });
      figures.push_back(timeOne(engine, onTables(command.statement, size.name), batch));
    }
  }
  return figures;
}

Workload growth(const Scale& scale, const std::string& number, const std::vector<Command>& commands,
                void (*fill)(Engine& engine, int rows, const std::string& suffix)) {
  const std::vector<Size> allSizes = sizes(scale);
  Workload workload = {number, {}, preparedModes, {}};
  for (const Command& command : commands) {
    addMeasures(workload.measures, command.name, allSizes, "rows", command.fit);
  }
  workload.setUp = [=](Mode mode) {
    // A small table must be timed at work, not at coming back into the processor's cache.
    setFreshMemory(std::size_t{4} << 20);
    std::shared_ptr<Engine> engine = openEngine(mode);
    for (const Size& size : allSizes) fill(*engine, size.rows, size.name);
    return Player{[=](int round) { return timeCommands(*engine, commands, allSizes, round); }, {}};
  };
  return workload;
}

std::string repeated(const std::string& text, int count) {
  std::string all;
  for (int index = 0; index < count; ++index) all += text;
  return all;
}

// The figure is the time of a token.
Workload tokens(const Scale& scale) {
  const std::vector<Size> allSizes = sizes(scale);
  Workload workload = {"tokens", {}, {Mode::velmora}, {}};
  addMeasures(workload.measures, "a token of a filter", allSizes, "tokens", Fit::memory);
  addMeasures(workload.measures, "a token of an INSERT", allSizes, "tokens", Fit::memory);
  workload.setUp = [=](Mode mode) {
    auto engine = openItems(mode, 1);
    auto timeToken = [=](const std::string& start, const std::string& more, int tokensOfMore,
                         int tokenCount) {
      const Statement statement = {start + repeated(more, tokenCount / tokensOfMore), ""};
      const Batch batch(static_cast<std::size_t>(std::max(1, 100000 / tokenCount)));
      return timeOne(*engine, statement, batch) / tokenCount;
    };
    auto play = [=](int) {
      Figures figures;
      for (const Size& size : allSizes) {
        figures.push_back(
            timeToken("SELECT id FROM items WHERE age = 1", " || age = 2", 4, size.rows));
      }
      for (const Size& size : allSizes) {
        figures.push_back(timeToken("INSERT INTO items", " age = 1", 3, size.rows));
      }
      return figures;
    };
    return Player{play, {}};
  };
  return workload;
}

// The times of the INSERTs while a table grows from nothing: median, 99.9th percentile, longest.
Figures insertTimes(Mode mode, int rows) {
  std::vector<double> each;
  auto engine = openItems(mode, 0);
  engine->time(insertItem, makeBatch(rows, itemValues), &each);
  std::sort(each.begin(), each.end());
  return {each[each.size() / 2], each[each.size() - each.size() / 1000], each.back()};
}

Workload pauses(const Scale& scale) {
  const int rows = scale.rows(1000000);
  return {"pauses",
          {{"INSERT while a table grows to 1M rows, median"},
           {"99.9th percentile"},
           {"longest", atMost(0.002)}},
          {Mode::velmora, Mode::filePrepared},
          [=](Mode mode) {
            auto play = [=](int) {
              const Figures figures =
                  measureInFreshProcess([=] { return insertTimes(mode, rows); }, "growing");
              std::filesystem::remove_all("growing");
              return figures;
            };
            return Player{play, {}};
          }};
}

}  // namespace

std::vector<Workload> growthWorkloads(const Scale& scale) {
  return {growth(scale, "items growth", itemCommands,
                 [](Engine& engine, int rows, const std::string& suffix) {
                   fillItems(engine, rows, itemValues, suffix);
                 }),
          growth(scale, "links growth", linkedCommands,
                 [](Engine& engine, int rows, const std::string& suffix) {
                   fillLinkedTables(engine, rows, suffix);
                 }),
          tokens(scale), pauses(scale)};
}

}  // namespace bench
