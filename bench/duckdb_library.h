// The functions of DuckDB's C interface that the benchmark calls, found in a library that is opened
// while the program runs: nothing of DuckDB is needed to build it, and where there is no library
// its columns stay empty. Types and numbers are those of that interface.
#pragma once

#include <cstdint>
#include <string>

namespace bench {

using DuckdbHandle = void*;  // of a database, connection, statement, appender, chunk or vector

// A result as its owner keeps it; only the functions read it.
struct DuckdbResult {
  std::uint64_t counts[3];
  void* details[3];
};

// A text of a vector: up to 12 bytes in place, else their first four and a pointer to all.
struct alignas(8) DuckdbText {
  std::uint32_t size;
  char inPlace[12];
};
inline constexpr std::size_t duckdbPointerOffset = 4;  // in inPlace

enum DuckdbType : int {
  duckdbInteger = 4,
  duckdbFloat = 10,
  duckdbDouble = 11,
  duckdbVarchar = 17
};
enum DuckdbAnswerKind : int { duckdbChangedRows = 1, duckdbNothing = 2, duckdbRows = 3 };

// Every call that returns a state returns 0 when it has succeeded.
struct DuckdbLibrary {
  const char* (*version)();
  int (*open)(const char* path, DuckdbHandle* database);
  void (*close)(DuckdbHandle* database);
  int (*connect)(DuckdbHandle database, DuckdbHandle* connection);
  void (*disconnect)(DuckdbHandle* connection);

  int (*prepare)(DuckdbHandle connection, const char* text, DuckdbHandle* statement);
  const char* (*prepareError)(DuckdbHandle statement);
  void (*destroyStatement)(DuckdbHandle* statement);
  int (*bindInt)(DuckdbHandle statement, std::uint64_t place, std::int32_t value);
  int (*bindDouble)(DuckdbHandle statement, std::uint64_t place, double value);
  int (*bindText)(DuckdbHandle statement, std::uint64_t place, const char* chars,
                  std::uint64_t size);
  int (*execute)(DuckdbHandle statement, DuckdbResult* result);

  const char* (*resultError)(DuckdbResult* result);
  void (*destroyResult)(DuckdbResult* result);
  int (*answerKind)(DuckdbResult result);
  std::uint64_t (*rowsChanged)(DuckdbResult* result);
  std::uint64_t (*columnCount)(DuckdbResult* result);
  const char* (*columnName)(DuckdbResult* result, std::uint64_t column);
  int (*columnType)(DuckdbResult* result, std::uint64_t column);
  DuckdbHandle (*fetchChunk)(DuckdbResult result);  // null behind the last
  void (*destroyChunk)(DuckdbHandle* chunk);
  std::uint64_t (*chunkSize)(DuckdbHandle chunk);
  DuckdbHandle (*chunkVector)(DuckdbHandle chunk, std::uint64_t column);
  void* (*vectorData)(DuckdbHandle vector);
  // A bit for each row, set where there is a value; null where all have one.
  std::uint64_t* (*vectorValidity)(DuckdbHandle vector);

  int (*createAppender)(DuckdbHandle connection, const char* schema, const char* table,
                        DuckdbHandle* appender);
  int (*appendInt)(DuckdbHandle appender, std::int32_t value);
  int (*appendDouble)(DuckdbHandle appender, double value);
  int (*appendText)(DuckdbHandle appender, const char* chars, std::uint64_t size);
  int (*endAppendedRow)(DuckdbHandle appender);
  int (*destroyAppender)(DuckdbHandle* appender);  // flushes first
};

// Opens the library in this file; before that there is none.
// Throws std::runtime_error when it cannot be opened or lacks a function.
void openDuckdbLibrary(const std::string& file);
bool hasDuckdbLibrary();
const DuckdbLibrary& duckdbLibrary();

}  // namespace bench
