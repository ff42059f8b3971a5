// The memory of a table's rows where the system refuses more of it.
#include "rows.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstddef>
#include <fstream>
#include <new>

namespace velmora {
namespace {

// Lets the process map so many bytes more than it has.
class MemoryLimit {
 public:
  explicit MemoryLimit(std::size_t bytes) {
    std::size_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    getrlimit(RLIMIT_AS, &before_);
    rlimit limit = before_;
    limit.rlim_cur = pages * static_cast<std::size_t>(sysconf(_SC_PAGESIZE)) + bytes;
    setrlimit(RLIMIT_AS, &limit);
  }
  ~MemoryLimit() { setrlimit(RLIMIT_AS, &before_); }
  MemoryLimit(const MemoryLimit&) = delete;
  MemoryLimit& operator=(const MemoryLimit&) = delete;

 private:
  rlimit before_ = {};
};

void appendUntil(Rows& rows, std::size_t size) {
  while (rows.size() < size) rows.append(1);
}

TEST(Rows, stayAsTheyWereWhereTheSystemHasNoMemoryForMore) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "the sanitizer maps memory of its own";
#endif
  constexpr std::size_t chunk = Rows::chunkRows;
  Rows rows;
  // Two chunks take 2 MiB.
  const std::size_t wide = rows.addArray(500);
  appendUntil(rows, 2 * chunk + 1);
  rows.at<std::uint8_t>(2 * chunk, wide) = 7;
  {
    const MemoryLimit limit(1024 * 1024);
    // What is asked for in advance is not there either, which is nobody's failure.
    appendUntil(rows, 4 * chunk);
    EXPECT_THROW(rows.append(1), std::bad_alloc);
    EXPECT_EQ(rows.size(), 4 * chunk);
  }
  rows.append(1);
  EXPECT_EQ(rows.size(), 4 * chunk + 1);
  EXPECT_TRUE(rows.isLive(4 * chunk));
  EXPECT_EQ(rows.at<std::uint8_t>(2 * chunk, wide), 7);
}

}  // namespace
}  // namespace velmora
