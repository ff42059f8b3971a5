// The answer of a DuckDB statement: its rows, or what it changed, as velmora's JSON.
#pragma once

#include "answer_text.h"
#include "duckdb_library.h"

namespace bench {

class DuckdbAnswer {
 public:
  // Reads the result to its end and returns the answer, which stays until the next call.
  const char* read(DuckdbResult& result);

 private:
  struct Column {
    int type;
    const void* values;
    const std::uint64_t* validity;
  };

  void setColumns(DuckdbResult& result);
  void appendChunk(DuckdbHandle chunk);
  void appendValue(std::size_t column, std::uint64_t row);

  AnswerText text_;
  std::vector<Column> columns_;
};

}  // namespace bench
