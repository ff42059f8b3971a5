// The form of the log's records, for who reads them: where a line may end one, and how its commands
// are told apart. What the bytes mean is told in record_log.h.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "record_log.h"

namespace velmora {

// What stands at the end of a record's last line.
struct RecordEnd {
  std::size_t crcStart;  // in the line: where the blank in front of the checksum is
  std::uint64_t sequence;
  std::string_view checksum;
};
// What the line, which stands without its line feed, ends in if it ends as a record does.
std::optional<RecordEnd> recordEndOf(std::string_view line);

// Follows the quotes of a text; a doubled quote closes a literal and opens it again.
class QuoteReader {
 public:
  void read(std::string_view text) {
    for (std::size_t i = 0; i < text.size(); ++i) {
      if (quote_ != '\0') {
        i = text.find(quote_, i);
        if (i == std::string_view::npos) return;
        quote_ = '\0';
      } else if (text[i] == '\'' || text[i] == '"') {
        quote_ = text[i];
      }
    }
  }
  bool isOpen() const noexcept { return quote_ != '\0'; }

 private:
  char quote_ = '\0';
};

// The commands of a record, which stands without its number and checksum; nothing if it has not the
// form of one.
std::optional<std::vector<LoggedCommand>> commandsOf(std::string_view record);

// What is wrong with the bytes at a log's end, from this offset of the file on, that begin with no
// right record of the sequence number; nothing if a crash has left them so. See log_tail.cpp.
std::optional<std::string> faultOfTail(std::string bytes, std::int64_t offset,
                                       std::uint64_t sequence);

}  // namespace velmora
