// The kept statements: found by their texts, taken out while they run, and the one whose last run
// is longest ago given up for a new one.
#include "statements.h"

#include <algorithm>

#include "errors.h"
#include "values.h"

namespace velmora_python {
namespace {

std::unique_ptr<Statement> prepare(velmora_db* db, PyObject* text) {
  size_t size = 0;
  const char* const bytes = utf8(text, &size);
  if (bytes == nullptr) raise(VELMORA_SYNTAX, "The command has a lone surrogate");
  velmora_statement* handle = nullptr;
  velmora_error* error = nullptr;
  const int code = velmora_prepare(db, bytes, size, &handle, &error);
  require(code, error);
  auto statement = std::make_unique<Statement>();
  statement->handle.reset(handle);
  statement->kind = velmora_statement_kind(handle);
  statement->parameters = velmora_statement_parameters(handle);
  return statement;
}

}  // namespace

std::unique_ptr<Statement> Statements::take(velmora_db* db, PyObject* text) {
  const auto found = entries_.find(Ref::shared(text));
  if (found == entries_.end() || found->second.statement == nullptr) return prepare(db, text);
  found->second.lastUse = ++uses_;
  return std::move(found->second.statement);
}

void Statements::giveBack(PyObject* text, std::unique_ptr<Statement> statement) {
  if (capacity_ == 0) return;
  Ref key = Ref::shared(text);
  auto found = entries_.find(key);
  if (found == entries_.end()) {
    if (entries_.size() >= capacity_) dropLeastUsed();
    found = entries_.emplace(std::move(key), Entry{nullptr, ++uses_}).first;
  }
  found->second.statement = std::move(statement);
}

void Statements::dropLeastUsed() {
  entries_.erase(std::ranges::min_element(entries_, {},
                                          [](const auto& entry) { return entry.second.lastUse; }));
}

void Statements::forget() noexcept {
  for (auto& [text, entry] : entries_) {
    if (entry.statement != nullptr) static_cast<void>(entry.statement->handle.release());
  }
}

}  // namespace velmora_python
