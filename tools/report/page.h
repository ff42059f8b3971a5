// The report as one HTML page, with nothing from outside, no script, and nothing that the reader's
// clock or place would change.
#ifndef VELMORA_TOOLS_REPORT_PAGE_H
#define VELMORA_TOOLS_REPORT_PAGE_H

#include <string>

#include "report/facts.h"

namespace tool {

std::string pageOf(const Facts& facts);

}  // namespace tool

#endif
