// What a load will do, found out by a first reading of the whole input, before anything is made.
#ifndef VELMORA_TOOLS_LOAD_PLAN_H
#define VELMORA_TOOLS_LOAD_PLAN_H

#include <optional>
#include <string>
#include <vector>

#include "load/input.h"
#include "load/records.h"
#include "load/values.h"

namespace tool {

struct LoadOptions {
  std::string table;
  std::string file;
  RecordForm form;
  std::string types;
  std::vector<std::string> dates;  // COLUMN or COLUMN=FORM
  std::string rejects;             // the file for what cannot be loaded; empty: none can be
};

struct LoadPlan {
  TableShape table;
  bool isNew = false;
  std::vector<Target> targets;     // one for each column of the input
  std::vector<std::string> names;  // of these, as the input has them
  std::size_t rows = 0;            // that look well so far
};

// Throws Failure for what is wrong with the options, and for the first bad record unless bad ones
// may be rejected. existing: the table, where there is one.
LoadPlan makePlan(const Input& input, const LoadOptions& options, const TableShape* existing);

// For a person, some lines.
std::string planText(const LoadPlan& plan, const Input& input);

// Throws BadInput if the record has not as many fields as there are columns.
void checkWidth(const Records& records);

}  // namespace tool

#endif
