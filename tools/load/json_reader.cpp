// See records.h. Each line is an object; arrays and objects within are kept as JSON texts.
#include <algorithm>
#include <nlohmann/json.hpp>

#include "load/records.h"

namespace tool {
namespace {

using Json = nlohmann::ordered_json;  // names in the order of the file

Field fieldOf(const Json& value, std::size_t offset, TextRoom& room) {
  if (value.is_null()) return {"", offset, true, false};
  if (value.is_string()) {
    return {room.keep(value.get_ref<const std::string&>()), offset, false, true};
  }
  return {room.keep(value.dump()), offset, false, value.is_structured()};
}

}  // namespace

bool JsonReader::next(TextRoom& room) {
  while (next_ < content_.size()) {
    begin_ = next_;
    const std::size_t end = std::min(content_.find('\n', begin_), content_.size());
    next_ = std::min(end + 1, content_.size());
    const std::string_view line = content_.substr(begin_, end - begin_);
    if (line.find_first_not_of(" \t\r") == std::string_view::npos) continue;
    takeObject(line, room);
    return true;
  }
  begin_ = next_;
  return false;
}

void JsonReader::takeObject(std::string_view line, TextRoom& room) {
  Json object;
  try {
    object = Json::parse(line);
  } catch (const Json::parse_error& error) {
    throw BadInput(begin_ + (error.byte == 0 ? 0 : error.byte - 1), "not a JSON text");
  }
  if (!object.is_object()) throw BadInput(begin_, "not a JSON object");
  fields_.assign(names_.size(), Field{"", begin_, true, false});
  for (const auto& [name, value] : object.items()) {
    const auto [found, isNew] = columns_.try_emplace(name, names_.size());
    if (isNew) names_.push_back(name);
    if (isNew) fields_.emplace_back();
    fields_[found->second] = fieldOf(value, begin_, room);
  }
}

}  // namespace tool
