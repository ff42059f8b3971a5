// Condition: one comparison of a WHERE filter. A filter is a flat list of them in written order;
// the parser makes it, row matching evaluates it, and listeners keep it. Neither column names nor
// values are checked here.
#pragma once

#include <compare>
#include <string>

namespace velmora {

struct Condition {
  std::string tableName;  // the prefix written before a ".", empty when the column is bare
  std::string column;
  std::string value;  // the literal's text, without its quotes
  std::string op;     // the operator as written
  char logic = 'o';   // the connective before this condition: 'o' for ||, 'a' for &&; the first 'o'

  auto operator<=>(const Condition&) const = default;
};

}  // namespace velmora
