// A statement: a command that is parsed once, with the result of its last run as long as
// JavaScript has not read all of it.
#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "addon.h"
#include "database.h"
#include "result.h"
#include "values.h"

namespace velmora_node {

struct Statement {
  Statement(std::shared_ptr<Database> own, velmora_statement* prepared);
  ~Statement() { close(); }
  Statement(const Statement&) = delete;
  Statement& operator=(const Statement&) = delete;

  void close();

  std::shared_ptr<Database> database;
  velmora_statement* statement;  // null: closed
  std::size_t parameters;
  Values values;
  Result result;            // not null: there is more of it
  std::size_t nextRow = 0;  // of it
  Columns columns;          // that JavaScript knows
};

}  // namespace velmora_node
