// See runner.h.
#include "runner.h"

#include "failure.h"
#include "input.h"
#include "interrupt.h"
#include "output/text.h"

namespace tool {

bool Runner::runFile(const std::string& name) {
  Input input(name);
  Splitter splitter(options_.ends);
  while (true) {
    const std::string text = input.read();
    splitter.add(text);
    if (!runAll(splitter, text.empty(), name)) return false;
    if (text.empty()) return true;
    flush();  // for who sends the next command when it has read the answer
  }
}

bool Runner::runText(std::string_view text, const std::string& name) {
  Splitter splitter(options_.ends);
  splitter.add(text);
  return runAll(splitter, true, name);
}

bool Runner::runAll(Splitter& splitter, bool isEnd, const std::string& name) {
  while (const std::optional<Command> command = splitter.next(isEnd)) {
    checkInterrupt();
    if (!runOne(*command, name)) return false;
  }
  return true;
}

bool Runner::runOne(const Command& command, const std::string& name) {
  try {
    const velmora::Result result = database_.run(command.text);
    if (result.columns() > 0) print(options_.format, result);
    return true;
  } catch (const velmora::Error& error) {
    if (error.code() == VELMORA_INTERRUPTED) throw;
    hasFailed_ = true;
    Place place = command.place;
    if (error.offset() > 0) {
      const Place within = placeOf(command.text, static_cast<std::size_t>(error.offset()));
      place.column = within.line > 1 ? within.column : place.column + within.column - 1;
      place.line += within.line - 1;
    }
    flush();
    tell(visible(name) + ":" + std::to_string(place.line) + ":" + std::to_string(place.column) +
         ": " + complaintText(error, command.text));
    return options_.keepsGoing;
  }
}

}  // namespace tool
