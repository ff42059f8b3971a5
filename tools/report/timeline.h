// The picture of timed values: a bar a state on a line of time, half-open as states are. Of a value
// that cycles one pass is solid and the others lighter; one that stays for ever fades out at the
// right edge; before its start, where the first state holds, a value is hatched.
#ifndef VELMORA_TOOLS_REPORT_TIMELINE_H
#define VELMORA_TOOLS_REPORT_TIMELINE_H

#include <cstdint>
#include <string>
#include <vector>

#include "report/facts.h"

namespace tool {

// From which second to which the picture goes.
struct Span {
  std::int64_t from = 0;
  std::int64_t until = 0;
};
// One in which what is to come of the cells can be seen.
Span spanOf(const std::vector<TimedCell>& cells, std::int64_t now);

struct Bar {
  std::int64_t from = 0;
  std::int64_t until = 0;
  std::size_t state = 0;
  enum class Look { solid, repeated, waiting } look = Look::solid;
  bool staysForEver = false;
};
// The bars of a plan that the span shows, at least in part, in order and without gaps; their ends
// may lie outside.
std::vector<Bar> barsOf(const Plan& plan, const Span& span, std::int64_t now);

// SVG; isNarrow: for phones, the names above the bars.
std::string timelineSvg(const TableFacts& table, std::int64_t now, bool isNarrow);

}  // namespace tool

#endif
