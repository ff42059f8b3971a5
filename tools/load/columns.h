// The columns of what is loaded: their names, made such that the language takes them, and types,
// guessed from all the values or given.
#ifndef VELMORA_TOOLS_LOAD_COLUMNS_H
#define VELMORA_TOOLS_LOAD_COLUMNS_H

#include <optional>
#include <string>
#include <vector>

#include "copy/catalogue.h"
#include "load/input.h"

namespace tool {

// Names of letters, digits and "_", at most 15 bytes, none twice, none a word of the language.
std::vector<std::string> cleanNames(const std::vector<std::string>& names);

// What the values of a column can be, all of them.
class TypeGuess {
 public:
  void add(const Field& field);
  // Without a name. A column of nulls becomes one of texts.
  TableColumn column() const;

 private:
  bool hasValue_ = false;
  bool canBeBool_ = true;
  bool canBeWhole_ = true;
  bool canBeInt_ = true;
  bool canBeReal_ = true;
  bool hasLong_ = false;  // a whole number that no double holds exactly
  std::size_t longest_ = 1;
};

// The types of "a int, b string(20) 3". Throws Failure with exitWrongUse.
std::vector<TableColumn> givenTypes(const std::string& text);

// The longest text that a column can be declared for.
inline constexpr std::size_t longestText = 65535;

}  // namespace tool

#endif
