// The storage room's files on their own: the bytes that are written, what they read back, and what
// is made of files that are missing or cut. The log has tests of its own.
//
// What a host can see through commands is pinned by the golden scripts under golden/storage; here
// stand the values and calls that no command reaches.

#include "storage/storage.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <map>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "storage/block_io.h"
#include "storage/timed_file.h"
#include "storage_fixture.h"

namespace velmora {
namespace {

namespace fs = std::filesystem;

class StorageFilesTest : public StorageTest {
 protected:
  // Writes tables as a checkpoint does.
  void save(Tables& tables) { Storage::saveCheckpoint(tables, 0, directory_, log_); }
  void save(Table table) {
    Tables tables;
    tables.emplace("t", std::move(table));
    save(tables);
  }
  Table load() { return std::move(*Storage::loadTable("t.bin", directory_)); }

  // What a load makes of one row that was written with these texts.
  std::vector<std::string> roundTrip(const std::vector<Column>& columns,
                                     const std::vector<std::string>& values) {
    Table table("t", columns);
    addRow(table, values);
    save(std::move(table));
    return valuesOf(load(), 0);
  }

  static void addRow(Table& table, const std::vector<std::string>& values) {
    const std::size_t row = table.appendRow();
    for (std::size_t i = 0; i < values.size(); ++i) table.set(row, i, Cell(Text(values[i])), 0);
  }
  static void setTimed(Table& table, std::size_t row, std::size_t column, const TempRule& rule) {
    Cell cell;
    cell.tempRule = std::make_unique<TempRule>(rule);
    table.set(row, column, cell, 0);
  }
  static std::vector<std::string> valuesOf(const Table& table, std::size_t row) {
    std::vector<std::string> values;
    TextRoom room;
    for (std::size_t i = 0; i < table.columns.size(); ++i) {
      values.emplace_back(table.text(row, i, 0, room));
    }
    return values;
  }
  // The timed value in a slot of a table with this largest states limit.
  std::unique_ptr<TempRule> ruleIn(std::int32_t slot, std::int32_t maxStates) const {
    return TimedReader(directory_, "t.tmp", maxStates).claim(slot);
  }
  // Writes timed values of one table, each into a new slot.
  void writeRules(std::int32_t maxStates, const std::vector<TempRule>& rules) const {
    TimedWriter writer(directory_, "t.tmp", maxStates);
    for (std::size_t i = 0; i < rules.size(); ++i) {
      EXPECT_EQ(writer.put(-1, static_cast<std::int32_t>(i) + 11, 3, rules[i]),
                static_cast<int>(i));
    }
    EXPECT_TRUE(writer.finish());
    fs::rename(path_ / "t.tmp.checkpoint", path_ / "t.tmp");
  }

  Log log_{directory_};
};

std::string zeros(std::size_t count) { return std::string(count, '\0'); }

std::string padded(std::string text, std::size_t width) {
  text.resize(width, '\0');
  return text;
}

std::string int32Bytes(std::int32_t value) {
  std::string bytes;
  for (int i = 0; i < 4; ++i) {
    bytes += static_cast<char>(static_cast<std::uint32_t>(value) >> (8 * i));
  }
  return bytes;
}

TempRule rule(std::int64_t startTime, bool repeat, const std::vector<std::string>& values,
              std::int64_t duration) {
  TempRule made;
  made.startTime = startTime;
  made.repeat = repeat;
  for (const std::string& value : values) {
    made.states.push_back({Text(value), duration});
    made.cycleLength += duration;
  }
  return made;
}

WebhookTask task(std::int64_t fireTime, const std::string& value) {
  WebhookTask made;
  made.fireTime = fireTime;
  made.tableName = "t";
  made.rowIndex = 7;
  made.column = "status";
  made.value = value;
  made.repeat = true;
  made.totalDuration = 30;
  made.startTime = 1000;
  return made;
}

TEST_F(StorageFilesTest, typesHaveTheirWidths) {
  EXPECT_EQ(Storage::typeSizes, (std::map<std::string, int, std::less<>>{{"int", 4},
                                                                         {"ApexInt", 4},
                                                                         {"float", 4},
                                                                         {"bool", 1},
                                                                         {"string", 60},
                                                                         {"/long", 8},
                                                                         {"/double", 8}}));
}

TEST_F(StorageFilesTest, aColumnIsAsWideAsItsTypeOrItsDeclaredTextAndAFlagByte) {
  EXPECT_EQ(Storage::getColumnBinSize({"c", "int", 0, 60}), 4);
  EXPECT_EQ(Storage::getColumnBinSize({"c", "ApexInt", 1, 60}), 5);
  EXPECT_EQ(Storage::getColumnBinSize({"c", "float", 3, 60}), 5);
  EXPECT_EQ(Storage::getColumnBinSize({"c", "bool", 0, 60}), 1);
  EXPECT_EQ(Storage::getColumnBinSize({"c", "bool", 2, 60}), 2);
  EXPECT_EQ(Storage::getColumnBinSize({"c", "string", 0, 60}), 60);
  EXPECT_EQ(Storage::getColumnBinSize({"c", "string", 0, 10}), 10);
  EXPECT_EQ(Storage::getColumnBinSize({"c", "string", 1, 300}), 301);
  EXPECT_EQ(Storage::rowSize({{"a", "int", 3, 60}, {"b", "string", 3, 60}}), 66);
  EXPECT_EQ(Storage::headerSize(2), 135);
}

TEST_F(StorageFilesTest, aNewTableGetsItsHeaderAndADeletionFile) {
  write("users.del", "stale");
  write("users.row", "stale");
  const Table table("users", {{"id", "ApexInt", 0, 60}, {"name", "string", 12, 30}});
  Storage::saveTable(table, directory_);
  EXPECT_EQ(bytesOf("users.bin"), padded("users", 15) + padded("ApexInt", 15) +
                                      padded("string", 15) + padded("id", 15) + padded("name", 15) +
                                      padded("0", 15) + padded("12", 15) + padded("60", 15) +
                                      padded("30", 15));
  EXPECT_TRUE(exists("users.del"));
  EXPECT_EQ(bytesOf("users.del"), "");
  EXPECT_FALSE(exists("users.row"));
  EXPECT_FALSE(exists("users.bin.unfinished"));
}

TEST_F(StorageFilesTest, aFileThatHoldsColumnsIsNotOverwritten) {
  Storage::saveTable(Table("t", {{"id", "int", 0, 60}}), directory_);
  const std::string before = bytesOf("t.bin");
  try {
    Storage::saveTable(Table("t", {{"other", "string", 0, 60}}), directory_);
    FAIL() << "the file was overwritten";
  } catch (const std::runtime_error& error) {
    EXPECT_STREQ(error.what(), "Column size error");
  }
  EXPECT_EQ(bytesOf("t.bin"), before);
}

TEST_F(StorageFilesTest, aFileThatCannotBeCreatedIsNamed) {
  try {
    Storage::saveTable(Table("missing/t", {{"id", "int", 0, 60}}), directory_);
    FAIL() << "there is no such directory";
  } catch (const std::runtime_error& error) {
    EXPECT_STREQ(error.what(), "Failed to open file: missing/t.bin");
  }
}

TEST_F(StorageFilesTest, valuesReadBackInTheirOwnForm) {
  const std::vector<Column> columns = {
      {"i", "int", 0, 60}, {"f", "float", 0, 60}, {"b", "bool", 0, 60}, {"s", "string", 0, 60}};
  const std::string seventy(70, 'x');
  EXPECT_EQ(roundTrip(columns, {"-05", "1.5", "1", seventy}),
            (std::vector<std::string>{"-5", "1.500000", "true", std::string(60, 'x')}));
  EXPECT_EQ(bytesOf("t.bin").substr(255),
            int32Bytes(-5) + std::string("\0\0\xc0\x3f\1", 5) + std::string(60, 'x'));
}

// Four bytes a float: how its text was spelled is not kept, and its value is that of the six
// decimals from then on.
TEST_F(StorageFilesTest, floatsReadBackWithSixDecimals) {
  constexpr std::size_t count = 9000;  // more than a chunk of rows
  Table table("t", {{"f", "float", 0, 60}});
  std::vector<std::string> expected;
  std::mt19937 random(1);
  for (std::size_t i = 0; i < count; ++i) {
    char text[maxNumberText];
    const auto bits = static_cast<std::uint32_t>(random());
    const float number = i % 3 == 0   ? std::bit_cast<float>(bits)
                         : i % 3 == 1 ? static_cast<float>(bits) / 1e7F
                                      : static_cast<float>(static_cast<std::int32_t>(bits)) / 2e8F;
    const auto value = static_cast<double>(number);
    std::snprintf(text, sizeof text, "%.9g", value);
    addRow(table, {text});
    std::snprintf(text, sizeof text, "%f", value);
    expected.emplace_back(std::isnan(number) ? std::string(missingValue) : text);
    // Those so small that reading them fails are not written.
    if (value != 0 && std::fabs(value) < 2e-38) {
      table.set(i, 0, Cell(Text("-0")), 0);
      expected.back() = "-0.000000";
    }
  }
  save(std::move(table));
  const Table loaded = load();
  ASSERT_EQ(loaded.rowCount(), count);
  for (std::size_t i = 0; i < count; ++i) {
    ASSERT_EQ(valuesOf(loaded, i)[0], expected[i]) << i;
    if (expected[i] == missingValue) continue;
    const float value = loaded.values(0).chunk(Rows::chunkOf(i)).reals()[Rows::placeOf(i)];
    ASSERT_EQ(std::bit_cast<std::uint32_t>(value),
              std::bit_cast<std::uint32_t>(parseFloat(expected[i])))
        << expected[i];
  }
}

TEST_F(StorageFilesTest, floatsThatAreNotFiniteReadBackAsSuch) {
  const std::vector<Column> columns = {{"f", "float", 0, 60}, {"g", "float", 0, 60}};
  EXPECT_EQ(roundTrip(columns, {"inf", "-inf"}), (std::vector<std::string>{"inf", "-inf"}));
}

TEST_F(StorageFilesTest, capitalsInATruthValueCountOnlyWithoutTimedValues) {
  EXPECT_EQ(roundTrip({{"plain", "bool", 0, 60}, {"timed", "bool", 3, 60}}, {"TRUE", "TRUE"}),
            (std::vector<std::string>{"true", "false"}));
}

TEST_F(StorageFilesTest, aMissingFloatIsAQuietNaNAndReadsBackAsMissing) {
  EXPECT_EQ(roundTrip({{"f", "float", 0, 60}}, {std::string(missingValue)}),
            (std::vector<std::string>{std::string(missingValue)}));
  EXPECT_EQ(bytesOf("t.bin").substr(75), std::string("\0\0\xc0\x7f", 4));
}

TEST_F(StorageFilesTest, aValueThatDoesNotConvertThrowsAndLeavesTheFilesAlone) {
  const std::vector<Column> columns = {
      {"s", "string", 0, 60}, {"i", "int", 0, 60}, {"f", "float", 0, 60}};
  Storage::saveTable(Table("t", columns), directory_);
  const std::string before = bytesOf("t.bin");
  const auto messageOf = [&](const std::vector<std::string>& values) -> std::string {
    Table table("t", columns);
    addRow(table, values);
    try {
      save(std::move(table));
    } catch (const std::invalid_argument& error) {
      return std::string("invalid_argument ") + error.what();
    } catch (const std::out_of_range& error) {
      return std::string("out_of_range ") + error.what();
    }
    return "nothing";
  };
  EXPECT_EQ(messageOf({"a", "x", "1"}), "invalid_argument stoi");
  EXPECT_EQ(messageOf({"a", "2147483648", "1"}), "out_of_range stoi");
  EXPECT_EQ(messageOf({"a", "1", "x"}), "invalid_argument stof");
  EXPECT_EQ(messageOf({"a", "1", "1e99"}), "out_of_range stof");
  EXPECT_EQ(bytesOf("t.bin"), before);
}

TEST_F(StorageFilesTest, aTimedCellThatIsWrittenAgainKeepsItsSlot) {
  Table table("t", {{"n", "int", 2, 60}, {"s", "string", 1, 60}});
  for (std::size_t i = 0; i < 2; ++i) {
    addRow(table, {"1", "text"});
    setTimed(table, i, 0, rule(1000 + static_cast<std::int64_t>(i), false, {"1", "2"}, 5));
  }
  Tables tables;
  tables.emplace("t", std::move(table));
  save(tables);
  EXPECT_EQ(bytesOf("t.tmp").size(), 2 * 165U);
  setTimed(tables.at("t"), 0, 0, rule(5000, false, {"1", "2"}, 5));
  save(tables);
  EXPECT_EQ(bytesOf("t.tmp").size(), 2 * 165U);
  EXPECT_EQ(ruleIn(0, 2)->startTime, 5000);
  EXPECT_EQ(ruleIn(1, 2)->startTime, 1001);
  EXPECT_EQ(bytesOf("t.bin").substr(135, 5), "\1" + int32Bytes(0));
  // The label is the row's offset divided by the column's width.
  EXPECT_EQ(bytesOf("t.tmp").substr(0, 8), int32Bytes(135 / 5) + int32Bytes(0));
  EXPECT_EQ(bytesOf("t.tmp").substr(165, 8), int32Bytes((135 + 66) / 5) + int32Bytes(0));
}

// What a damaged file of timed values could lead to: one cell's value read as another's.
TEST_F(StorageFilesTest, aSlotThatTwoCellsNameBelongsToNeither) {
  Table table("t", {{"id", "ApexInt", 2, 60}, {"n", "int", 2, 60}});
  for (std::size_t i = 0; i < 3; ++i) {
    addRow(table, {"1", "0"});
    setTimed(table, i, 1, rule(0, true, {"5", "6"}, 5));
  }
  setTimed(table, 2, 0, rule(0, true, {"7", "8"}, 5));
  save(std::move(table));
  const std::string good = bytesOf("t.bin");
  const std::size_t rowSize = 10;
  // Row 2's identity names the slot of row 0's number.
  std::string bad = good;
  ASSERT_EQ(bad.substr(135 + 2 * rowSize, 5), "\1" + int32Bytes(2));
  bad.replace(135 + 2 * rowSize + 1, 4, int32Bytes(0));
  write("t.bin", bad);
  const Table loaded = load();
  EXPECT_EQ(valuesOf(loaded, 0), (std::vector<std::string>{"1", "0"}));
  EXPECT_EQ(loaded.values(1).rule(0), nullptr);
  EXPECT_EQ(valuesOf(loaded, 1), (std::vector<std::string>{"1", "5"}));
  EXPECT_EQ(valuesOf(loaded, 2), (std::vector<std::string>{"0", "5"}));
  // An identity stays a timed one.
  EXPECT_NE(loaded.values(0).rule(2), nullptr);
}

TEST_F(StorageFilesTest, cellsDoNotComeToShareASlotAfterTheFileOfTimedValuesWasCut) {
  Table table("t", {{"n", "int", 2, 60}});
  for (std::size_t i = 0; i < 4; ++i) {
    addRow(table, {"1"});
    setTimed(table, i, 0, rule(static_cast<std::int64_t>(i), false, {"1", "2"}, 5));
  }
  Tables tables;
  tables.emplace("t", std::move(table));
  save(tables);
  fs::resize_file(path_ / "t.tmp", 165);
  tables.at("t").markAllDirty();
  save(tables);
  EXPECT_EQ(bytesOf("t.tmp").size(), 4 * 165U);
  const Table loaded = load();
  for (std::size_t i = 0; i < 4; ++i) {
    const TempRule* const timed = loaded.values(0).rule(i);
    ASSERT_NE(timed, nullptr) << i;
    EXPECT_EQ(timed->startTime, static_cast<std::int64_t>(i));
  }
}

TEST_F(StorageFilesTest, namesAreListedByExtensionAndRegularFilesOnly) {
  for (const char* name : {"b.bin", "a.bin", "a.rel", "a.del", "binary", "c.bin.old"}) {
    write(name, "x");
  }
  fs::create_directory(path_ / "folder.bin");
  EXPECT_EQ(Storage::getBinFiles(directory_), (std::vector<std::string>{"a.bin", "b.bin"}));
  EXPECT_EQ(Storage::getRelFiles(directory_), (std::vector<std::string>{"a.rel"}));
}

TEST_F(StorageFilesTest, timedValuesLieInSlotsOfTheTablesRecordSize) {
  const TempRule two = rule(1000, true, {"a", "b"}, 5);
  writeRules(3, {two, two, two});
  const std::string bytes = bytesOf("t.tmp");
  ASSERT_EQ(bytes.size(), 3 * 233U);
  const std::string state = int32Bytes(5) + int32Bytes(0);
  EXPECT_EQ(bytes.substr(466), int32Bytes(13) + int32Bytes(3) + "\1" + int32Bytes(1000) +
                                   int32Bytes(0) + int32Bytes(10) + int32Bytes(0) + int32Bytes(2) +
                                   state + padded("a", 60) + state + padded("b", 60) + zeros(68));
}

TEST_F(StorageFilesTest, rewritingASlotLeavesTheOthersAndTheFilesLength) {
  const TempRule first = rule(1000, true, {"a", "b"}, 5);
  writeRules(2, {first, first, first});
  TimedWriter writer(directory_, "t.tmp", 2);
  EXPECT_EQ(writer.put(1, 0, 0, rule(-7, false, {"c"}, 9)), 1);
  EXPECT_TRUE(writer.finish());
  fs::rename(path_ / "t.tmp.checkpoint", path_ / "t.tmp");
  EXPECT_EQ(bytesOf("t.tmp").size(), 3 * 165U);
  const auto read = ruleIn(1, 2);
  EXPECT_EQ(read->startTime, -7);
  EXPECT_EQ(read->cycleLength, 9);
  EXPECT_FALSE(read->repeat);
  ASSERT_EQ(read->states.size(), 1U);
  EXPECT_EQ(read->states[0].value.view(), "c");
  EXPECT_EQ(read->states[0].duration, 9);
  EXPECT_EQ(ruleIn(2, 2)->startTime, 1000);
}

TEST_F(StorageFilesTest, slotNumbersEndBeforeTheyWrap) {
  EXPECT_EQ(slotBehind(0), 0);
  EXPECT_EQ(slotBehind(2147483647), 2147483647);
  try {
    slotBehind(2147483648);
    ADD_FAILURE() << "no exception";
  } catch (const std::runtime_error& error) {
    EXPECT_STREQ(error.what(), "Too many timed values");
  }
}

TEST_F(StorageFilesTest, aStatesTextIsCutAtSixtyBytes) {
  writeRules(1, {rule(0, false, {std::string(61, 'y')}, 1)});
  EXPECT_EQ(ruleIn(0, 1)->states[0].value.view(), std::string(60, 'y'));
}

TEST_F(StorageFilesTest, timedValuesThatCannotBeReadAreNone) {
  EXPECT_EQ(ruleIn(0, 2), nullptr);
  writeRules(2, {rule(0, false, {"a", "b"}, 1)});
  EXPECT_NE(ruleIn(0, 2), nullptr);
  EXPECT_EQ(ruleIn(1, 2), nullptr);
  EXPECT_EQ(ruleIn(-1, 2), nullptr);
  EXPECT_EQ(ruleIn(2147483647, 2), nullptr);
  const std::string whole = bytesOf("t.tmp");
  for (std::size_t size = 0; size < whole.size(); ++size) {
    write("t.tmp", whole.substr(0, size));
    EXPECT_EQ(ruleIn(0, 2), nullptr) << size;
  }
  for (const std::int32_t count : {-1, -2147483647, 1000000, 2147483647}) {
    write("t.tmp", whole.substr(0, 25) + int32Bytes(count) + whole.substr(29));
    EXPECT_EQ(ruleIn(0, 2), nullptr) << count;
  }
}

TEST_F(StorageFilesTest, aRelationFileNamesBothSidesAndEveryRowsPartner) {
  Table parents("customers", {{"id", "int", 0, 60}});
  addRow(parents, {"7"});
  addRow(parents, {"8"});
  parents.setUpPrimaryKeyMap("id", 0);
  Table children("orders", {{"item", "string", 0, 60}, {"cust", "int", 0, 60}});
  addRow(children, {"pen", "8"});
  addRow(children, {"ink", "7"});
  children.setDeleted(1, true);
  addRow(children, {"cap", "99"});
  addRow(children, {"nib", "07"});
  addRow(children, {"box", "unreadable"});
  Storage::writeRelation(children, parents, "cust", 0, directory_);
  putInPlace(directory_, "orders-cust_customers-id.rel");
  // Keys compare as numbers; a deleted row, one without a partner and no number at all have none.
  EXPECT_EQ(bytesOf("orders-cust_customers-id.rel"),
            padded("orders", 15) + padded("customers", 15) + padded("cust", 15) + padded("id", 15) +
                int32Bytes(1) + int32Bytes(-1) + int32Bytes(-1) + int32Bytes(0) + int32Bytes(-1));
  const auto relation = Storage::readRelation("orders-cust_customers-id.rel", directory_);
  ASSERT_TRUE(relation.has_value());
  EXPECT_EQ(relation->childTable, "orders");
  EXPECT_EQ(relation->parentTable, "customers");
  EXPECT_EQ(relation->childColumn, "cust");
  EXPECT_EQ(relation->parentColumn, "id");
}

TEST_F(StorageFilesTest, aRelationFileStaysInItsDirectory) {
  try {
    Storage::relationFileName({"t", "u", "/../../x/pwn", "id"});
    FAIL() << "a name outside of the directory";
  } catch (const std::runtime_error& error) {
    EXPECT_STREQ(error.what(), "Forbidden relation name");
  }
}

class RecordFilesTest : public StorageFilesTest {
 protected:
  struct ReadListeners {
    std::vector<Listener> listeners;
    std::int64_t completeSize;
  };
  ReadListeners readListeners() const {
    ReadListeners result;
    const auto read = Storage::readListeners(
        [&](Listener listener) { result.listeners.push_back(std::move(listener)); }, directory_);
    result.completeSize = read.value().completeSize;
    EXPECT_EQ(read->fileSize, static_cast<std::int64_t>(bytesOf("listeners.bin").size()));
    return result;
  }
  struct ReadTasks {
    std::vector<WebhookTask> tasks;
    std::int64_t completeSize;
  };
  ReadTasks readTasks() const {
    ReadTasks result;
    const auto read = Storage::readWebhooks(
        [&](WebhookTask task) { result.tasks.push_back(std::move(task)); }, directory_);
    result.completeSize = read.value().completeSize;
    return result;
  }
  std::int32_t append(const WebhookTask& one) {
    std::vector<WebhookTask> tasks{one};
    webhooks_.check();
    Storage::appendWebhooks(tasks, webhooks_);
    return tasks.front().filePosition;
  }

  AppendFile webhooks_{directory_, webhooksFileName};
};

const Listener plain = {"t", "INSERT", "hook", {}};

TEST_F(RecordFilesTest, listenerRecordsGrowWithTheirConditions) {
  EXPECT_EQ(Storage::listenerRecord(plain).size(), 134U);
  const Condition first = {"", "age", "18", ">=", 'o'};
  const Condition second = {"", "name", "Bob", "=", 'a'};
  const std::string record =
      Storage::listenerRecord({"t", "UPDATE", std::string(120, 'h'), {first, second}});
  EXPECT_EQ(record, padded("t", 15) + padded("UPDATE", 15) + std::string(100, 'h') + int32Bytes(2) +
                        padded("age", 15) + padded("18", 25) + padded(">=", 3) + "o" +
                        padded("name", 15) + padded("Bob", 25) + padded("=", 3) + "a");
  write("listeners.bin", Storage::listenerRecord(plain) + record);
  EXPECT_EQ(
      readListeners().listeners,
      (std::vector<Listener>{plain, {"t", "UPDATE", std::string(100, 'h'), {first, second}}}));
}

TEST_F(RecordFilesTest, aTornListenerRecordIsToldWhereverItEnds) {
  EXPECT_FALSE(Storage::readListeners([](const Listener&) {}, directory_).has_value());
  const std::string whole =
      Storage::listenerRecord(plain) +
      Storage::listenerRecord({"t", "INSERT", "two", {{"", "a", "1", "=", 'o'}}});
  for (std::size_t size = 134; size < whole.size(); ++size) {
    write("listeners.bin", whole.substr(0, size));
    EXPECT_EQ(readListeners().listeners, std::vector<Listener>{plain}) << size;
    EXPECT_EQ(readListeners().completeSize, 134) << size;
  }
}

TEST_F(RecordFilesTest, aListenerWithANegativeCountHidesNoOther) {
  std::string damaged = Storage::listenerRecord({"t", "INSERT", "damaged", {}});
  damaged.replace(130, 4, int32Bytes(-1));
  write("listeners.bin", damaged + Storage::listenerRecord(plain));
  EXPECT_EQ(readListeners().listeners, std::vector<Listener>{plain});
  EXPECT_EQ(readListeners().completeSize, 268);
}

TEST_F(RecordFilesTest, conditionsWithoutAColumnAreNone) {
  std::string damaged = Storage::listenerRecord({"t", "INSERT", "damaged", {}});
  damaged.replace(130, 4, int32Bytes(3));
  write("listeners.bin", damaged + zeros(132) + Storage::listenerRecord(plain) + zeros(500));
  EXPECT_EQ(readListeners().listeners, std::vector<Listener>{plain});
  EXPECT_EQ(readListeners().completeSize, 134 + 132 + 134);
}

TEST_F(RecordFilesTest, scheduledChangesAreRecordsOfEightyFiveBytes) {
  EXPECT_EQ(append(task(1010, "red")), 0);
  EXPECT_EQ(append(task(1020, std::string(30, 'v'))), 85);
  EXPECT_EQ(append(task(1030, "green")), 170);
  const std::string bytes = bytesOf("webhooks.bin");
  ASSERT_EQ(bytes.size(), 255U);
  EXPECT_EQ(bytes.substr(85, 85), zeros(1) + int32Bytes(1020) + zeros(4) + int32Bytes(1000) +
                                      zeros(4) + int32Bytes(7) + "\1" + int32Bytes(30) + zeros(4) +
                                      padded("t", 15) + padded("status", 15) +
                                      std::string(25, 'v'));
}

TEST_F(RecordFilesTest, aFiredChangeIsNotRevived) {
  for (const std::int64_t second : {1010, 1020, 1030}) append(task(second, "x"));
  std::string marked = bytesOf("webhooks.bin");
  marked[85] = '\1';
  write("webhooks.bin", marked);
  const std::vector<WebhookTask> tasks = readTasks().tasks;
  ASSERT_EQ(tasks.size(), 2U);
  EXPECT_EQ(tasks[0].filePosition, 0);
  EXPECT_EQ(tasks[1].filePosition, 170);
  EXPECT_EQ(tasks[1].fireTime, 1030);
  EXPECT_EQ(tasks[1].tableName, "t");
  EXPECT_EQ(tasks[1].rowIndex, 7);
  EXPECT_EQ(tasks[1].column, "status");
  EXPECT_EQ(tasks[1].value, "x");
  EXPECT_TRUE(tasks[1].repeat);
  EXPECT_EQ(tasks[1].totalDuration, 30);
  EXPECT_EQ(tasks[1].startTime, 1000);
}

TEST_F(RecordFilesTest, aTornChangeIsToldWhereverItEnds) {
  EXPECT_FALSE(Storage::readWebhooks([](const WebhookTask&) {}, directory_).has_value());
  append(task(1010, "x"));
  append(task(1020, "y"));
  const std::string whole = bytesOf("webhooks.bin");
  for (std::size_t size = 85; size < whole.size(); ++size) {
    write("webhooks.bin", whole.substr(0, size));
    EXPECT_EQ(readTasks().tasks.size(), 1U) << size;
    EXPECT_EQ(readTasks().completeSize, 85) << size;
  }
}

TEST_F(RecordFilesTest, zeroBytesAreNoChange) {
  append(task(1010, "x"));
  write("webhooks.bin", bytesOf("webhooks.bin") + zeros(1000));
  EXPECT_EQ(readTasks().tasks.size(), 1U);
  EXPECT_EQ(readTasks().completeSize, 85);
}

}  // namespace
}  // namespace velmora
