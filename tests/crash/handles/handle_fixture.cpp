// See handle_fixture.h.
#include "handle_fixture.h"

#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <condition_variable>
#include <fstream>
#include <iostream>
#include <iterator>
#include <mutex>
#include <stdexcept>
#include <thread>

namespace velmora::handles {
namespace {

namespace fs = std::filesystem;

// The hook has no parameter of its own, so what it notes is the process's.
struct Recorder {
  std::mutex mutex;
  std::condition_variable synced;
  crash::DiskJournal journal;
  std::thread::id thread;
  bool isOn = false;
  bool isSyncAwaited = false;
  bool isSynced = false;
  FailingOperation fault;
  int count = 0;
};
Recorder recorder;

int beforeFileOperation(const FileEvent& event) {
  const std::lock_guard guard(recorder.mutex);
  if (!recorder.isOn) return 0;
  const bool isOther = std::this_thread::get_id() != recorder.thread;
  const bool isSync = event.operation == FileOperation::sync;
  // Whether the engine's own thread syncs or not changes nothing for others; it is noted only while
  // the test's thread waits for it.
  if (isOther && !(isSync && recorder.isSyncAwaited)) return 0;
  if (isOther) {
    recorder.isSynced = true;
    recorder.synced.notify_all();
  }
  const FailingOperation& fault = recorder.fault;
  const int number = ++recorder.count;
  const bool isItsTurn =
      number == fault.number || (fault.lasts && fault.number > 0 && number > fault.number);
  const bool isWrite = event.operation == FileOperation::write;
  const int wish = isItsTurn && (fault.wish > 0 || isWrite) ? fault.wish : 0;
  if (event.operation != FileOperation::read && event.operation != FileOperation::list) {
    recorder.journal.add(event, wish);
  }
  return wish;
}

// What is tried beside the live engine is not taken down.
class Pause {
 public:
  Pause() {
    const std::lock_guard guard(recorder.mutex);
    wasOn_ = std::exchange(recorder.isOn, false);
  }
  ~Pause() {
    const std::lock_guard guard(recorder.mutex);
    recorder.isOn = wasOn_;
  }
  Pause(const Pause&) = delete;
  Pause& operator=(const Pause&) = delete;

 private:
  bool wasOn_;
};

// What was handed to the system counts as kept, so a directory in memory serves as well.
fs::path temporaryRoot() {
  const fs::path memory = "/dev/shm";
  const bool isUsable = getenv("TMPDIR") == nullptr && access(memory.c_str(), W_OK) == 0;
  return isUsable ? memory : fs::temp_directory_path();
}

}  // namespace

bool isThorough() {
  constexpr int usualSeconds = 25;
  const char* const seconds = getenv("VELMORA_CRASH_SECONDS");
  return seconds != nullptr && std::stoi(seconds) > usualSeconds;
}

std::uint64_t chosenSeed() {
  const char* const chosen = getenv("VELMORA_CRASH_SEED");
  const std::uint64_t seed = chosen != nullptr ? std::stoull(chosen) : std::random_device()();
  std::cout << "seed " << seed << " (VELMORA_CRASH_SEED)" << std::endl;
  return seed;
}

Files filesIn(const fs::path& directory) {
  Files files;
  for (const auto& entry : fs::directory_iterator(directory)) {
    if (!entry.is_regular_file()) continue;
    std::ifstream file(entry.path(), std::ios::binary);
    files[entry.path().filename()] = {std::istreambuf_iterator<char>(file),
                                      std::istreambuf_iterator<char>()};
  }
  return files;
}

void writeFiles(const fs::path& directory, const Files& files) {
  fs::remove_all(directory);
  fs::create_directories(directory);
  for (const auto& [name, bytes] : files) {
    std::ofstream(directory / name, std::ios::binary) << bytes;
  }
}

HandleTest::HandleTest() {
  std::string name = temporaryRoot() / "velmora-handles-XXXXXX";
  if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("cannot make " + name);
  root_ = name;
  live_ = root_ / "live";
  fs::create_directory(live_);
  fs::current_path(live_);
  recorder.thread = std::this_thread::get_id();
  setFileHook(beforeFileOperation);
}

HandleTest::~HandleTest() {
  setFault({});
  recorder.isOn = false;
  engine_.reset();
  setFileHook(nullptr);
  recorder.journal.take();
  fs::current_path("/");
  std::error_code ignored;
  if (!HasFailure()) fs::remove_all(root_, ignored);
  std::cout << "states tried: " << tried_ << ", with added exact values: " << grown_ << std::endl;
}

OpenOptions HandleTest::options(Durability durability) {
  OpenOptions options;
  options.durability = durability;
  options.callbacks.clock = [this] { return second_; };
  return options;
}

void HandleTest::open(Durability durability) {
  engine_ = std::make_unique<Engine>(live_.string(), options(durability));
}

void HandleTest::putLive(const Files& files) {
  fs::current_path("/");
  writeFiles(live_, files);
  fs::current_path(live_);
}

void HandleTest::close() {
  engine_.reset();
  if (isInTransaction_) numbers_ = committed_;
  isInTransaction_ = false;
}

bool HandleTest::call(const Call& call) {
  failureCode_ = 0;
  failure_.clear();
  const Numbers before = numbers_;
  try {
    Answer answer;
    if (call.size() == 1) {
      answer = execute(*engine_, call[0].text, call[0].values);
      noteNumbers(call[0], answer);
      if (call[0].text != "COMMIT") return true;
    }
    std::vector<BatchCommand> batch;
    for (const StrictCommand& each : call) batch.push_back({each.text, each.values});
    if (call.size() > 1) engine_->runBatch(batch, answer);
    if (isInTransaction_) return true;
    numbers_ = nextNumbers(*engine_);
    return true;
  } catch (const Failure& failure) {
    failureCode_ = static_cast<int>(failure.code);
    failure_ = failure.what();
    numbers_ = before;
    if (call[0].text == "COMMIT" && isInTransaction_) {
      isInTransaction_ = false;
      numbers_ = committed_;
    }
    return false;
  }
}

void HandleTest::noteNumbers(const StrictCommand& command, const Answer& answer) {
  std::vector<std::string> words(3);
  std::size_t start = 0;
  for (std::string& word : words) {
    const std::size_t end = std::min(command.text.find(' ', start), command.text.size());
    word = command.text.substr(start, end - start);
    start = std::min(end + 1, command.text.size());
  }
  if (words[0] == "INSERT" && answer.identity) numbers_[words[2]] = *answer.identity + 1;
  if (words[0] == "DROP") numbers_.erase(words[2]);
  const bool hasIdentity = command.text.find("ApexInt") != std::string::npos;
  if (words[0] == "CREATE" && hasIdentity) numbers_[words[2]] = 1;
  if (words[0] == "BEGIN") committed_ = numbers_;
  if (words[0] == "ROLLBACK") numbers_ = committed_;
  if (words[0] == "BEGIN") isInTransaction_ = true;
  if (words[0] == "COMMIT" || words[0] == "ROLLBACK") isInTransaction_ = false;
}

Known HandleTest::known() { return {second_, stateOf(*engine_), numbers_}; }

std::vector<DiskStep> HandleTest::steps() {
  const std::lock_guard guard(recorder.mutex);
  recorder.isOn = true;
  return crash::DiskJournal::read(recorder.journal.take());
}

void HandleTest::waitForSync() {
  std::unique_lock guard(recorder.mutex);
  recorder.isOn = true;
  recorder.isSynced = false;
  for (int attempt = 0; attempt < 10 && !recorder.isSynced; ++attempt) {
    guard.unlock();
    EXPECT_TRUE(call({{"INSERT INTO scratch s = 'to be synced'", {}}})) << failure_;
    guard.lock();
    recorder.isSyncAwaited = true;
    recorder.synced.wait_for(guard, std::chrono::seconds(3), [] { return recorder.isSynced; });
    recorder.isSyncAwaited = false;
  }
  EXPECT_TRUE(recorder.isSynced) << "the engine does not sync by itself";
}

void HandleTest::setFault(const FailingOperation& fault) {
  const std::lock_guard guard(recorder.mutex);
  recorder.isOn = true;
  recorder.fault = fault;
  recorder.count = 0;
}

int HandleTest::operations() {
  const std::lock_guard guard(recorder.mutex);
  return recorder.count;
}

std::string HandleTest::differenceFrom(Engine& engine, const std::vector<Known>& possible) {
  const std::int64_t now = second_;
  std::string difference;
  for (auto each = possible.rbegin(); each != possible.rend(); ++each) {
    second_ = each->second;
    const std::string found = stateOf(engine);
    second_ = now;
    if (found != each->state) {
      difference += "--- possible\n" + each->state + "--- found\n" + found;
      continue;
    }
    const Numbers numbers = nextNumbers(engine);
    if (numbers == each->numbers && stateOf(engine) == stateOf(engine)) return "";
    difference += "--- numbers\n";
    for (const auto& [name, number] : each->numbers) {
      difference += name + " " + std::to_string(number) + "\n";
    }
    for (const auto& [name, number] : numbers) difference += name + ": " + std::to_string(number);
  }
  return difference;
}

void HandleTest::expectOneOf(const Files& files, const std::vector<Known>& possible, bool goesOn) {
  const Pause pause;
  ++tried_;
  if (std::any_of(files.begin(), files.end(),
                  [](const auto& file) { return file.second.starts_with("velmexc2"); })) {
    ++grown_;
  }
  const fs::path directory = root_ / "tried";
  writeFiles(directory, files);
  std::string wrong;
  try {
    auto engine = std::make_unique<Engine>(directory.string(), options(Durability::off));
    wrong = differenceFrom(*engine, possible);
    if (wrong.empty() && goesOn) goOn(std::move(engine));
  } catch (const Failure& failure) {
    wrong = std::to_string(static_cast<int>(failure.code)) + ": " + failure.what();
  }
  if (wrong.empty() && !HasFailure()) return;
  writeFiles(root_ / "left", files);
  ADD_FAILURE() << "over " << root_ / "left"
                << "\n"
                << wrong;
}

void HandleTest::goOn(std::unique_ptr<Engine> engine) {
  execute(*engine, "CREATE TABLE later id ApexInt n int 2");
  execute(*engine, "INSERT INTO later n = 1 --> 2 @ 3 s");
  for (const auto& [table, number] : nextNumbers(*engine)) {
    execute(*engine, "INSERT INTO " + table + " n = 4");
    execute(*engine, "UPDATE " + table + " SET n = 5 WHERE n = 1");
  }
  const std::vector<Known> expected = {{second_, stateOf(*engine), nextNumbers(*engine)}};
  const fs::path killed = root_ / "killed";
  writeFiles(killed, filesIn(root_ / "tried"));
  engine.reset();
  for (const fs::path& directory : {killed, root_ / "tried"}) {
    Engine again(directory.string(), options(Durability::off));
    EXPECT_EQ(differenceFrom(again, expected), "") << "after a restart";
  }
}

}  // namespace velmora::handles
