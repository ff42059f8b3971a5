// What the end of a log is that no right record begins: torn by a crash, or damaged.
//
// A crash leaves the last record cut anywhere, or with pages of zeros that never reached the disk.
// It leaves no record that is whole and wrong, none that is right behind a wrong one unless a page
// before it is lost, and nothing but a line feed behind a record's checksum. So that a flipped bit
// never passes for a crash, an end that is a record's but for one bit counts as damage as well.
#include <algorithm>

#include "../clock.h"
#include "../number.h"
#include "../record_io.h"
#include "checksum.h"
#include "record_form.h"

namespace velmora {
namespace {

constexpr std::int64_t pageSize = 4096;

class Tail {
 public:
  Tail(std::string& bytes, std::int64_t offset, std::uint64_t sequence)
      : bytes_(bytes), text_(bytes), offset_(offset), sequence_(sequence) {}

  std::optional<std::string> fault() {
    std::optional<std::string> found;
    for (std::size_t marker = text_.find(clockMarker); marker != std::string_view::npos;
         marker = text_.find(clockMarker, marker + 1)) {
      const std::size_t end = endOfRecord(marker);
      if (end == 0) continue;
      quotes_.read(text_.substr(quotesRead_, marker - quotesRead_));
      quotesRead_ = marker;
      if (!found) found = faultOfEnd(end);
      if (isRightLaterRecord(end) && !hasLostPage(end)) {
        return "a right record stands behind a wrong one";
      }
      if (end < text_.size() && text_[end] == '\n') lastEnd_ = end + 1;
    }
    if (!found && !hasLostPage(text_.size()) && isRecordButForOneBit()) {
      return "the end of the last record is wrong";
    }
    return found;
  }

 private:
  // Where the record's last byte but the line feed would be that has this marker as its last; 0 if
  // none ends so.
  std::size_t endOfRecord(std::size_t marker) {
    constexpr std::string_view digits("-0123456789");
    std::size_t end = text_.find_first_not_of(digits, marker + clockMarker.size());
    if (end != std::string_view::npos) end = text_.find_first_not_of(digits, end + 1);
    if (end == std::string_view::npos || text_.size() - end <= checksumDigits) return 0;
    end += 1 + checksumDigits;
    last_ = recordEndOf(text_.substr(0, end).substr(marker));
    if (last_) last_->crcStart += marker;
    return last_ ? end : 0;
  }

  // What is wrong when a record that is none ends there.
  std::optional<std::string> faultOfEnd(std::size_t end) {
    // Within a literal such an end is a text's, unless it bears the very number.
    const bool isOurs = last_->sequence == sequence_ || !quotes_.isOpen();
    if (end == text_.size() || !isOurs || hasLostPage(end)) return std::nullopt;
    const bool isRight = isChecksum(last_->checksum, crc32c(0, text_.substr(0, last_->crcStart)));
    if (text_[end] != '\n') {
      if (!isRight) return std::nullopt;
      return "other bytes than a line feed stand behind a record";
    }
    if (!isRight) return "the record's checksum is wrong";
    if (last_->sequence != sequence_) {
      return "the record's sequence number is " + std::to_string(last_->sequence) + " instead of " +
             std::to_string(sequence_);
    }
    return "the record has not the form of one";
  }

  // Whether a right record ends there that does not begin with the tail: it begins behind another
  // end, is one line, or is a transaction.
  bool isRightLaterRecord(std::size_t end) const {
    if (end == text_.size() || text_[end] != '\n' || last_->sequence <= sequence_) return false;
    const std::string_view behind = text_.substr(0, last_->crcStart).substr(lastEnd_);
    const std::size_t line = behind.rfind('\n') + 1;
    const std::size_t begin = behind.rfind("\nBEGIN\n") + 1;
    for (const std::size_t start : {std::size_t{0}, line, begin}) {
      const bool isLater = lastEnd_ + start > 0;
      if (isLater && isChecksum(last_->checksum, crc32c(0, behind.substr(start)))) return true;
    }
    return false;
  }

  // Whether there is a run of zeros before the end, from a page's or the tail's beginning on up to
  // a page's end, or to the file's.
  bool hasLostPage(std::size_t end) const {
    for (std::size_t start = 0; start < end;) {
      const auto page = (offset_ + static_cast<std::int64_t>(start)) / pageSize + 1;
      const auto next = static_cast<std::size_t>(page * pageSize - offset_);
      if (isAllZero(text_.substr(start, std::min(next, text_.size()) - start))) return true;
      start = next;
    }
    return false;
  }

  bool isRecordButForOneBit() {
    constexpr std::size_t longestEnd = 64;  // the marker, three numbers and the blanks
    const std::size_t first = bytes_.size() - std::min(bytes_.size(), longestEnd);
    const std::uint32_t crc = crc32c(0, text_.substr(0, first));
    for (std::size_t i = first; i < bytes_.size(); ++i) {
      for (unsigned bit = 0; bit < 8; ++bit) {
        const char byte = bytes_[i];
        bytes_[i] = static_cast<char>(static_cast<unsigned char>(byte) ^ 1U << bit);
        const std::string_view ending = text_.substr(first);
        const auto end = recordEndOf(ending.substr(0, ending.size() - 1));
        const bool isRecord =
            ending.back() == '\n' && end && end->sequence == sequence_ &&
            isChecksum(end->checksum, crc32c(crc, ending.substr(0, end->crcStart)));
        bytes_[i] = byte;
        if (isRecord) return true;
      }
    }
    return false;
  }

  std::string& bytes_;
  std::string_view text_;
  std::int64_t offset_;
  std::uint64_t sequence_;
  std::optional<RecordEnd> last_;
  std::size_t lastEnd_ = 0;  // behind the line feed of the last one found
  QuoteReader quotes_;
  std::size_t quotesRead_ = 0;
};

}  // namespace

std::optional<std::string> faultOfTail(std::string bytes, std::int64_t offset,
                                       std::uint64_t sequence) {
  return Tail(bytes, offset, sequence).fault();
}

}  // namespace velmora
