// Records of a CSV file (RFC 4180, and what is seen in the wild) or of JSON Lines, one after
// another, without an allocation a field where a text stands in the input as it is.
#ifndef VELMORA_TOOLS_LOAD_RECORDS_H
#define VELMORA_TOOLS_LOAD_RECORDS_H

#include <optional>
#include <span>
#include <string>
#include <unordered_map>
#include <variant>
#include <vector>

#include "load/input.h"

namespace tool {

struct RecordForm {
  bool isJson = false;
  char delimiter = ',';
  bool hasHeader = true;
  std::optional<std::string> nullText;  // none: an empty field without quotes is null
};

class CsvReader {
 public:
  CsvReader(std::string_view content, const RecordForm& form) : content_(content), form_(form) {}

  // Reads the next record; whether there was one. Texts that are not in the content are in the
  // room. Throws BadInput, after which it goes on behind the line of that.
  bool next(TextRoom& room);
  std::span<const Field> fields() const { return fields_; }
  std::string_view record() const { return content_.substr(begin_, next_ - begin_); }
  std::size_t offset() const { return begin_; }

 private:
  void takeField(TextRoom& room);
  void takeQuoted(TextRoom& room);
  std::size_t closingQuote(std::size_t from, bool& hasDoubled) const;
  bool skipDelimiter();
  void skipLine(std::size_t from);

  std::string_view content_;
  const RecordForm& form_;
  std::vector<Field> fields_;
  bool isFirst_ = true;
  bool isOneColumn_ = false;  // as the first record is
  std::size_t begin_ = 0;     // of the record
  std::size_t next_ = 0;
};

class JsonReader {
 public:
  explicit JsonReader(std::string_view content) : content_(content) {}

  // As for CSV. A name that is new gets a column behind the others.
  bool next(TextRoom& room);
  std::span<const Field> fields() const { return fields_; }
  std::string_view record() const { return content_.substr(begin_, next_ - begin_); }
  std::size_t offset() const { return begin_; }
  const std::vector<std::string>& names() const { return names_; }

 private:
  void takeObject(std::string_view line, TextRoom& room);

  std::string_view content_;
  std::vector<std::string> names_;
  std::unordered_map<std::string, std::size_t> columns_;
  std::vector<Field> fields_;
  std::size_t begin_ = 0;
  std::size_t next_ = 0;
};

// Either of them.
class Records {
 public:
  // Throws BadInput for a header that names nothing, or a column twice.
  Records(const Input& input, const RecordForm& form);
  Records(const Records&) = delete;
  Records& operator=(const Records&) = delete;

  bool next(TextRoom& room);
  // One for each name, but for JSON as many as there have been names.
  std::span<const Field> fields() const;
  std::string_view record() const;
  std::size_t offset() const;
  // Of the header; of JSON what has been read so far.
  const std::vector<std::string>& names() const;

 private:
  void readHeader(CsvReader& reader);

  RecordForm form_;
  std::vector<std::string> names_;
  std::variant<CsvReader, JsonReader> reader_;
};

}  // namespace tool

#endif
