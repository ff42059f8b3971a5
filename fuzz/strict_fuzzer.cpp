// The strict language: any text is either refused, with an offset within it and a reason, or read
// as a statement. The log's form of it, its text without the clock and its values, is read as the
// same statement with these values. An input is
//
//   1 byte    which values are bound
//   the rest  the text
#include <cstdint>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

#include "../tests/unit/strict_description.h"
#include "engine_run.h"
#include "failure.h"
#include "storage/record_values.h"
#include "strict/parser.h"

namespace {

using namespace velmora;
using namespace velmora::fuzz;

const std::vector<Value>& someValues() {
  static const std::vector<Value> values = {
      Value(),
      true,
      std::int64_t{-7},
      std::numeric_limits<std::int64_t>::min(),
      5.0,
      -0.0,
      0.1,
      std::numeric_limits<double>::denorm_min(),
      std::numeric_limits<double>::max(),
      std::string(),
      std::string("it's \"here\" ? #TIME# 5\n"),
      std::string("'"),
      std::string("gr\xC3\xBC"),
  };
  return values;
}

std::vector<Value> valuesFor(const strict::Statement& statement, std::size_t first) {
  std::vector<Value> values;
  for (const bool isWhole : strict::wholeParameters(statement)) {
    const std::size_t which = first++ % someValues().size();
    values.push_back(isWhole ? Value(static_cast<std::int64_t>(which + 1)) : someValues()[which]);
  }
  return values;
}

void checkRefusal(const Failure& failure, std::string_view text) {
  require(failure.code == Code::syntax || failure.code == Code::type || failure.code == Code::range,
          "Refused with a code that is not the parser's");
  require(failure.offset >= 0 && static_cast<std::size_t>(failure.offset) <= text.size(),
          "Refused with an offset outside of the text");
}

void checkReadsBack(strict::Statement statement, const std::vector<Value>& values) {
  std::string written;
  appendValues(written, values);
  std::string_view rest = written;
  const auto read = takeValues(rest);
  if (!read || *read != values || !rest.empty()) fail("Values are read otherwise: " + written);
  statement.clock.reset();
  try {
    const std::string again = strict::describe(strict::parse(statement.text), *read);
    if (again != strict::describe(statement, values)) fail("Reads otherwise: " + statement.text);
  } catch (const Failure& failure) {
    fail(statement.text + "\nis refused: " + failure.what());
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  // A copy: what is read beyond it is found.
  const std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
  try {
    const strict::Statement statement = strict::parse(text);
    checkReadsBack(statement, valuesFor(statement, data[0]));
  } catch (const Failure& failure) {
    checkRefusal(failure, text);
  }
  return 0;
}
