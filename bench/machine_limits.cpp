// The operations of the machine as Google Benchmark programs, and a reporter that keeps the figures
// instead of printing them.
#include "machine_limits.h"

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <stdexcept>
#include <unordered_map>

#include "data.h"
#include "memory.h"
#include "stopwatch.h"

namespace bench {

namespace {

constexpr char fileName[] = "limits";
constexpr std::size_t largeSize = std::size_t{64} << 20;
constexpr std::size_t blockSize = std::size_t{1} << 20;
const std::string logLine(60, 'x');

void require(bool isDone) {
  if (!isDone) throw std::runtime_error("A machine limit cannot be measured");
}

bool writeText(int file, const std::string& text) {
  return write(file, text.data(), text.size()) == static_cast<ssize_t>(text.size());
}

void openAppendWriteClose(benchmark::State& state) {
  for (auto iteration : state) {
    const int file = open(fileName, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    require(writeText(file, logLine));
    close(file);
  }
}

void appendAlone(benchmark::State& state) {
  const int file = open(fileName, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
  for (auto iteration : state) require(writeText(file, logLine));
  close(file);
}

void copyMemory(benchmark::State& state) {
  const std::string from(largeSize, 'x');
  std::string to(largeSize, 'y');
  for (auto iteration : state) {
    std::memcpy(to.data(), from.data(), largeSize);
    benchmark::ClobberMemory();
  }
}

void touchPage(benchmark::State& state) {
  const auto pageSize = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  char* memory = nullptr;
  std::size_t offset = largeSize;
  for (auto iteration : state) {
    if (offset == largeSize) {
      state.PauseTiming();
      if (memory != nullptr) munmap(memory, largeSize);
      void* mapped =
          mmap(nullptr, largeSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
      require(mapped != MAP_FAILED);
      madvise(mapped, largeSize, MADV_NOHUGEPAGE);
      memory = static_cast<char*>(mapped);
      offset = 0;
      state.ResumeTiming();
    }
    memory[offset] = 1;
    offset += pageSize;
  }
  munmap(memory, largeSize);
}

void writeNewFile() {
  static const std::string block(blockSize, 'x');
  unlink(fileName);
  const int file = open(fileName, O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
  for (std::size_t done = 0; done < largeSize; done += blockSize) require(writeText(file, block));
  close(file);
}

void writeFile(benchmark::State& state) {
  // The first file finds the system without pages for it.
  writeNewFile();
  for (auto iteration : state) writeNewFile();
}

void readFile(benchmark::State& state) {
  std::string block(blockSize, 'x');
  for (auto iteration : state) {
    const int file = open(fileName, O_RDONLY | O_CLOEXEC);
    for (std::size_t done = 0; done < largeSize; done += blockSize) {
      require(read(file, block.data(), blockSize) == static_cast<ssize_t>(blockSize));
    }
    close(file);
  }
}

void parseNumber(benchmark::State& state) {
  std::vector<std::string> texts;
  for (int index = 0; index < 1024; ++index) {
    texts.push_back(std::to_string(100000 + scatterBelow(900000, index, 13)));
  }
  std::size_t next = 0;
  for (auto iteration : state) {
    const std::string& text = texts[next++ % texts.size()];
    int number = 0;
    std::from_chars(text.data(), text.data() + text.size(), number);
    benchmark::DoNotOptimize(number);
  }
}

void lookUpHash(benchmark::State& state) {
  constexpr int count = 200000;
  std::unordered_map<int, int> map;
  for (int index = 0; index < count; ++index) map.emplace(index, index);
  int next = 0;
  for (auto iteration : state) {
    benchmark::DoNotOptimize(map.find(scatterBelow(count, next++, 14))->second);
  }
}

struct Operation {
  const char* label;
  void (*run)(benchmark::State& state);
  std::size_t bytes;
};

// readFile reads what writeFile leaves.
constexpr Operation operations[] = {
    {"open, append 60 bytes, close", openAppendWriteClose, 0},
    {"append 60 bytes to an open file", appendAlone, 0},
    {"memcpy, 64 MiB", copyMemory, largeSize},
    {"first touch of a page", touchPage, 0},
    {"sequential write of a new file, 64 MiB", writeFile, largeSize},
    {"sequential read of a file, 64 MiB", readFile, largeSize},
    {"parsing a number of 6 digits", parseNumber, 0},
    {"hash look-up, random, of 200k", lookUpHash, 0}};

class Keeper : public benchmark::BenchmarkReporter {
 public:
  bool ReportContext(const Context&) override { return true; }
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      figures.push_back(run.real_accumulated_time / static_cast<double>(run.iterations));
    }
  }

  Figures figures;
};

std::string runOperations(const Scale& scale) {
  for (const Operation& operation : operations) {
    benchmark::RegisterBenchmark(operation.label, operation.run)
        ->MinTime(scale.isQuick ? 0.05 : 0.3);
  }
  freshMemory();
  Keeper keeper;
  benchmark::RunSpecifiedBenchmarks(&keeper);
  unlink(fileName);
  return packFigures(keeper.figures);
}

// How long a loop stood still that wants nothing: what others on the machine took from it.
Figures longestPause() {
  constexpr double duration = 2;
  const Stopwatch watch;
  double longest = 0;
  for (double before = 0; before < duration;) {
    const double now = watch.seconds();
    longest = std::max(longest, now - before);
    before = now;
  }
  return {longest};
}

}  // namespace

std::vector<MachineLimit> measureMachineLimits(const Scale& scale) {
  const Figures figures = unpackFigures(callInFreshProcess([&] { return runOperations(scale); }));
  std::vector<MachineLimit> limits;
  for (const Operation& operation : operations) {
    limits.push_back(
        {operation.label, figures.at(limits.size()), static_cast<double>(operation.bytes)});
  }
  limits.push_back({"longest pause of a loop that reads the clock for 2 s",
                    measureInFreshProcess(longestPause).front(), 0});
  return limits;
}

}  // namespace bench
