// See records.h. Quotes enclose a field only where they begin it.
#include <algorithm>

#include "load/records.h"

namespace tool {

bool CsvReader::next(TextRoom& room) {
  // A line without anything is no record, but where there is one column it is a null.
  while (!isOneColumn_ && next_ < content_.size() &&
         (content_[next_] == '\n' || content_.substr(next_, 2) == "\r\n")) {
    next_ += content_[next_] == '\n' ? 1 : 2;
  }
  begin_ = next_;
  if (next_ == content_.size()) return false;
  fields_.clear();
  do {
    takeField(room);
  } while (skipDelimiter());
  if (isFirst_) isOneColumn_ = fields_.size() == 1;
  isFirst_ = false;
  return true;
}

// Behind a field: whether another one follows in the record.
bool CsvReader::skipDelimiter() {
  if (next_ == content_.size()) return false;
  return content_[next_++] == form_.delimiter;
}

void CsvReader::takeField(TextRoom& room) {
  const std::size_t begin = next_;
  if (begin < content_.size() && content_[begin] == '"') return takeQuoted(room);
  const char delimiter = form_.delimiter;
  const char* const end = content_.data() + content_.size();
  const char* at = content_.data() + begin;
  while (at != end && *at != delimiter && *at != '\n') ++at;
  next_ = static_cast<std::size_t>(at - content_.data());
  std::string_view text = content_.substr(begin, next_ - begin);
  if (text.ends_with('\r') && (at == end || *at == '\n')) text.remove_suffix(1);
  fields_.push_back({text, begin, form_.nullText ? text == *form_.nullText : text.empty(), false});
}

void CsvReader::takeQuoted(TextRoom& room) {
  const std::size_t begin = next_;
  bool hasDoubled = false;
  const std::size_t end = closingQuote(begin + 1, hasDoubled);
  if (end == std::string_view::npos) {
    next_ = content_.size();
    throw BadInput(begin, "a quote that is never closed");
  }
  std::string_view text = content_.substr(begin + 1, end - begin - 1);
  if (hasDoubled) {
    std::string single;
    for (std::size_t i = 0; i < text.size(); ++i) {
      single += text[i];
      if (text[i] == '"') ++i;  // the first one of two
    }
    text = room.keep(single);
  }
  next_ = end + 1;
  if (content_.substr(next_, 2) == "\r\n") ++next_;
  if (next_ < content_.size() && content_[next_] != '\n' && content_[next_] != form_.delimiter) {
    const std::size_t wrong = next_;
    skipLine(wrong);
    throw BadInput(wrong, "text behind the closing quote of a field");
  }
  fields_.push_back({text, begin, false, false});
}

// No position where there is none.
std::size_t CsvReader::closingQuote(std::size_t from, bool& hasDoubled) const {
  while (true) {
    const std::size_t quote = content_.find('"', from);
    if (quote >= content_.size() - 1 || content_[quote + 1] != '"') return quote;
    hasDoubled = true;
    from = quote + 2;
  }
}

void CsvReader::skipLine(std::size_t from) {
  next_ = std::min(content_.find('\n', from), content_.size() - 1) + 1;
}

}  // namespace tool
