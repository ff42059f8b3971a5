// What a workload is: what it measures, against which goal, and how one side sets it up and plays
// it. The runner plays every workload the same way; the workloads know nothing of processes.
#pragma once

#include <functional>
#include <limits>
#include <string>
#include <vector>

#include "engine.h"
#include "goal.h"
#include "process.h"

namespace bench {

// The modes of the others that promise what velmora promises in a measure: those on a file, those
// in memory too, or none where their figures are not of the same thing.
enum class Fit { file, memory, none };

struct Measure {
  std::string label;
  Goal goal = {};
  Fit fit = Fit::file;
  Unit unit = Unit::seconds;
};

// The figure of a measure that a mode has not got.
inline constexpr double notMeasured = std::numeric_limits<double>::quiet_NaN();

// One side, ready to play, in its own process and directory.
struct Player {
  // Plays one round: a figure for each measure. The round's number decides its values, so that
  // every side does the same.
  std::function<Figures(int round)> play;
  // Answers after the last round, which must be equal on every side. May be empty.
  std::function<std::string()> answers;
};

struct Workload {
  std::string number;
  std::vector<Measure> measures;
  std::vector<Mode> modes;
  std::function<Player(Mode mode)> setUp;
  Mode own = Mode::velmora;  // whose figures the goals are about
};

// How large everything is.
struct Scale {
  bool isQuick = false;
  int rounds = 5;

  int rows(int full) const { return isQuick ? full / 10 : full; }
  int commands(int full) const { return isQuick ? full / 4 : full; }
};

inline const std::vector<Mode> sqliteModes = {Mode::velmora, Mode::filePrepared, Mode::fileText,
                                              Mode::memoryPrepared, Mode::memoryText};
inline const std::vector<Mode> plainModes = {
    Mode::velmora,    Mode::filePrepared, Mode::fileText,    Mode::memoryPrepared,
    Mode::memoryText, Mode::duckdbFile,   Mode::duckdbMemory};
inline const std::vector<Mode> preparedModes = {Mode::velmora, Mode::filePrepared,
                                                Mode::memoryPrepared};

std::vector<Workload> pointWorkloads(const Scale& scale);       // 1, 2, 5, 8, 15
std::vector<Workload> scanWorkloads(const Scale& scale);        // 3, 4, 6, 7, 14
std::vector<Workload> checkpointWorkloads(const Scale& scale);  // 9, 13, 22
std::vector<Workload> loadWorkloads(const Scale& scale);        // 10, 12, 21
std::vector<Workload> memoryWorkloads(const Scale& scale);      // 11
std::vector<Workload> handleWorkloads(const Scale& scale);      // 16 to 20
std::vector<Workload> growthWorkloads(const Scale& scale);      // the same at several sizes

}  // namespace bench
