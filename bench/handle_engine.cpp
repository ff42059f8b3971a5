// velmora by a handle, in durability off, which is what the plain functions have: prepared
// statements, values bound, answers read by the values' types into the text that all sides make.
#include <map>
#include <stdexcept>

#include "answer_text.h"
#include "handle.h"
#include "memory.h"
#include "stopwatch.h"

namespace bench {

namespace {

class HandleEngine : public Engine {
 public:
  const char* execute(const Statement& statement, const Values& values) override {
    if (statement.velmora.empty()) return "";
    return run(ready(statement.velmora), statement, values);
  }

  void fill(const Statement& insert, int count, const std::function<Values(int)>& values) override {
    runHandle(database_.get(), "BEGIN");
    for (int index = 0; index < count; ++index) execute(insert, values(index));
    runHandle(database_.get(), "COMMIT");
  }

  double load(const Statement& insert, const Batch& batch) override {
    freshMemory();
    const Stopwatch watch;
    change(insert, batch);
    return watch.seconds();
  }

  void change(const Statement& statement, const Batch& batch) override {
    runHandle(database_.get(), "BEGIN");
    for (const Values& values : batch) execute(statement, values);
    runHandle(database_.get(), "COMMIT");
  }

  double time(const Statement& statement, const Batch& batch, std::vector<double>* each) override {
    if (each != nullptr) throw std::logic_error("Single commands of handles are not timed");
    HandleStatement& prepared = ready(statement.velmora);
    freshMemory();
    const Stopwatch watch;
    for (const Values& values : batch) run(prepared, statement, values);
    return watch.seconds();
  }

  double timeReading(const Statement& query, const Batch& batch) override {
    HandleStatement& prepared = ready(query.velmora);
    freshMemory();
    const Stopwatch watch;
    for (const Values& values : batch) readRows(*prepared.run(values));
    return watch.seconds();
  }

  void checkpoint() override {
    if (velmora_checkpoint(database_.get(), nullptr) != VELMORA_OK) {
      throw std::runtime_error("handle: a checkpoint fails");
    }
  }

 private:
  // The statement, prepared when it is first wanted.
  HandleStatement& ready(const std::string& text) {
    return prepared_.try_emplace(text, database_.get(), text).first->second;
  }

  const char* run(HandleStatement& prepared, const Statement& statement, const Values& values) {
    if (statement.isRefused) {
      if (prepared.tryRun(values, nullptr) != nullptr) throw std::runtime_error(statement.velmora);
      text_.begin();
      return text_.finishFailure("refused");
    }
    const HandleResult result = prepared.run(values);
    text_.begin();
    if (velmora_result_columns(result.get()) == 0) {
      return text_.finishChange(static_cast<int>(velmora_result_rows_affected(result.get())));
    }
    if (columnsOf_ != &prepared) setColumns(*result);
    columnsOf_ = &prepared;
    appendRows(*result);
    return text_.finishRows();
  }

  void setColumns(const velmora_result& result) {
    for (std::size_t column = 0; column < velmora_result_columns(&result); ++column) {
      text_.setColumn(column, velmora_result_column_name(&result, column, nullptr));
    }
  }

  void appendRows(const velmora_result& result) {
    const std::size_t columns = velmora_result_columns(&result);
    const std::size_t rows = velmora_result_rows(&result);
    for (std::size_t row = 0; row < rows; ++row) {
      for (std::size_t column = 0; column < columns; ++column) append(result, row, column);
      text_.endRow();
    }
  }

  void append(const velmora_result& result, std::size_t row, std::size_t column) {
    switch (velmora_result_type(&result, row, column)) {
      case VELMORA_INTEGER:
        text_.append(column, static_cast<int>(velmora_result_integer(&result, row, column)));
        break;
      case VELMORA_REAL:
        text_.append(column, velmora_result_real(&result, row, column));
        break;
      case VELMORA_TEXT: {
        std::size_t size = 0;
        const char* chars = velmora_result_text(&result, row, column, &size);
        text_.append(column, std::string_view(chars, size));
        break;
      }
      default:
        text_.appendNull(column);
    }
  }

  HandleDatabase database_ = openHandleDatabase(".", VELMORA_DURABILITY_OFF);
  std::map<std::string, HandleStatement> prepared_;  // go before the database
  AnswerText text_;
  const HandleStatement* columnsOf_ = nullptr;
};

}  // namespace

std::unique_ptr<Engine> openHandle() { return std::make_unique<HandleEngine>(); }

}  // namespace bench
