// A database as a host holds it by the handles, for the engine of that mode and for the workloads
// that want more than an engine: durability, threads. Failures are std::runtime_errors.
#pragma once

#include <memory>
#include <string>

#include "engine.h"
#include "velmora/velmora.h"

namespace bench {

struct HandleCloser {
  void operator()(velmora_db* database) const { velmora_close(database, nullptr); }
  void operator()(velmora_statement* statement) const { velmora_statement_destroy(statement); }
  void operator()(velmora_result* result) const { velmora_result_destroy(result); }
};
using HandleDatabase = std::unique_ptr<velmora_db, HandleCloser>;
using HandleResult = std::unique_ptr<velmora_result, HandleCloser>;

// Opens the database of the directory, which it makes.
HandleDatabase openHandleDatabase(const std::string& path, std::uint32_t durability);

// A prepared command. Its text has places ?1, ?2 and so on, in that order.
class HandleStatement {
 public:
  HandleStatement(velmora_db* database, const std::string& text);

  HandleResult run(const Values& values);
  // The result is null where the command fails.
  HandleResult tryRun(const Values& values, velmora_error** error);

 private:
  std::unique_ptr<velmora_statement, HandleCloser> statement_;
};

HandleResult runHandle(velmora_db* database, const std::string& text);

// Reads each value by its type.
void readRows(const velmora_result& result);

}  // namespace bench
