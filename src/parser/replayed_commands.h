// The log's commands, cut into tokens some thousands at a time, so that one thread can read them
// while another runs those before.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "../lexer.h"
#include "../storage/log.h"

namespace velmora {

struct ReplayedCommand {
  std::span<const Token> tokens;           // of what stands in front of its clock marker
  std::optional<std::int64_t> second;      // at which it first ran, if it bears that
  std::optional<std::int64_t> timedStart;  // at which its timed values start, if that is told
};

class ReplayedCommands {
 public:
  // Reads the next commands of the log in the place of those held, whose memory is used again.
  // Those whose clock marker cannot be read are left out: they failed when they were given. Throws
  // as LogReader::next does.
  void read(LogReader& reader);
  // Whether the log may have more of them.
  bool goesOn() const noexcept { return texts_.size() >= textsSize; }
  // Calls run(const ReplayedCommand&) for each in order.
  template <typename Run>
  void forEach(const Run& run) const {
    std::size_t start = 0;
    for (const Record& record : records_) {
      run(ReplayedCommand{std::span(tokens_).subspan(start, record.tokensEnd - start),
                          record.second, record.timedStart});
      start = record.tokensEnd;
    }
  }

 private:
  // Enough that starting a thread for them does not count, and little beside what they become.
  static constexpr std::size_t textsSize = 512 * 1024;

  struct Record {
    std::size_t textEnd;
    std::size_t tokensEnd;
    std::optional<std::int64_t> second;
    std::optional<std::int64_t> timedStart;
  };
  // Reads the record's text; whether it can be run.
  bool read(std::string_view text, Record& record);

  // Each lies behind the one before: another processor's memory is quick to read in its order.
  std::vector<char> texts_;
  std::vector<Token> tokens_;
  std::vector<Record> records_;
};

}  // namespace velmora
