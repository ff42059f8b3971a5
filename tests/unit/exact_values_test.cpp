// The further file of a table: its bytes, and what is no such file.
#include "storage/exact_values.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <stdexcept>
#include <string>

#include "sealed_fixture.h"

namespace velmora {
namespace {

class ExactValuesTest : public SealedTest {
 protected:
  Table tableOf(const std::vector<Column>& columns) const { return {"t", columns}; }
  // What is written of the table; empty when nothing is.
  std::string written(const Table& table) const {
    CheckpointJournal journal(directory_);
    return writeExactValues(table, directory_, journal) ? bytesOf("t.exact.checkpoint") : "";
  }
  std::string messageFor(const std::string& bytes) const {
    write("t.exact", bytes);
    Table table = tableOf({{"n", "int"}, {"s", "string", 2}});
    addRow(table, {std::int64_t{1}, "x"});
    try {
      readExactValues(table, directory_);
    } catch (const std::runtime_error& error) {
      return error.what();
    }
    return "";
  }
};

std::string bytes(std::initializer_list<int> values) {
  std::string made;
  for (const int value : values) made += static_cast<char>(value);
  return made;
}

TEST_F(ExactValuesTest, whatOtherFilesHoldIsNotWritten) {
  Table table = tableOf({{"n", "int"}, {"f", "float"}, {"b", "bool"}, {"s", "string"}});
  addRow(table, {std::int64_t{0}, Value(), false, Value()});
  addRow(table, {std::int64_t{1}, 0.1, true, std::string(60, 'x')});
  EXPECT_EQ(written(table), "");
  EXPECT_FALSE(exists("t.exact.checkpoint"));
}

TEST_F(ExactValuesTest, entriesHaveTheirForm) {
  Table table = tableOf({{"n", "int"}, {"s", "string", 2}});
  addRow(table, {std::int64_t{1}, "x"});
  addRow(table, {Value(), std::string("a\0", 2)});
  addRow(table, {std::int64_t{2}});
  table.set(2, 1, timed({"red", ""}), 0);
  const std::string expected =
      "velmexct" + bytes({3, 0, 0, 0, 0, 0, 0, 0}) +  //
      bytes({1, 0, 0, 0, 0, 0, 0, 0, 'n'}) +          //
      bytes({1, 0, 0, 0, 1, 0, 0, 0, 't', 2, 0, 0, 0, 'a', 0}) +
      bytes({2, 0, 0, 0, 1, 0, 0, 0, 's', 1}) +
      bytes({0, 0xf1, 0x53, 0x65, 0, 0, 0, 0, 20, 0, 0, 0, 0, 0, 0, 0, 2, 0, 0, 0}) +
      bytes({10, 0, 0, 0, 0, 0, 0, 0, 3, 0, 0, 0, 'r', 'e', 'd'}) +
      bytes({10, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0});
  EXPECT_EQ(written(table), expected);
}

TEST_F(ExactValuesTest, whatIsNoSuchFileIsCorrupt) {
  const std::string corrupt = "Corrupt file: t.exact";
  const std::string one = "velmexct" + bytes({1, 0, 0, 0, 0, 0, 0, 0});
  const auto entry = [](int row, int column, char kind) {
    return bytes({row, 0, 0, 0, column, 0, 0, 0, kind});
  };
  EXPECT_EQ(messageFor(""), corrupt);
  EXPECT_EQ(messageFor("velmexcs" + one.substr(8) + entry(0, 0, 'n')), corrupt);
  EXPECT_EQ(messageFor(one + entry(0, 0, 'n')), "");
  EXPECT_EQ(messageFor(one + entry(0, 0, 'n') + "x"), corrupt);
  EXPECT_EQ(messageFor(one), corrupt);
  EXPECT_EQ(messageFor(one + entry(1, 0, 'n')), corrupt);
  EXPECT_EQ(messageFor(one + entry(0, 2, 'n')), corrupt);
  EXPECT_EQ(messageFor(one + bytes({-1, -1, -1, -1, 0, 0, 0, 0, 'n'})), corrupt);
  EXPECT_EQ(messageFor(one + entry(0, 0, 'x')), corrupt);
  EXPECT_EQ(messageFor(one + entry(0, 0, 't') + bytes({1, 0, 0, 0, 'x'})), corrupt);
  EXPECT_EQ(messageFor(one + entry(0, 1, 't') + bytes({1, 0, 0, 0, 'x'})), "");
  EXPECT_EQ(messageFor(one + entry(0, 1, 't') + bytes({2, 0, 0, 0, 'x'})), corrupt);
  EXPECT_EQ(messageFor(one + entry(0, 1, 't') + bytes({0, 0, 0, -1, 'x'})), corrupt);
  const std::string noStates(1 + 8 + 8 + 4, '\0');
  EXPECT_EQ(messageFor(one + entry(0, 1, 's') + noStates), corrupt);
}

TEST_F(ExactValuesTest, aTableNeedNotHaveOne) {
  Table table = tableOf({{"n", "int"}});
  addRow(table, {std::int64_t{5}});
  readExactValues(table, directory_);
  EXPECT_EQ(ownedValue(table.values(0).value(0, 0)), Value(std::int64_t{5}));
}

}  // namespace
}  // namespace velmora
