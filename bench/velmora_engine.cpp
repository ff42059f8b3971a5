// velmora as a host uses it: command text in, JSON text out, through the exported functions alone.
#include <cstring>
#include <stdexcept>

#include "engine.h"
#include "memory.h"
#include "stopwatch.h"
#include "velmora/velmora.h"

namespace bench {

namespace {

bool isSuccess(const char* answer) {
  constexpr char start[] = "{\n  \"success\": t";
  return std::strncmp(answer, start, sizeof start - 1) == 0;
}

void requireOutcome(const Statement& statement, const char* answer) {
  if (isSuccess(answer) == statement.isRefused) {
    throw std::runtime_error("velmora: " + statement.velmora.substr(0, 200) + ": " + answer);
  }
}

class VelmoraEngine : public Engine {
 public:
  VelmoraEngine() { StartEngine(); }
  ~VelmoraEngine() override { StopEngine(); }
  VelmoraEngine(const VelmoraEngine&) = delete;
  VelmoraEngine& operator=(const VelmoraEngine&) = delete;

  const char* execute(const Statement& statement, const Values& values) override {
    if (statement.velmora.empty()) return "";
    const char* answer = ExecuteQuery(renderText(statement.velmora, values).c_str());
    requireOutcome(statement, answer);
    return answer;
  }

  void fill(const Statement& insert, int count, const std::function<Values(int)>& values) override {
    for (int index = 0; index < count; ++index) execute(insert, values(index));
  }

  double load(const Statement& insert, const Batch& batch) override {
    return time(insert, batch, nullptr);
  }

  void change(const Statement& statement, const Batch& batch) override {
    for (const Values& values : batch) execute(statement, values);
  }

  double time(const Statement& statement, const Batch& batch, std::vector<double>* each) override {
    std::vector<std::string> texts;
    texts.reserve(batch.size());
    for (const Values& values : batch) texts.push_back(renderText(statement.velmora, values));
    if (each != nullptr) each->reserve(each->size() + batch.size());
    freshMemory();

    const Stopwatch watch;
    double before = 0;
    for (const std::string& text : texts) {
      requireOutcome(statement, ExecuteQuery(text.c_str()));
      if (each != nullptr) {
        const double now = watch.seconds();
        each->push_back(now - before);
        before = now;
      }
    }
    return watch.seconds();
  }

  void checkpoint() override { execute({"CHECKPOINT", ""}, {}); }
};

}  // namespace

std::unique_ptr<Engine> openVelmora() { return std::make_unique<VelmoraEngine>(); }

}  // namespace bench
