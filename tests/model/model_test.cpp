// Ten thousand random command sequences, each answered alike by the engine and by the model.
//
// VELMORA_MODEL_COUNT sets how many sequences each test runs, VELMORA_MODEL_LENGTH their steps and
// VELMORA_MODEL_SEED the first seed; with a count of 1 that is how a reported sequence is run
// again. Relies on driver.h.
#include <gtest/gtest.h>

#include <iostream>

#include "model/driver.h"

namespace model {
namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || !defined(__OPTIMIZE__)
constexpr std::uint64_t slowness = 10;
#else
constexpr std::uint64_t slowness = 1;
#endif

constexpr std::size_t reportedDifferences = 5;

void compareSequences(std::uint64_t usualCount, bool restarts) {
  Wishes wishes;
  wishes.length = wish("VELMORA_MODEL_LENGTH", wishes.length);
  wishes.restarts = restarts;
  const std::uint64_t count = wish("VELMORA_MODEL_COUNT", usualCount / slowness);
  const std::uint64_t first = wish("VELMORA_MODEL_SEED", 1);
  std::size_t differences = 0;
  std::size_t commands = 0;
  for (std::uint64_t seed = first; seed < first + count; ++seed) {
    const Sequence sequence = Generator(seed, wishes).make();
    commands += sequence.size();
    if (!firstDifference(sequence)) continue;
    ADD_FAILURE() << report(sequence, seed);
    if (++differences == reportedDifferences) break;
  }
  std::cout << count << " sequences, " << commands << " commands\n";
}

TEST(Model, AnswersEveryCommandAlike) { compareSequences(10000, false); }

TEST(Model, AnswersAlikeAfterRestarts) { compareSequences(1000, true); }

}  // namespace
}  // namespace model
