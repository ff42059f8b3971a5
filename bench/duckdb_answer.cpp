// DuckDB hands its rows over in chunks, each a vector of values a column; the values are read where
// they lie.
#include "duckdb_answer.h"

#include <cstring>
#include <stdexcept>

namespace bench {

namespace {

std::string_view view(const DuckdbText& text) {
  if (text.size <= sizeof text.inPlace) return {text.inPlace, text.size};
  const char* chars = nullptr;
  std::memcpy(&chars, text.inPlace + duckdbPointerOffset, sizeof chars);
  return {chars, text.size};
}

}  // namespace

const char* DuckdbAnswer::read(DuckdbResult& result) {
  const DuckdbLibrary& duckdb = duckdbLibrary();
  text_.begin();
  if (duckdb.answerKind(result) != duckdbRows) {
    return text_.finishChange(static_cast<int>(duckdb.rowsChanged(&result)));
  }
  setColumns(result);
  for (;;) {
    DuckdbHandle chunk = duckdb.fetchChunk(result);
    if (chunk == nullptr) return text_.finishRows();
    appendChunk(chunk);
    duckdb.destroyChunk(&chunk);
  }
}

void DuckdbAnswer::setColumns(DuckdbResult& result) {
  const DuckdbLibrary& duckdb = duckdbLibrary();
  columns_.resize(duckdb.columnCount(&result));
  for (std::size_t column = 0; column < columns_.size(); ++column) {
    text_.setColumn(column, duckdb.columnName(&result, column));
    columns_[column].type = duckdb.columnType(&result, column);
  }
}

void DuckdbAnswer::appendChunk(DuckdbHandle chunk) {
  const DuckdbLibrary& duckdb = duckdbLibrary();
  for (std::size_t column = 0; column < columns_.size(); ++column) {
    DuckdbHandle vector = duckdb.chunkVector(chunk, column);
    columns_[column].values = duckdb.vectorData(vector);
    columns_[column].validity = duckdb.vectorValidity(vector);
  }
  const std::uint64_t rowCount = duckdb.chunkSize(chunk);
  for (std::uint64_t row = 0; row < rowCount; ++row) {
    for (std::size_t column = 0; column < columns_.size(); ++column) appendValue(column, row);
    text_.endRow();
  }
}

void DuckdbAnswer::appendValue(std::size_t column, std::uint64_t row) {
  const Column& from = columns_[column];
  if (from.validity != nullptr && (from.validity[row / 64] >> (row % 64) & 1U) == 0) {
    text_.appendNull(column);
    return;
  }
  switch (from.type) {
    case duckdbInteger:
      text_.append(column, static_cast<const std::int32_t*>(from.values)[row]);
      break;
    case duckdbFloat:
      text_.append(column, double{static_cast<const float*>(from.values)[row]});
      break;
    case duckdbDouble:
      text_.append(column, static_cast<const double*>(from.values)[row]);
      break;
    case duckdbVarchar:
      text_.append(column, view(static_cast<const DuckdbText*>(from.values)[row]));
      break;
    default:
      throw std::logic_error("DuckDB: a column of another type");
  }
}

}  // namespace bench
