// See engine_run.h.
#include "engine_run.h"

#include <atomic>
#include <cstdlib>
#include <iostream>
#include <new>

#include "clock.h"
#include "result_set.h"

namespace velmora::fuzz {
namespace {

std::atomic<std::int64_t> second{startSecond};

}  // namespace

void setSecond(std::int64_t value) { second = value; }

void prepareProcess() {
  static const bool isPrepared = [] {
    std::cout.rdbuf(nullptr);
    clock::setSource([] { return second.load(); });
    return true;
  }();
  static_cast<void>(isPrepared);
  setSecond(startSecond);
}

void fail(const std::string& message) {
  std::cerr << message << std::endl;
  std::abort();
}

std::optional<std::string> textThrownBy(const std::function<void()>& call) {
  try {
    call();
    return std::nullopt;
  } catch (const std::bad_alloc&) {
    fail("Out of memory");
  } catch (const std::exception& error) {
    return error.what();
  }
}

std::optional<Engine> Engine::started(std::string* error) {
  Engine engine;
  const auto thrown = textThrownBy([&] {
    engine.database_ = std::make_unique<Database>();
    engine.database_->loadFromDisk();
    engine.parser_ = std::make_unique<Parser>(engine.database_.get());
  });
  if (!thrown) return engine;
  if (error != nullptr) *error = *thrown;
  return std::nullopt;
}

std::string Engine::run(const std::string& command) {
  std::string answer;
  const auto thrown =
      textThrownBy([&] { answer = renderJson(parser_->handleCommand(command)).view(); });
  return thrown ? "throws " + *thrown : answer;
}

std::string Engine::everything() {
  std::string all;
  for (const auto& entry : database_->tables) {
    const std::string& name = entry.first;
    if (entry.second.columns.empty()) continue;
    std::vector<std::string> columns;
    for (const Column& column : entry.second.columns) {
      columns.push_back(column.name);
      all += column.name + " " + column.type + " ";
    }
    const auto thrown = textThrownBy([&] {
      const TextBuffer rows = renderJson(database_->select(name, columns, {}, clock::now()));
      all += name + " " + std::string(rows.view()) + "\n";
    });
    if (thrown) all += name + " throws " + *thrown + "\n";
  }
  return all;
}

bool Engine::checkpoint() {
  return !textThrownBy([&] { database_->checkpoint(clock::now()); });
}

void checkRestarts(Engine engine) {
  { const Engine killed = std::move(engine); }
  std::string once;
  {
    auto restarted = Engine::started();
    if (!restarted) return;
    once = restarted->everything();
  }
  auto again = Engine::started();
  require(again.has_value(), "A start that worked fails when it is repeated");
  if (again->everything() != once) {
    fail("A second start shows:\n" + again->everything() + "the first showed:\n" + once);
  }

  std::string written;
  for (int round = 0; round < 2; ++round) {
    if (!again->checkpoint()) return;
    again.reset();
    std::string error;
    again = Engine::started(&error);
    if (!again) fail("A checkpoint's files do not load: " + error);
    const std::string loaded = again->everything();
    if (round > 0 && loaded != written) {
      fail("A further checkpoint makes:\n" + loaded + "of:\n" + written);
    }
    written = loaded;
  }
}

std::vector<std::string> linesOf(std::string_view input) {
  std::vector<std::string> lines;
  while (!input.empty()) {
    const std::size_t end = std::min(input.find('\n'), input.size());
    lines.emplace_back(input.substr(0, end));
    input.remove_prefix(std::min(end + 1, input.size()));
  }
  return lines;
}

}  // namespace velmora::fuzz
