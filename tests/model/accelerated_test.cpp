// Large tables: whatever the engine keeps beside its rows to find them faster (column mirrors,
// indexes, hashed joins) must answer as a plain walk over the rows does.
//
// The sequences are generator.h's, with thousands of rows (timed cells, deleted rows, numbers not
// written canonically, missing values) and reads that come again between changes; the plain walk is
// the model's. VELMORA_LARGE_COUNT and VELMORA_MODEL_SEED ask for more or for one of them.
#include <gtest/gtest.h>

#include <iostream>

#include "model/driver.h"

namespace model {
namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || !defined(__OPTIMIZE__)
constexpr std::uint64_t slowness = 8;
#else
constexpr std::uint64_t slowness = 1;
#endif

void compareLargeTables(std::uint64_t usualCount, const Wishes& wishes) {
  const std::uint64_t count = wish("VELMORA_LARGE_COUNT", usualCount / slowness);
  const std::uint64_t first = wish("VELMORA_MODEL_SEED", 1);
  for (std::uint64_t seed = first; seed < first + count; ++seed) {
    const Sequence sequence = Generator(seed, wishes).make();
    ASSERT_FALSE(firstDifference(sequence)) << report(sequence, seed);
  }
  std::cout << count << " sequences of " << wishes.rows << " rows\n";
}

TEST(LargeTables, AnswerAsAPlainWalkDoes) { compareLargeTables(8, {150, false, 3000}); }

TEST(MiddlingTables, AnswerAsAPlainWalkDoes) { compareLargeTables(80, {200, false, 300}); }

}  // namespace
}  // namespace model
