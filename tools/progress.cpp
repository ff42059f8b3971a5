// See progress.h.
#include "progress.h"

#include <unistd.h>

#include <cstdio>

namespace tool {

void Progress::tell(std::string_view what, std::uint64_t done, std::uint64_t total) {
  static const bool isWatched = isatty(STDERR_FILENO) != 0;
  if (!isWatched) return;
  const Clock::time_point now = Clock::now();
  if (what != what_) {
    what_ = what;
    begin_ = now;
  }
  using namespace std::chrono_literals;
  if (now - begin_ < 1s || now - shown_ < 200ms || done == 0 || total == 0) return;
  shown_ = now;
  isShown_ = true;
  const double elapsed = std::chrono::duration<double>(now - begin_).count();
  const double share = static_cast<double>(done) / static_cast<double>(total);
  std::fprintf(stderr, "\r%s: %.0f %%, %.0f s left\x1b[K", what_.c_str(), share * 100,
               elapsed / share - elapsed);
}

void Progress::clear() {
  if (isShown_) std::fputs("\r\x1b[K", stderr);
  isShown_ = false;
}

}  // namespace tool
