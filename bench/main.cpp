// velmora_bench: velmora beside SQLite and DuckDB, and all beside what the machine allows.
//
//   velmora_bench [--quick] [--rounds N] [--only NUMBER,...] [--side MODE] [--fresh MEBIBYTES]
//                 [--cpu] [--markdown FILE] [--duckdb LIBRARY]
//
// --duckdb names DuckDB's shared library; without it DuckDB does not take part. --only runs the
// workloads with these numbers ("--only list" prints them). --side plays one side of them
// ("velmora", "file, prepared", ...) and leaves the machine out; --fresh says how much memory is
// touched before each timed part. What a profiler wants is for example
// "--only 2 --side velmora --fresh 0 --rounds 50". --cpu counts the processor time of the processes
// instead of the time that passes, for machines that do other work meanwhile; waiting for the disk
// is then left out. Exit status 1 means that something could not be measured, not that a goal was
// missed.
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <optional>
#include <stdexcept>
#include <string>

#include "duckdb_library.h"
#include "machine_limits.h"
#include "memory.h"
#include "report.h"
#include "runner.h"
#include "stopwatch.h"

namespace {

using namespace bench;

struct Options {
  Scale scale;
  std::string only;  // between commas; empty: all
  std::optional<Mode> side;
  std::string markdownFile;
};

Mode modeNamed(const std::string& name) {
  for (const Mode mode : allModes) {
    if (name == modeName(mode)) return mode;
  }
  throw std::runtime_error("Unknown side: " + name);
}

Options readOptions(int count, char** texts) {
  Options options;
  std::optional<int> rounds;
  std::optional<std::size_t> freshMebibytes;
  int index = 1;
  const auto value = [&] {
    if (index >= count) throw std::runtime_error("A value is missing");
    return std::string(texts[index++]);
  };
  while (index < count) {
    const std::string option = texts[index++];
    if (option == "--quick") {
      options.scale.isQuick = true;
    } else if (option == "--rounds") {
      rounds = std::stoi(value());
    } else if (option == "--only") {
      options.only = "," + value() + ",";
    } else if (option == "--side") {
      options.side = modeNamed(value());
    } else if (option == "--fresh") {
      freshMebibytes = std::stoul(value());
    } else if (option == "--cpu") {
      stopwatchClock = CLOCK_PROCESS_CPUTIME_ID;
    } else if (option == "--markdown") {
      options.markdownFile = std::filesystem::absolute(value());
    } else if (option == "--duckdb") {
      openDuckdbLibrary(std::filesystem::absolute(value()));
    } else {
      throw std::runtime_error("Unknown option: " + option);
    }
  }
  const bool isQuick = options.scale.isQuick;
  options.scale.rounds = rounds.value_or(isQuick ? 3 : 5);
  setFreshMemory(freshMebibytes.value_or(isQuick ? 64 : 512) << 20);
  return options;
}

std::vector<Workload> allWorkloads(const Scale& scale) {
  std::vector<Workload> all;
  for (const auto& some : {pointWorkloads, scanWorkloads, checkpointWorkloads, loadWorkloads,
                           memoryWorkloads, handleWorkloads, growthWorkloads}) {
    for (const Workload& workload : some(scale)) all.push_back(workload);
  }
  return all;
}

void report(const Options& options, const std::vector<MachineLimit>& limits,
            const std::vector<Line>& lines) {
  const std::string about = describeRun(options.scale) + "\n\n";
  std::printf("%s%s\n%s", about.c_str(), reportLimits(limits, Form::text).c_str(),
              reportLines(lines, Form::text).c_str());
  if (options.markdownFile.empty()) return;
  std::ofstream file(options.markdownFile);
  file << about << reportLimits(limits, Form::markdown) << "\n"
       << reportLines(lines, Form::markdown);
  if (!file.flush()) throw std::runtime_error("Cannot write " + options.markdownFile);
}

void run(const Options& options, const std::filesystem::path& root) {
  const std::vector<Workload> workloads = allWorkloads(options.scale);
  if (options.only == ",list,") {
    for (const Workload& workload : workloads) std::printf("%s\n", workload.number.c_str());
    return;
  }
  std::filesystem::current_path(root);
  std::vector<MachineLimit> limits;
  if (!options.side) limits = measureMachineLimits(options.scale);
  std::vector<Line> lines;
  for (const Workload& workload : workloads) {
    if (!options.only.empty() &&
        options.only.find("," + workload.number + ",") == std::string::npos) {
      continue;
    }
    std::fprintf(stderr, "workload %s\n", workload.number.c_str());
    const std::vector<Line> more = runWorkload(workload, options.scale, root / "workload",
                                               options.side ? &*options.side : nullptr);
    lines.insert(lines.end(), more.begin(), more.end());
  }
  report(options, limits, lines);
}

int runReportingErrors(int count, char** texts, const std::filesystem::path& root) {
  try {
    run(readOptions(count, texts), root);
    std::fflush(stdout);
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "velmora_bench: %s\n", error.what());
    return 1;
  }
}

volatile pid_t runner = -1;

// The processes that the runner has started end with it.
void endRunner(int) {
  if (runner > 0) kill(runner, SIGKILL);
}

}  // namespace

// Everything runs in a child, so that its files are removed however it ends.
int main(int count, char** texts) {
  std::string root = (std::filesystem::temp_directory_path() / "velmora-bench-XXXXXX").string();
  if (mkdtemp(root.data()) == nullptr) {
    std::perror("velmora_bench");
    return 1;
  }
  runner = fork();
  if (runner == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    _exit(runReportingErrors(count, texts, root));
  }
  signal(SIGINT, endRunner);
  signal(SIGTERM, endRunner);
  int status = 0;
  if (runner > 0) waitpid(runner, &status, 0);
  std::error_code ignored;
  std::filesystem::remove_all(root, ignored);
  return runner > 0 && WIFEXITED(status) ? WEXITSTATUS(status) : 1;
}
