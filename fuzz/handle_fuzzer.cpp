// A whole database through a handle: any commands with any values, a line each, under ordinary
// kills and closes. What is answered is valid JSON; what is refused says where and leaves
// everything as it was; what there is is there again after a kill and after a close. An input is
//
//   1 byte    which values are bound first
//   the rest  commands, and the lines "!stop", "!kill" and "!clock N" of the sequences
#include <array>
#include <limits>
#include <string>
#include <vector>

#include "engine_run.h"
#include "json_check.h"
#include "number.h"
#include "scratch_directory.h"
#include "velmora/velmora.h"

namespace {

using namespace velmora::fuzz;

velmora_value textValue(std::string_view text) {
  return {VELMORA_TEXT, 0, 0, 0, text.data(), text.size()};
}
velmora_value integerValue(std::int64_t number) {
  return {VELMORA_INTEGER, number, 0, 0, nullptr, 0};
}
velmora_value realValue(double number) { return {VELMORA_REAL, 0, number, 0, nullptr, 0}; }

const std::array<velmora_value, 14> someValues = {
    integerValue(1),
    textValue("a"),
    integerValue(5),
    velmora_value{},
    realValue(0.5),
    velmora_value{VELMORA_BOOLEAN, 0, 0, 1, nullptr, 0},
    textValue("it's \"here\" ? #TIME# 5\n"),
    integerValue(-7),
    textValue(""),
    integerValue(std::numeric_limits<std::int64_t>::min()),
    realValue(std::numeric_limits<double>::max()),
    textValue("gr\xC3\xBC"),
    realValue(-0.0),
    integerValue(std::numeric_limits<std::int64_t>::max()),
};

// The database in the scratch directory; it can be killed.
class Handle {
 public:
  explicit Handle(std::size_t firstValue) : nextValue_(firstValue) {
    options_.size = sizeof options_;
    options_.flags = VELMORA_CREATE;
    options_.durability = VELMORA_DURABILITY_OFF;
    options_.context = this;
    options_.clock = [](void* context) { return static_cast<Handle*>(context)->second; };
    open();
  }
  ~Handle() { velmora_close(db_, nullptr); }
  Handle(const Handle&) = delete;
  Handle& operator=(const Handle&) = delete;

  // The JSON, or nothing for what was refused.
  std::string run(const std::string& command) {
    velmora_result* result = nullptr;
    velmora_error* error = nullptr;
    velmora_statement* statement = nullptr;
    int code = velmora_prepare(db_, command.data(), command.size(), &statement, &error);
    if (code == VELMORA_OK) {
      for (std::size_t i = 1; i <= velmora_statement_parameters(statement); ++i) {
        velmora_bind(statement, i, &someValues[nextValue_++ % someValues.size()], nullptr);
      }
      code = velmora_statement_run(statement, &result, &error);
    }
    velmora_statement_destroy(statement);
    if (code != VELMORA_OK) checkRefusal(code, error, command);
    std::string json;
    if (result != nullptr) json = velmora_result_json(result, nullptr);
    require(result == nullptr || isJson(json), "An answer is no JSON");
    velmora_result_destroy(result);
    velmora_error_destroy(error);
    return json;
  }
  // Everything that there is.
  std::string everything() {
    std::string all = run("SHOW LINKS") + run("SHOW LISTENERS") + run("SHOW SCHEDULE");
    velmora_result* tables = nullptr;
    velmora_run(db_, "SHOW TABLES", 11, nullptr, 0, &tables, nullptr);
    for (std::size_t row = 0; row < velmora_result_rows(tables); ++row) {
      std::size_t length = 0;
      const char* const bytes = velmora_result_text(tables, row, 0, &length);
      const std::string name(bytes, length);
      all += "\n" + name + run("SHOW COLUMNS FROM " + name) + run("SELECT * FROM " + name);
    }
    velmora_result_destroy(tables);
    return all;
  }
  void close() {
    require(velmora_close(db_, nullptr) == VELMORA_OK, "A close fails");
    db_ = nullptr;
  }
  void stop() {
    close();
    open();
  }
  void kill() {
    const Files files = ScratchDirectory::read();
    close();
    ScratchDirectory::clear();
    ScratchDirectory::write(files);
    open();
  }

  std::int64_t second = startSecond;

 private:
  void open() {
    velmora_error* error = nullptr;
    if (velmora_open(".", 1, &options_, &db_, &error) == VELMORA_OK) return;
    fail(std::string("The engine's own files do not load: ") + velmora_error_text(error));
  }
  static void checkRefusal(int code, const velmora_error* error, const std::string& command) {
    require(error != nullptr && *velmora_error_text(error) != '\0', "A refusal without a reason");
    const std::int64_t offset = velmora_error_offset(error);
    require(offset >= -1 && offset <= static_cast<std::int64_t>(command.size()),
            "Refused with an offset outside of the text");
    const bool isOfCommand = code != VELMORA_INTERNAL && code != VELMORA_CORRUPT &&
                             code != VELMORA_IO && code != VELMORA_NO_MEMORY;
    if (!isOfCommand) fail(command + "\nfails: " + velmora_error_text(error));
  }

  std::size_t nextValue_;
  velmora_options options_ = {};
  velmora_db* db_ = nullptr;
};

void requireSame(const std::string& after, const std::string& before, const char* what) {
  if (after != before) fail(std::string(what) + " makes:\n" + after + "\nof:\n" + before);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  prepareProcess();
  const ScratchDirectory directory;
  Handle handle(data[0]);
  bool isOpen = false;  // a transaction is
  for (std::string& line : linesOf({reinterpret_cast<const char*>(data) + 1, size - 1})) {
    if (line == "!stop" || line == "!kill") {
      if (isOpen) handle.run("ROLLBACK");
      isOpen = false;
      const std::string before = handle.everything();
      line == "!stop" ? handle.stop() : handle.kill();
      requireSame(handle.everything(), before, "A restart");
    } else if (line.starts_with("!clock ")) {
      std::int64_t passed = 0;
      velmora::convertLong(line.substr(7), passed);
      handle.second += passed % 1000000;
    } else {
      const std::string before = handle.everything();
      const std::string answer = handle.run(line);
      if (answer.empty()) requireSame(handle.everything(), before, "A refused command");
      const std::string begin = handle.run("BEGIN");
      isOpen = begin.empty();
      if (!isOpen) handle.run("ROLLBACK");
    }
  }
  if (isOpen) handle.run("ROLLBACK");
  const std::string living = handle.everything();
  handle.kill();
  requireSame(handle.everything(), living, "A kill");
  handle.stop();
  requireSame(handle.everything(), living, "A close");
  return 0;
}
