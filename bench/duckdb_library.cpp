// Opens the library and looks its functions up. It is opened once, before any process is forked, so
// that no timed start has to load it.
#include "duckdb_library.h"

#include <dlfcn.h>

#include <stdexcept>

namespace bench {

namespace {

DuckdbLibrary functions;
bool isOpen = false;

template <typename Function>
void find(void* library, const char* name, Function& function) {
  void* address = dlsym(library, name);
  if (address == nullptr) throw std::runtime_error(std::string("DuckDB lacks ") + name);
  function = reinterpret_cast<Function>(address);
}

void findConnections(void* library) {
  find(library, "duckdb_library_version", functions.version);
  find(library, "duckdb_open", functions.open);
  find(library, "duckdb_close", functions.close);
  find(library, "duckdb_connect", functions.connect);
  find(library, "duckdb_disconnect", functions.disconnect);
}

void findStatements(void* library) {
  find(library, "duckdb_prepare", functions.prepare);
  find(library, "duckdb_prepare_error", functions.prepareError);
  find(library, "duckdb_destroy_prepare", functions.destroyStatement);
  find(library, "duckdb_bind_int32", functions.bindInt);
  find(library, "duckdb_bind_double", functions.bindDouble);
  find(library, "duckdb_bind_varchar_length", functions.bindText);
  find(library, "duckdb_execute_prepared", functions.execute);
}

void findResults(void* library) {
  find(library, "duckdb_result_error", functions.resultError);
  find(library, "duckdb_destroy_result", functions.destroyResult);
  find(library, "duckdb_result_return_type", functions.answerKind);
  find(library, "duckdb_rows_changed", functions.rowsChanged);
  find(library, "duckdb_column_count", functions.columnCount);
  find(library, "duckdb_column_name", functions.columnName);
  find(library, "duckdb_column_type", functions.columnType);
  find(library, "duckdb_fetch_chunk", functions.fetchChunk);
  find(library, "duckdb_destroy_data_chunk", functions.destroyChunk);
  find(library, "duckdb_data_chunk_get_size", functions.chunkSize);
  find(library, "duckdb_data_chunk_get_vector", functions.chunkVector);
  find(library, "duckdb_vector_get_data", functions.vectorData);
  find(library, "duckdb_vector_get_validity", functions.vectorValidity);
}

void findAppenders(void* library) {
  find(library, "duckdb_appender_create", functions.createAppender);
  find(library, "duckdb_append_int32", functions.appendInt);
  find(library, "duckdb_append_double", functions.appendDouble);
  find(library, "duckdb_append_varchar_length", functions.appendText);
  find(library, "duckdb_appender_end_row", functions.endAppendedRow);
  find(library, "duckdb_appender_destroy", functions.destroyAppender);
}

}  // namespace

void openDuckdbLibrary(const std::string& file) {
  void* library = dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) throw std::runtime_error(std::string("DuckDB: ") + dlerror());
  findConnections(library);
  findStatements(library);
  findResults(library);
  findAppenders(library);
  isOpen = true;
}

bool hasDuckdbLibrary() { return isOpen; }

const DuckdbLibrary& duckdbLibrary() {
  if (!isOpen) throw std::logic_error("There is no DuckDB");
  return functions;
}

}  // namespace bench
