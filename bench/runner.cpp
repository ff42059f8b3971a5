// Turns of processes, medians, and comparison of answers.
#include "runner.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <memory>
#include <sstream>
#include <stdexcept>

#include "duckdb_library.h"

namespace bench {

namespace {

double median(std::vector<double> figures) {
  std::sort(figures.begin(), figures.end());
  const std::size_t middle = figures.size() / 2;
  return figures.size() % 2 == 1 ? figures[middle] : (figures[middle - 1] + figures[middle]) / 2;
}

// One side in its process. A request is the round's number; the empty one asks for the answers.
std::unique_ptr<Process> startSide(const Workload& workload, Mode mode,
                                   const std::filesystem::path& directory) {
  return std::make_unique<Process>(directory, [&workload, mode] {
    const Player player = workload.setUp(mode);
    return Process::Handler([player](const std::string& request) {
      if (request.empty()) return player.answers ? player.answers() : std::string();
      return packFigures(player.play(std::stoi(request)));
    });
  });
}

// Messages are each engine's own; everything else of an answer must be equal.
std::string withoutMessages(const std::string& answers) {
  static constexpr char start[] = "  \"message\": ";
  std::string rest;
  std::size_t position = 0;
  while (position < answers.size()) {
    const std::size_t end = std::min(answers.find('\n', position), answers.size() - 1) + 1;
    if (answers.compare(position, sizeof start - 1, start) != 0) {
      rest.append(answers, position, end - position);
    }
    position = end;
  }
  return rest;
}

// Lines in one order, for an engine that may give rows in any.
std::string sorted(const std::string& answers) {
  std::vector<std::string> lines;
  std::istringstream text(answers);
  for (std::string line; std::getline(text, line);) {
    if (line.ends_with(',')) line.pop_back();
    lines.push_back(line);
  }
  std::sort(lines.begin(), lines.end());
  std::string all;
  for (const std::string& line : lines) all += line + '\n';
  return all;
}

void requireEqualAnswers(const Workload& workload, Mode mode, const std::string& answers,
                         Mode otherMode, const std::string& otherAnswers) {
  const bool isInOrder = !isDuckdb(mode) && !isDuckdb(otherMode);
  const auto essence = [=](const std::string& text) {
    const std::string rest = withoutMessages(text);
    return isInOrder ? rest : sorted(rest);
  };
  const std::string mine = essence(answers);
  const std::string other = essence(otherAnswers);
  const auto difference = static_cast<std::size_t>(
      std::mismatch(mine.begin(), mine.end(), other.begin(), other.end()).first - mine.begin());
  if (difference == mine.size() && mine.size() == other.size()) return;
  const std::size_t from = difference < 60 ? 0 : difference - 60;
  throw std::runtime_error("Workload " + workload.number + ": answers differ\n" + modeName(mode) +
                           ": " + mine.substr(from, 160) + "\n" + modeName(otherMode) + ": " +
                           other.substr(from, 160));
}

using Rounds = std::vector<Figures>;  // one entry a round

std::map<Mode, Rounds> play(const Workload& workload, const Scale& scale,
                            const std::filesystem::path& root, const Mode* only) {
  std::map<Mode, std::unique_ptr<Process>> sides;
  for (const Mode mode : workload.modes) {
    if (only != nullptr && *only != mode) continue;
    if (isDuckdb(mode) && !hasDuckdbLibrary()) continue;
    const std::string place = std::to_string(static_cast<int>(mode));
    sides[mode] = startSide(workload, mode, root / place);
  }
  std::map<Mode, Rounds> rounds;
  for (int round = 0; round < scale.rounds; ++round) {
    for (const auto& [mode, side] : sides) {
      rounds[mode].push_back(unpackFigures(side->ask(std::to_string(round))));
    }
  }
  std::string firstAnswers;
  for (const auto& [mode, side] : sides) {
    const std::string answers = side->ask("");
    if (firstAnswers.empty()) firstAnswers = answers;
    requireEqualAnswers(workload, sides.begin()->first, firstAnswers, mode, answers);
  }
  return rounds;
}

// The own figure by the best of the fitting modes of SQLite, or else of DuckDB.
double shareOfBest(const Line& line, Fit fit, bool ofDuckdb) {
  if (fit == Fit::none) return 0;
  double best = 0;
  for (const auto& [mode, figure] : line.figures) {
    if (isVelmora(mode) || isDuckdb(mode) != ofDuckdb) continue;
    if (fit == Fit::file && !isFile(mode)) continue;
    if (best == 0 || figure < best) best = figure;
  }
  return best == 0 ? 0 : line.figures.at(line.own) / best;
}

Line lineOf(const Workload& workload, std::size_t index, const std::map<Mode, Rounds>& rounds) {
  const Measure& measure = workload.measures[index];
  Line line;
  line.number = workload.number;
  line.own = workload.own;
  line.label = measure.label;
  line.unit = measure.unit;
  for (const auto& [mode, figures] : rounds) {
    std::vector<double> ofMeasure;
    for (const Figures& round : figures) ofMeasure.push_back(round.at(index));
    if (!std::isnan(ofMeasure.front())) line.figures[mode] = median(ofMeasure);
  }
  return line;
}

}  // namespace

std::vector<Line> runWorkload(const Workload& workload, const Scale& scale,
                              const std::filesystem::path& root, const Mode* only) {
  const std::map<Mode, Rounds> rounds = play(workload, scale, root, only);
  std::filesystem::remove_all(root);
  std::vector<Line> lines;
  for (std::size_t index = 0; index < workload.measures.size(); ++index) {
    lines.push_back(lineOf(workload, index, rounds));
  }
  for (std::size_t index = 0; index < lines.size(); ++index) {
    Line& line = lines[index];
    const Measure& measure = workload.measures[index];
    if (!line.figures.contains(line.own)) continue;
    line.ofSqlite = shareOfBest(line, measure.fit, false);
    line.ofDuckdb = shareOfBest(line, measure.fit, true);
    judge(line, measure.goal, lines);
  }
  return lines;
}

}  // namespace bench
