// The further file of a table: its bytes, and what is no such file.
#include "storage/exact_values.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <random>
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
    return writeExactValues(table, std::nullopt, directory_, journal)
               ? bytesOf("t.exact.checkpoint")
               : "";
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

class AddedEntriesTest : public ExactValuesTest {
 protected:
  // So many rows, each with a null, in the files.
  Table& addNulls(int count) {
    Table& table = addTable(tables_, "t", {{"n", "int"}, {"s", "string", 2}});
    for (int i = 0; i < count; ++i) addRow(table, {Value(), "x"});
    save(tables_);
    return table;
  }
  // Gives each row from there on another value, and saves; what the file is then.
  std::string changeRows(std::size_t first, std::size_t count) {
    for (std::size_t row = first; row < first + count; ++row) {
      tables_.at("t").setValue(row, 1, std::string("y"));
    }
    save(tables_);
    EXPECT_TRUE(contentOf(load().tables) == contentOf(tables_));
    return magicNow();
  }
  std::string magicNow() const { return bytesOf("t.exact").substr(0, 8); }

  Tables tables_;
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

TEST_F(ExactValuesTest, whatIsNoEntryThatWasAddedIsCorrupt) {
  const std::string corrupt = "Corrupt file: t.exact";
  const auto entry = [](int row, char kind) { return bytes({row, 0, 0, 0, 0, 0, 0, 0, kind}); };
  const auto grown = [](int start) { return "velmexc2" + bytes({start, 0, 0, 0, 0, 0, 0, 0}); };
  EXPECT_EQ(messageFor(grown(25) + entry(0, 'n')), "");
  EXPECT_EQ(messageFor(grown(25) + entry(0, 'n') + entry(0, '-')), "");
  EXPECT_EQ(messageFor(grown(16) + entry(0, '-')), "");
  EXPECT_EQ(messageFor(grown(15) + entry(0, '-')), corrupt);
  EXPECT_EQ(messageFor(grown(20) + entry(0, 'n') + entry(0, '-')), corrupt);
  EXPECT_EQ(messageFor(grown(26) + entry(0, 'n')), corrupt);
  EXPECT_EQ(messageFor(grown(25) + entry(0, 'n') + entry(1, '-')), corrupt);
  EXPECT_EQ(messageFor(grown(25) + entry(0, 'n') + entry(0, 'x')), corrupt);
  EXPECT_EQ(messageFor(grown(25) + entry(0, 'n') + entry(0, '-').substr(0, 8)), corrupt);
  EXPECT_EQ(messageFor(grown(25).replace(7, 1, "3") + entry(0, 'n')), corrupt);
  EXPECT_EQ(messageFor("velmexct" + bytes({1, 0, 0, 0, 0, 0, 0, 0}) + entry(0, '-')), corrupt);
}

TEST_F(ExactValuesTest, whatStandsBeforeAFaultIsRead) {
  write("t.exact", "velmexc2" + bytes({25, 0, 0, 0, 0, 0, 0, 0}) +
                       bytes({0, 0, 0, 0, 0, 0, 0, 0, 'n'}) +  //
                       bytes({1, 0, 0, 0, 0, 0, 0, 0, 'n'}) + "x");
  Table table = tableOf({{"n", "int"}});
  addRow(table, {std::int64_t{5}});
  addRow(table, {std::int64_t{6}});
  EXPECT_THROW(readExactValues(table, directory_), std::runtime_error);
  EXPECT_EQ(ownedValue(table.values(0).value(0, 0)), Value());
  EXPECT_EQ(ownedValue(table.values(0).value(1, 0)), Value());
}

TEST_F(AddedEntriesTest, standBehindTheOthersAndTakeTheirRowsEarlierOnesBack) {
  Table& table = addTable(tables_, "t", {{"n", "int"}, {"s", "string", 2}});
  addRow(table, {Value(), std::string("a\0", 2)});
  addRow(table, {std::int64_t{1}, "#/#?"});
  addRow(table, {std::int64_t{2}, "x"});
  save(tables_);
  const std::string whole = bytesOf("t.exact");
  EXPECT_EQ(whole, "velmexct" + bytes({3, 0, 0, 0, 0, 0, 0, 0}) +
                       bytes({0, 0, 0, 0, 0, 0, 0, 0, 'n'}) +
                       bytes({0, 0, 0, 0, 1, 0, 0, 0, 't', 2, 0, 0, 0, 'a', 0}) +
                       bytes({1, 0, 0, 0, 1, 0, 0, 0, 't', 4, 0, 0, 0, '#', '/', '#', '?'}));
  const auto identity = identityOf(directory_, "t.exact");

  table.setValue(0, 0, std::int64_t{7});
  table.setValue(1, 1, std::string("plain"));
  addRow(table, {Value(), "new"});
  save(tables_);
  const std::string added = "velmexc2" + bytes({57, 0, 0, 0, 0, 0, 0, 0}) + whole.substr(16) +
                            bytes({0, 0, 0, 0, 0, 0, 0, 0, '-'}) +
                            bytes({0, 0, 0, 0, 1, 0, 0, 0, 't', 2, 0, 0, 0, 'a', 0}) +
                            bytes({1, 0, 0, 0, 0, 0, 0, 0, '-'}) +
                            bytes({3, 0, 0, 0, 0, 0, 0, 0, 'n'});
  EXPECT_EQ(bytesOf("t.exact"), added);
  EXPECT_EQ(contentOf(load().tables), contentOf(tables_));

  table.set(1, 1, timed({"r"}), 0);
  table.setDeleted(3, true);
  save(tables_);
  EXPECT_EQ(bytesOf("t.exact"),
            added + bytes({1, 0, 0, 0, 0, 0, 0, 0, '-'}) + bytes({1, 0, 0, 0, 1, 0, 0, 0, 's', 1}) +
                bytes({0, 0xf1, 0x53, 0x65, 0, 0, 0, 0}) +
                bytes({10, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0}) +
                bytes({10, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 'r'}) +
                bytes({3, 0, 0, 0, 0, 0, 0, 0, '-'}) + bytes({3, 0, 0, 0, 0, 0, 0, 0, 'n'}));
  EXPECT_EQ(contentOf(load().tables), contentOf(tables_));
  EXPECT_EQ(identityOf(directory_, "t.exact"), identity);
}

// 18 bytes for each row that changes: one that takes its entries back, and a null.
TEST_F(AddedEntriesTest, areHalfAsManyBytesAsThereWereAtTheMost) {
  addNulls(2000);
  EXPECT_EQ(bytesOf("t.exact").size(), 16U + 9 * 2000);
  EXPECT_EQ(changeRows(0, 1), "velmexc2");
  EXPECT_EQ(changeRows(0, 499), "velmexc2");
  EXPECT_EQ(changeRows(7, 1), "velmexct");
  EXPECT_EQ(bytesOf("t.exact").size(), 16U + 9 * 2000);
  EXPECT_EQ(changeRows(100, 501), "velmexct");
}

TEST_F(AddedEntriesTest, areAPageAtTheMostInASmallTable) {
  addNulls(50);
  for (int i = 0; i < 4; ++i) EXPECT_EQ(changeRows(0, 50), "velmexc2");
  EXPECT_EQ(changeRows(0, 27), "velmexc2");
  EXPECT_EQ(changeRows(0, 1), "velmexct");
}

TEST_F(AddedEntriesTest, areAByteForEachRowAtTheMostWhereFewHaveAny) {
  Table& table = addTable(tables_, "t", {{"n", "int"}, {"s", "string", 2}});
  for (int i = 0; i < 9000; ++i) addRow(table, {i == 0 ? Value() : Value(std::int64_t{i}), "x"});
  save(tables_);
  EXPECT_EQ(changeRows(1, 1000), "velmexc2");
  EXPECT_EQ(changeRows(1, 1), "velmexct");
  EXPECT_EQ(bytesOf("t.exact").size(), 16U + 9);
}

TEST_F(AddedEntriesTest, goOnBehindALoad) {
  addNulls(3);
  EXPECT_EQ(changeRows(0, 1), "velmexc2");
  tables_ = tablesOf(load());
  EXPECT_EQ(changeRows(1, 1), "velmexc2");
  EXPECT_EQ(bytesOf("t.exact").size(), 16U + 9 * 3 + 18 * 2);
}

TEST_F(AddedEntriesTest, areNoneWhereTheFileCannotBeChangedInPlace) {
  addNulls(3);
  const std::string before = bytesOf("t.exact");
  std::filesystem::create_hard_link(path_ / "t.exact", path_ / "snapshot");
  EXPECT_EQ(changeRows(0, 1), "velmexct");
  EXPECT_EQ(bytesOf("snapshot"), before);
  write("t.exact", before + "x");
  EXPECT_EQ(changeRows(0, 1), "velmexct");
  write("t.exact", std::string(before).replace(0, 1, "x"));
  EXPECT_EQ(changeRows(0, 1), "velmexct");
  std::filesystem::remove(path_ / "t.exact");
  EXPECT_EQ(changeRows(0, 1), "velmexct");
}

TEST_F(AddedEntriesTest, areNoneWhereARowIsGone) {
  Table& table = addNulls(3);
  table.removeLastRow();
  EXPECT_EQ(changeRows(0, 1), "velmexct");
  EXPECT_EQ(bytesOf("t.exact").size(), 16U + 9 * 2);
}

TEST_F(AddedEntriesTest, comeBackWhateverChanges) {
  std::mt19937 random(20261122);
  const auto upTo = [&](int most) { return std::uniform_int_distribution<int>(0, most)(random); };
  const auto changeOne = [&](Table& table) {
    const auto row = static_cast<std::size_t>(upTo(static_cast<int>(table.rowCount()) - 1));
    const int what = upTo(9);
    if (what < 2) table.setValue(row, 0, Value());
    if (what == 2) table.setValue(row, 0, std::int64_t{upTo(9)});
    if (what == 3) table.setValue(row, 1, std::string(static_cast<std::size_t>(upTo(90)), 's'));
    if (what == 4) table.set(row, 1, timed({"a", std::string(upTo(1) == 0 ? 70 : 7, 'b')}), 0);
    if (what == 5) table.setValue(row, 2, upTo(1) == 0 ? Value() : Value(true));
    if (what == 6) table.setDeleted(row, upTo(1) == 0);
    if (what == 7) table.setValue(row, 1, std::string("#/#?"));
    if (what == 8) table.removeLastRow();
    if (what > 6) addRow(table, {upTo(1) == 0 ? Value() : Value(std::int64_t{1})});
  };
  Table& table = addTable(tables_, "t", {{"n", "int"}, {"s", "string", 2}, {"b", "bool"}});
  for (int i = 0; i < 100; ++i) addRow(table, {std::int64_t{i}, "x", true});
  std::map<std::string, int> magics;
  for (int round = 0; round < 200 && !HasFailure(); ++round) {
    for (int i = upTo(12); i >= 0; --i) changeOne(tables_.at("t"));
    save(tables_);
    SealedState loaded = load();
    ASSERT_EQ(contentOf(loaded.tables), contentOf(tables_)) << round;
    if (exists("t.exact")) ++magics[magicNow()];
    if (round % 5 == 0) tables_ = tablesOf(std::move(loaded));
  }
  EXPECT_GT(magics["velmexct"], 5);
  EXPECT_GT(magics["velmexc2"], 50);
}

TEST_F(ExactValuesTest, aTableNeedNotHaveOne) {
  Table table = tableOf({{"n", "int"}});
  addRow(table, {std::int64_t{5}});
  readExactValues(table, directory_);
  EXPECT_EQ(ownedValue(table.values(0).value(0, 0)), Value(std::int64_t{5}));
}

}  // namespace
}  // namespace velmora
