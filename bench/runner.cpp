// Turns of processes, medians, comparison of answers, and the verdict on each goal.
#include "runner.h"

#include <algorithm>
#include <cstdio>
#include <memory>
#include <stdexcept>

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

void requireEqualAnswers(const Workload& workload, Mode mode, const std::string& answers,
                         Mode otherMode, const std::string& otherAnswers) {
  const std::string mine = withoutMessages(answers);
  const std::string other = withoutMessages(otherAnswers);
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

double bestOfSqlite(const Line& line, Fit fit) {
  double best = 0;
  for (const auto& [mode, figure] : line.figures) {
    if (mode == Mode::velmora || isFile(mode) != (fit == Fit::file)) continue;
    if (best == 0 || figure < best) best = figure;
  }
  return best;
}

std::string printed(const char* format, double value) {
  char text[64];
  std::snprintf(text, sizeof text, format, value);
  return text;
}

Verdict verdict(bool isMet) { return isMet ? Verdict::met : Verdict::missed; }

void judge(Line& line, const Goal& goal, double own, const std::vector<Line>& lines,
           const std::vector<MachineLimit>& limits) {
  const auto other = [&] { return lines.at(goal.other).figures.at(Mode::velmora); };
  switch (goal.kind) {
    case Goal::Kind::none:
      break;
    case Goal::Kind::fasterThanSqlite:
      line.goal = printed("%g times as fast", goal.value);
      if (line.ratio > 0) line.verdict = verdict(line.ratio >= goal.value);
      break;
    case Goal::Kind::atMost:
      line.goal = printed("at most %g", goal.value);
      line.verdict = verdict(own <= goal.value);
      break;
    case Goal::Kind::atMostAtMemorySpeed: {
      if (limits.empty()) break;
      const double limit = goal.value * 12e9 / bytesPerSecond(limits, memcpyLabel);
      line.goal = printed("at most %.0f ms", limit * 1e3);
      line.verdict = verdict(own <= limit);
      break;
    }
    case Goal::Kind::atMostTimesMeasure:
      line.goal = printed("at most %g writings", goal.value) + printed(" (%.2f)", own / other());
      line.verdict = verdict(own <= goal.value * other());
      break;
    case Goal::Kind::logarithmicGrowth:
      line.goal =
          printed("at most %.2f of the first", goal.value) + printed(" (%.2f)", own / other());
      line.verdict = verdict(own <= goal.value * other());
      break;
  }
}

}  // namespace

std::vector<Line> runWorkload(const Workload& workload, const Scale& scale,
                              const std::vector<MachineLimit>& limits,
                              const std::filesystem::path& root, const Mode* only) {
  const std::map<Mode, Rounds> rounds = play(workload, scale, root, only);
  std::filesystem::remove_all(root);
  std::vector<Line> lines;
  for (std::size_t index = 0; index < workload.measures.size(); ++index) {
    const Measure& measure = workload.measures[index];
    Line line;
    line.number = workload.number;
    line.label = measure.label;
    line.unit = measure.unit;
    for (const auto& [mode, figures] : rounds) {
      std::vector<double> ofMeasure;
      for (const Figures& round : figures) ofMeasure.push_back(round.at(index));
      line.figures[mode] = median(ofMeasure);
    }
    lines.push_back(line);
  }
  for (std::size_t index = 0; index < lines.size(); ++index) {
    const auto own = lines[index].figures.find(Mode::velmora);
    if (own == lines[index].figures.end()) continue;
    lines[index].ratio = bestOfSqlite(lines[index], workload.measures[index].fit) / own->second;
    judge(lines[index], workload.measures[index].goal, own->second, lines, limits);
  }
  return lines;
}

}  // namespace bench
