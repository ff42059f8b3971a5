// Puts the records of an input into a table, as a plan says, in one transaction.
#ifndef VELMORA_TOOLS_LOAD_LOADER_H
#define VELMORA_TOOLS_LOAD_LOADER_H

#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "load/plan.h"
#include "progress.h"
#include "velmora/velmora.hpp"

namespace tool {

class Loader {
 public:
  Loader(velmora::Database& database, const Input& input, const LoadOptions& options,
         const LoadPlan& plan);

  // Throws Failure at the first bad record, with nothing loaded, unless such are to be rejected.
  void run();
  std::size_t loaded() const { return loaded_; }
  std::size_t rejected() const { return rejected_; }

 private:
  struct Row {
    std::size_t offset;
    std::string_view record;
  };

  void load();
  void addRow(const Records& records);
  void insertRows(velmora::Statement& insert);
  void insertSingly(velmora::Statement& insert);
  void reject(std::size_t offset, std::string_view record, const std::string& reason);

  velmora::Database& database_;
  const Input& input_;
  const LoadOptions& options_;
  const LoadPlan& plan_;
  std::vector<velmora_value> values_;  // of rows_
  std::vector<Row> rows_;
  std::ofstream rejects_;
  std::size_t loaded_ = 0;
  std::size_t rejected_ = 0;
};

}  // namespace tool

#endif
