// Values on their way in.
#include "values.h"

#include "texts.h"

namespace velmora_node {
namespace {

// As lib/scratch.js numbers them; the others are those of velmora_type.
constexpr std::uint8_t wideInteger = 5;

// Makes a value, which is null, the one of a place, member by member: a whole one that is copied is
// waited for until its parts have been written. Of a text its end in the string, in units of 16
// bits, stands for its size until it is read.
void setValue(velmora_value& value, const Scratch& scratch, std::size_t place) {
  const double number = scratch.numbers[place];
  value.type = scratch.kinds[place];
  switch (value.type) {
    case VELMORA_INTEGER:
      value.integer = static_cast<std::int64_t>(number);
      break;
    case VELMORA_REAL:
      value.real = number;
      break;
    case VELMORA_BOOLEAN:
      value.boolean = number != 0 ? 1 : 0;
      break;
    case VELMORA_TEXT:
      value.text_size = static_cast<std::size_t>(number);
      break;
    case wideInteger:
      value.type = VELMORA_INTEGER;
      value.integer = scratch.wide[place];
      break;
    default:
      break;
  }
}

}  // namespace

void Values::read(const Call& call, std::size_t count, napi_value texts) {
  values_.clear();
  std::size_t units = 0;
  bool hasText = false;
  for (std::size_t i = 0; i < count; ++i) {
    velmora_value& value = values_.emplace_back();
    setValue(value, call.addon->scratch, i);
    if (value.type != VELMORA_TEXT) continue;
    units = value.text_size;
    hasText = true;
  }
  if (hasText) readTexts(call, units, texts);
}

void Values::readTexts(const Call& call, std::size_t units, napi_value texts) {
  // With anything but ASCII there are more bytes than units, and there is room for one to show.
  texts_.resize(units + 8);
  std::size_t bytes = 0;
  require(call.env,
          napi_get_value_string_utf8(call.env, texts, texts_.data(), texts_.size(), &bytes));
  if (bytes != units) return readWideTexts(call.env, texts);
  std::size_t begin = 0;
  for (velmora_value& value : values_) {
    if (value.type != VELMORA_TEXT) continue;
    value.text = texts_.data() + begin;
    value.text_size -= begin;
    begin += value.text_size;
  }
}

void Values::readWideTexts(napi_env env, napi_value texts) {
  const std::u16string units = utf16Of(env, texts);
  texts_.clear();
  texts_.reserve(3 * units.size());  // no unit has more bytes, so that texts stay where they are
  std::size_t begin = 0;
  for (std::size_t i = 0; i < values_.size(); ++i) {
    velmora_value& value = values_[i];
    if (value.type != VELMORA_TEXT) continue;
    const std::size_t end = value.text_size;
    const std::size_t place = texts_.size();
    if (!appendUtf8(texts_, std::u16string_view(units).substr(begin, end - begin))) {
      throwTypeError(env, "Value " + std::to_string(i + 1) + " has a lone surrogate");
    }
    value.text = texts_.data() + place;
    value.text_size = texts_.size() - place;
    begin = end;
  }
}

}  // namespace velmora_node
