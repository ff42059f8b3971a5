// The promise about answers: where every text that goes in is valid UTF-8 without quotes that JSON
// knows, backslashes and control characters, every answer is valid JSON. The input is cut down to
// such text, line by line, and each line is a command.
#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "engine_run.h"
#include "json_check.h"
#include "scratch_directory.h"

namespace {

using namespace velmora::fuzz;

std::string keepHarmless(std::string_view text) {
  constexpr unsigned char rubout = 0x7F;
  std::string kept;
  while (!text.empty()) {
    const std::size_t length = utf8Length(text);
    const auto first = static_cast<unsigned char>(text.front());
    const bool isHarmless =
        length > 0 && first >= ' ' && first != rubout && first != '"' && first != '\\';
    if (isHarmless) kept += text.substr(0, length);
    text.remove_prefix(std::max<std::size_t>(length, 1));
  }
  return kept;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  prepareProcess();
  const ScratchDirectory directory;
  auto engine = Engine::started();
  for (const std::string& line : linesOf({reinterpret_cast<const char*>(data), size})) {
    const std::string command = keepHarmless(line);
    const std::string answer = engine->run(command);
    if (!answer.starts_with("throws ") && !isJson(answer)) {
      fail("Not JSON, for " + command + ":\n" + answer);
    }
  }
  return 0;
}
