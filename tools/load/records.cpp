// See records.h: the header, and the choice between the two.
#include "load/records.h"

#include <algorithm>

#include "output/text.h"

namespace tool {

Records::Records(const Input& input, const RecordForm& form)
    : form_(form), reader_(CsvReader(input.content(), form_)) {
  if (form_.isJson) {
    reader_.emplace<JsonReader>(input.content());
  } else {
    readHeader(std::get<CsvReader>(reader_));
    // Then the first record is one of values.
    if (!form_.hasHeader) reader_.emplace<CsvReader>(input.content(), form_);
  }
}

void Records::readHeader(CsvReader& reader) {
  TextRoom room;
  if (!reader.next(room)) throw BadInput(0, "nothing but blank lines");
  for (const Field& field : reader.fields()) {
    if (!form_.hasHeader) {
      names_.push_back("column" + std::to_string(names_.size() + 1));
      continue;
    }
    const std::string name(field.text);
    if (std::find(names_.begin(), names_.end(), name) != names_.end()) {
      throw BadInput(field.offset, "two columns are called '" + visible(name) + "'");
    }
    names_.push_back(name);
  }
}

bool Records::next(TextRoom& room) {
  return std::visit([&](auto& reader) { return reader.next(room); }, reader_);
}
std::span<const Field> Records::fields() const {
  return std::visit([](const auto& reader) { return reader.fields(); }, reader_);
}
std::string_view Records::record() const {
  return std::visit([](const auto& reader) { return reader.record(); }, reader_);
}
std::size_t Records::offset() const {
  return std::visit([](const auto& reader) { return reader.offset(); }, reader_);
}
const std::vector<std::string>& Records::names() const {
  const auto* const json = std::get_if<JsonReader>(&reader_);
  return json == nullptr ? names_ : json->names();
}

}  // namespace tool
