// See result_set.h.
#include "result_set.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <new>

#include "number.h"

namespace velmora {
namespace {

char* put(char* out, std::string_view text) {
  std::memcpy(out, text.data(), text.size());
  return out + text.size();
}

}  // namespace

void TextBuffer::Free::operator()(char* bytes) const noexcept { std::free(bytes); }

void TextBuffer::grow(std::size_t count) {
  const std::size_t used = hasMemory() ? static_cast<std::size_t>(end_ - bytes_.get()) : front_;
  const auto capacity = static_cast<std::size_t>(limit_ - bytes_.get());
  const std::size_t grown = std::max(used + count, 2 * capacity + 512);
  // realloc moves large blocks by their pages instead of copying them.
  auto* const bytes = static_cast<char*>(std::realloc(bytes_.get(), grown));
  if (bytes == nullptr) throw std::bad_alloc();
  static_cast<void>(bytes_.release());
  bytes_.reset(bytes);
  end_ = bytes + used;
  limit_ = bytes + grown;
}

void TextBuffer::append(std::string_view text) {
  char* const out = room(text.size());
  std::memcpy(out, text.data(), text.size());
  setEnd(out + text.size());
}

char* TextBuffer::prepend(std::size_t count) {
  if (!hasMemory()) grow(0);
  if (count > front_) {
    room(count);
    std::memmove(begin() + count, begin(), view().size());
    front_ += count;
    end_ += count;
  }
  front_ -= count;
  return begin();
}

void JsonRows::begin(std::span<const std::string> columns, TextBuffer&& memory) {
  buffer_ = std::move(memory);
  buffer_.clear();
  names_ = columns;
}

void JsonRows::offerMemory(TextBuffer&& memory) noexcept {
  if (buffer_.hasMemory()) return;
  buffer_ = std::move(memory);
  buffer_.clear();
}

char* JsonRows::beginUnpreparedValue(std::size_t count) {
  constexpr std::string_view rowBegin = "    {\"";
  constexpr std::string_view comma = ", \"";
  constexpr std::string_view colon = "\": ";
  const std::string_view name = names_[column_];
  char* out = buffer_.room(rowBegin.size() + name.size() + colon.size() + count + rowEnd.size());
  // Sizes known here make each of these a store or two.
  if (column_ == 0) {
    std::memcpy(out, rowBegin.data(), rowBegin.size());
    out += rowBegin.size();
  } else {
    std::memcpy(out, comma.data(), comma.size());
    out += comma.size();
  }
  std::memcpy(out, name.data(), name.size());
  out += name.size();
  std::memcpy(out, colon.data(), colon.size());
  return out + colon.size();
}

void JsonRows::expectRows(std::size_t count) {
  constexpr std::size_t few = 4;
  if (count < few) return;
  prefixes_.resize(names_.size());
  for (std::size_t i = 0; i < names_.size(); ++i) {
    const std::string text = (i == 0 ? "    {\"" : ", \"") + names_[i] + "\": ";
    prefixes_[i].size = text.size();
    std::memcpy(prefixes_[i].bytes, text.data(), std::min(text.size(), Prefix::capacity));
  }
  arePrepared_ = true;
}

void JsonRows::addPrinted(std::string_view json) {
  char* const out = beginValue(json.size());
  std::memcpy(out, json.data(), json.size());
  endValue(out + json.size());
}

void JsonRows::addText(std::string_view text) {
  if (text == "NULL") {
    addPrinted("null");
    return;
  }
  char* out = beginValue(text.size() + 2);
  *out++ = '"';
  std::memcpy(out, text.data(), text.size());
  out += text.size();
  *out++ = '"';
  endValue(out);
}

void JsonRows::addFloat(float value) { endValue(writeGeneral(beginValue(maxNumberText), value)); }

void JsonRows::addFloat(float value, int decimals) {
  if (std::isfinite(value)) {
    endValue(writeGeneral(beginValue(maxNumberText), value, decimals));
  } else {
    addFloat(value);
  }
}

void JsonRows::addDouble(double value) {
  endValue(writeShortest(beginValue(maxNumberText), value));
}

ResultSet successful(std::string message, std::int32_t rowsAffected) {
  ResultSet result;
  result.message = std::move(message);
  result.rowsAffected = rowsAffected;
  return result;
}

ResultSet refused(std::string_view text) {
  ResultSet result;
  result.success = false;
  result.message = "Error: ";
  result.message += text;
  return result;
}

TextBuffer renderJson(ResultSet&& result) {
  constexpr std::string_view succeeded = "{\n  \"success\": true,\n  \"message\": \"";
  constexpr std::string_view failed = "{\n  \"success\": false,\n  \"message\": \"";
  constexpr std::string_view rowCount = "\",\n  \"rows_affected\": ";
  constexpr std::string_view dataBegin = ",\n  \"data\": [\n";
  TextBuffer json = result.rows.take();
  const bool hasRows = !json.view().empty();
  if (hasRows) {
    // The last row has no comma.
    json.drop(JsonRows::rowEnd.size());
    json.append("}\n  ]\n}");
  } else {
    json.append("\n}");
  }
  char number[maxNumberText];
  const std::string_view affected(number, writeInt(number, result.rowsAffected));
  const std::size_t size = (result.success ? succeeded : failed).size() + result.message.size() +
                           rowCount.size() + affected.size() + (hasRows ? dataBegin.size() : 0);
  char* out = json.prepend(size);
  out = result.success ? put(out, succeeded) : put(out, failed);
  out = put(out, result.message);
  out = put(out, rowCount);
  out = put(out, affected);
  if (hasRows) put(out, dataBegin);
  return json;
}

}  // namespace velmora
