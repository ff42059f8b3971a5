// The picture of links: a box a table, parents before their children, an arrow a link from the
// child to its parent.
#ifndef VELMORA_TOOLS_REPORT_LINK_MAP_H
#define VELMORA_TOOLS_REPORT_LINK_MAP_H

#include <string>

#include "report/facts.h"

namespace tool {

// SVG; isNarrow: for phones.
std::string linkMapSvg(const Facts& facts, bool isNarrow);

}  // namespace tool

#endif
