// The statements that a connection keeps, by their texts, so that a command that is run often is
// parsed once.
#pragma once

#include <cstdint>
#include <memory>
#include <unordered_map>

#include "python_api.h"
#include "velmora/velmora.h"

namespace velmora_python {

struct Statement {
  struct Destroy {
    void operator()(velmora_statement* statement) const noexcept {
      velmora_statement_destroy(statement);
    }
  };
  std::unique_ptr<velmora_statement, Destroy> handle;
  velmora_kind kind;
  size_t parameters;
  Ref names;  // the columns of its last result, or null
};

class Statements {
 public:
  explicit Statements(size_t capacity) : capacity_(capacity) {}

  // The statement of a text, which is nobody else's until it is given back. Raises what there is to
  // say against the text.
  std::unique_ptr<Statement> take(velmora_db* db, PyObject* text);
  void giveBack(PyObject* text, std::unique_ptr<Statement> statement);

  // For a child of a fork: its parent's statements are left as they are.
  void forget() noexcept;

 private:
  struct Hash {
    size_t operator()(const Ref& text) const noexcept {
      return static_cast<size_t>(PyObject_Hash(text.get()));
    }
  };
  struct Equal {
    bool operator()(const Ref& left, const Ref& right) const noexcept {
      return left.get() == right.get() || PyUnicode_Compare(left.get(), right.get()) == 0;
    }
  };
  struct Entry {
    std::unique_ptr<Statement> statement;  // null while it is taken
    uint64_t lastUse = 0;
  };
  void dropLeastUsed();

  std::unordered_map<Ref, Entry, Hash, Equal> entries_;
  size_t capacity_;
  uint64_t uses_ = 0;
};

}  // namespace velmora_python
