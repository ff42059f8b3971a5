// See replayed_commands.h.
#include "replayed_commands.h"

#include <string_view>

#include "../number.h"
#include "parser.h"

namespace velmora {

void ReplayedCommands::read(LogReader& reader) {
  texts_.clear();
  tokens_.clear();
  records_.clear();
  while (!goesOn()) {
    const auto text = reader.next();
    if (!text) break;
    texts_.insert(texts_.end(), text->begin(), text->end());
    records_.push_back({texts_.size(), 0, {}, {}});
  }
  std::size_t start = 0;
  std::size_t kept = 0;
  for (Record record : records_) {
    const std::string_view text(texts_.data() + start, record.textEnd - start);
    start = record.textEnd;
    if (read(text, record)) records_[kept++] = record;
  }
  records_.resize(kept);
}

bool ReplayedCommands::read(std::string_view text, Record& record) {
  const MarkedText marked = cutAtClockMarker(text);
  record.second = loggedSecond(text);
  if (marked.clock) {
    std::int64_t start = 0;
    if (convertLong(*marked.clock, start) != Conversion::ok) return false;
    record.timedStart = start;
  }
  Lexer(marked.command).tokenize(tokens_);
  record.tokensEnd = tokens_.size();
  return true;
}

}  // namespace velmora
