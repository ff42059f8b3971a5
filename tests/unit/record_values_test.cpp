// Bound values in the log: their bytes, that they are read back as the very values, and what is
// refused.
#include "storage/record_values.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <vector>

namespace velmora {
namespace {

std::string written(const std::vector<Value>& values) {
  std::string out = "?";
  appendValues(out, values);
  return out;
}

TEST(RecordValues, haveTheirForm) {
  EXPECT_EQ(written({}), "?");
  EXPECT_EQ(written({Value(), true, false}), "? n t f");
  EXPECT_EQ(written({std::int64_t{0}, std::int64_t{-5}}), "? 0 -5");
  EXPECT_EQ(written({std::numeric_limits<std::int64_t>::min()}), "? -9223372036854775808");
  EXPECT_EQ(written({1.0, -0.0}), "? x3ff0000000000000 x8000000000000000");
  EXPECT_EQ(written({std::string(), std::string("'it''s' \"\n")}), "? '' '''it''''s'' \"\n'");
}

TEST(RecordValues, endWhereNoBlankFollows) {
  std::string_view text = " 1 'a'' ?': INSERT";
  const auto values = takeValues(text);
  ASSERT_TRUE(values);
  EXPECT_EQ(*values, (std::vector<Value>{std::int64_t{1}, std::string("a' ?")}));
  EXPECT_EQ(text, ": INSERT");
}

TEST(RecordValues, areRefusedInAnyOtherForm) {
  for (std::string_view text :
       {" ", "  1", " N", " +1", " 9223372036854775808", " 'a", " 'a''", " x3ff000000000000",
        " x3ff000000000000g", " x-ff0000000000000", " x7ff0000000000000", " x7ff8000000000000"}) {
    const std::string shown(text);
    EXPECT_FALSE(takeValues(text)) << shown;
  }
}

TEST(RecordValues, areReadAsTheVeryValues) {
  std::mt19937_64 random(20240607);
  const auto value = [&]() -> Value {
    const std::uint64_t bits = random();
    double real = 0;
    std::memcpy(&real, &bits, sizeof real);
    switch (random() % 5) {
      case 0:
        return std::isfinite(real) ? Value(real) : Value();
      case 1:
        return static_cast<std::int64_t>(bits >> random() % 64);
      case 2:
        return bits % 2 == 0;
      default: {
        std::string text;
        for (std::size_t i = bits % 20; i > 0; --i) text += "' ?:\n\"a1"[random() % 8];
        return text;
      }
    }
  };
  for (int i = 0; i < 20000; ++i) {
    std::vector<Value> values;
    for (std::size_t count = random() % 6; count > 0; --count) values.push_back(value());
    const std::string text = written(values) + ": rest";
    std::string_view rest = std::string_view(text).substr(1);
    ASSERT_EQ(takeValues(rest), values) << text;
    ASSERT_EQ(rest, ": rest") << text;
  }
}

}  // namespace
}  // namespace velmora
