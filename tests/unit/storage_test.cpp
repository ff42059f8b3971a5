// The storage room's files on their own: the bytes that are written, what they read back, and what
// is made of files that are missing or cut. The log has tests of its own.
//
// What a host can see through commands is pinned by the golden scripts under golden/storage; here
// stand the values and calls that no command reaches.

#include "storage/storage.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "storage/timed_file.h"
#include "storage_fixture.h"

namespace velmora {
namespace {

namespace fs = std::filesystem;

class StorageFilesTest : public StorageTest {
 protected:
  // A one-row write of the given texts through Storage::insertRow, and what a load makes of it.
  std::vector<std::string> roundTrip(const std::vector<Column>& columns,
                                     const std::vector<std::string>& values) {
    Table table("t", columns);
    Storage::saveTable("t.bin", table, directory_);
    Storage::insertRow(table, addRow(table, values), 0, std::ios::end, directory_);
    return valuesOf(Storage::loadTable("t.bin", directory_)->rows.at(0));
  }

  static Row& addRow(Table& table, const std::vector<std::string>& values) {
    Row& row = table.appendRow();
    for (std::size_t i = 0; i < values.size(); ++i) row.cells()[i].value = Text(values[i]);
    return row;
  }
  static std::vector<std::string> valuesOf(const Row& row) {
    std::vector<std::string> values;
    for (const Cell& cell : row.cells()) values.push_back(cell.getVal());
    return values;
  }
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
  EXPECT_EQ(Storage::typeSizes,
            (std::map<std::string, int, std::less<>>{
                {"int", 4}, {"ApexInt", 4}, {"float", 4}, {"bool", 1}, {"string", 60}}));
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

TEST_F(StorageFilesTest, aNewTableGetsItsHeaderAndOneLiveMarkARow) {
  Table table("users", {{"id", "ApexInt", 0, 60}, {"name", "string", 12, 30}});
  addRow(table, {"1", "a"});
  addRow(table, {"2", "b"});
  Storage::saveTable("users.bin", table, directory_);
  EXPECT_EQ(bytesOf("users.bin"), padded("users", 15) + padded("ApexInt", 15) +
                                      padded("string", 15) + padded("id", 15) + padded("name", 15) +
                                      padded("0", 15) + padded("12", 15) + padded("60", 15) +
                                      padded("30", 15));
  EXPECT_EQ(bytesOf("users.del"), zeros(2));
}

TEST_F(StorageFilesTest, aFileThatHoldsColumnsIsNotOverwritten) {
  const Table table("t", {{"id", "int", 0, 60}});
  Storage::saveTable("t.bin", table, directory_);
  const std::string before = bytesOf("t.bin");
  const Table other("t", {{"other", "string", 0, 60}});
  try {
    Storage::saveTable("t.bin", other, directory_);
    FAIL() << "the file was overwritten";
  } catch (const std::runtime_error& error) {
    EXPECT_STREQ(error.what(), "Column size error");
  }
  EXPECT_EQ(bytesOf("t.bin"), before);
}

TEST_F(StorageFilesTest, aFileThatCannotBeCreatedIsNamed) {
  const Table table("t", {{"id", "int", 0, 60}});
  try {
    Storage::saveTable("missing/t.bin", table, directory_);
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

TEST_F(StorageFilesTest, capitalsInATruthValueCountOnlyWithoutTimedValues) {
  EXPECT_EQ(roundTrip({{"plain", "bool", 0, 60}, {"timed", "bool", 3, 60}}, {"TRUE", "TRUE"}),
            (std::vector<std::string>{"true", "false"}));
}

TEST_F(StorageFilesTest, aMissingFloatIsAQuietNaNAndReadsBackAsMissing) {
  EXPECT_EQ(roundTrip({{"f", "float", 0, 60}}, {std::string(missingValue)}),
            (std::vector<std::string>{std::string(missingValue)}));
  EXPECT_EQ(bytesOf("t.bin").substr(75), std::string("\0\0\xc0\x7f", 4));
}

TEST_F(StorageFilesTest, aValueThatDoesNotConvertThrowsAndWritesNothingOfTheRow) {
  Table table("t", {{"s", "string", 0, 60}, {"i", "int", 0, 60}, {"f", "float", 0, 60}});
  Storage::saveTable("t.bin", table, directory_);
  const auto messageOf = [&](const std::vector<std::string>& values) -> std::string {
    try {
      Storage::insertRow(table, addRow(table, values), 0, std::ios::end, directory_);
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
  EXPECT_EQ(bytesOf("t.bin").size(), 195U);
}

TEST_F(StorageFilesTest, aRowIsAppendedWithItsMarkOrWrittenOverAnother) {
  Table table("t", {{"i", "int", 0, 60}});
  Storage::saveTable("t.bin", table, directory_);
  for (const char* value : {"1", "2", "3"}) {
    Storage::insertRow(table, addRow(table, {value}), 0, std::ios::end, directory_);
  }
  EXPECT_EQ(bytesOf("t.bin").substr(75), int32Bytes(1) + int32Bytes(2) + int32Bytes(3));
  EXPECT_EQ(bytesOf("t.del"), zeros(3));
  table.rows[0].cells()[0].value = Text("8");
  table.rows[2].cells()[0].value = Text("9");
  Storage::insertRow(table, table.rows[2], 83, std::ios::beg, directory_);
  EXPECT_EQ(bytesOf("t.bin").substr(75), int32Bytes(1) + int32Bytes(2) + int32Bytes(9));
  EXPECT_EQ(bytesOf("t.del"), zeros(3));
  Storage::update(table, {0}, directory_);
  EXPECT_EQ(bytesOf("t.bin").substr(75), int32Bytes(8) + int32Bytes(2) + int32Bytes(9));
}

TEST_F(StorageFilesTest, aRowFileThatIsMissingIsNotMade) {
  Table table("t", {{"i", "int", 0, 60}});
  Storage::insertRow(table, addRow(table, {"1"}), 75, std::ios::beg, directory_);
  Storage::update(table, {0}, directory_);
  EXPECT_FALSE(exists("t.bin"));
}

TEST_F(StorageFilesTest, anAppendedTimedCellIsLabelledWithTheRowCount) {
  Table table("t", {{"n", "int", 2, 60}});
  Storage::saveTable("t.bin", table, directory_);
  addRow(table, {"0"});
  Row& row = addRow(table, {"1"});
  row.cells()[0].tempRule = std::make_unique<TempRule>(rule(1000, false, {"1", "2"}, 5));
  Storage::insertRow(table, row, 0, std::ios::end, directory_);
  EXPECT_EQ(bytesOf("t.bin").substr(75), "\1" + int32Bytes(0));
  EXPECT_EQ(bytesOf("t.tmp").substr(0, 8), int32Bytes(2) + int32Bytes(0));
}

TEST_F(StorageFilesTest, aTimedCellWrittenInPlaceKeepsItsSlot) {
  Table table("t", {{"n", "int", 2, 60}, {"s", "string", 1, 60}});
  Storage::saveTable("t.bin", table, directory_);
  for (int i = 0; i < 2; ++i) {
    Row& row = addRow(table, {"1", "text"});
    row.cells()[0].tempRule = std::make_unique<TempRule>(rule(1000 + i, false, {"1", "2"}, 5));
    Storage::insertRow(table, row, 0, std::ios::end, directory_);
  }
  EXPECT_EQ(bytesOf("t.tmp").size(), 2 * 165U);
  table.rows[0].cells()[0].tempRule->startTime = 5000;
  Storage::update(table, {0}, directory_);
  EXPECT_EQ(bytesOf("t.tmp").size(), 2 * 165U);
  EXPECT_EQ(Storage::readTempRule("t", 0, 2, directory_)->startTime, 5000);
  EXPECT_EQ(Storage::readTempRule("t", 1, 2, directory_)->startTime, 1001);
  EXPECT_EQ(bytesOf("t.bin").substr(135, 5), "\1" + int32Bytes(0));
  // In place the label is the row's offset divided by the column's width.
  EXPECT_EQ(bytesOf("t.tmp").substr(0, 8), int32Bytes(135 / 5) + int32Bytes(0));
}

TEST_F(StorageFilesTest, deletingFlipsOneByteARow) {
  Table table("t", {{"i", "int", 0, 60}});
  Storage::saveTable("t.bin", table, directory_);
  for (int i = 0; i < 5; ++i) {
    Storage::insertRow(table, addRow(table, {"1"}), 0, std::ios::end, directory_);
  }
  const std::string rows = bytesOf("t.bin");
  Storage::deleteAt("t", 2, directory_);
  EXPECT_EQ(bytesOf("t.del"), std::string("\0\0\1\0\0", 5));
  Storage::deleteBatch("t", {0, 4}, directory_);
  EXPECT_EQ(bytesOf("t.del"), std::string("\1\0\1\0\1", 5));
  Storage::deleteBatch("t", {}, directory_);
  EXPECT_EQ(bytesOf("t.del"), std::string("\1\0\1\0\1", 5));
  EXPECT_EQ(bytesOf("t.bin"), rows);
}

TEST_F(StorageFilesTest, deletingInATableWithoutDeletionFileMakesNone) {
  Storage::deleteAt("t", 0, directory_);
  Storage::deleteBatch("t", {0, 1}, directory_);
  EXPECT_FALSE(exists("t.del"));
}

TEST_F(StorageFilesTest, aFieldIsReadUpToItsFirstZeroByte) {
  write("f", padded("one", 15) + padded("exactly-fifteen", 15) + "cut");
  File file(directory_, "f", File::Mode::read);
  EXPECT_EQ(Storage::read(file, 0), "one");
  EXPECT_EQ(Storage::read(file, 15), "exactly-fifteen");
  EXPECT_EQ(Storage::read(file, 1, 4), "ne");
  EXPECT_EQ(Storage::read(file, 1000), "");
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
  EXPECT_EQ(Storage::writeTempRule("t", 11, 3, &two, 3, -1, directory_), 0);
  EXPECT_EQ(Storage::writeTempRule("t", 12, 3, &two, 3, -1, directory_), 1);
  EXPECT_EQ(Storage::writeTempRule("t", 13, 4, &two, 3, -1, directory_), 2);
  const std::string bytes = bytesOf("t.tmp");
  ASSERT_EQ(bytes.size(), 3 * 233U);
  const std::string state = int32Bytes(5) + int32Bytes(0);
  EXPECT_EQ(bytes.substr(466), int32Bytes(13) + int32Bytes(4) + "\1" + int32Bytes(1000) +
                                   int32Bytes(0) + int32Bytes(10) + int32Bytes(0) + int32Bytes(2) +
                                   state + padded("a", 60) + state + padded("b", 60) + zeros(68));
}

TEST_F(StorageFilesTest, rewritingASlotLeavesTheOthersAndTheFilesLength) {
  const TempRule first = rule(1000, true, {"a", "b"}, 5);
  const TempRule second = rule(-7, false, {"c"}, 9);
  for (int i = 0; i < 3; ++i) Storage::writeTempRule("t", 0, 0, &first, 2, -1, directory_);
  EXPECT_EQ(Storage::writeTempRule("t", 0, 0, &second, 2, 1, directory_), 1);
  EXPECT_EQ(bytesOf("t.tmp").size(), 3 * 165U);
  const auto read = Storage::readTempRule("t", 1, 2, directory_);
  EXPECT_EQ(read->startTime, -7);
  EXPECT_EQ(read->cycleLength, 9);
  EXPECT_FALSE(read->repeat);
  ASSERT_EQ(read->states.size(), 1U);
  EXPECT_EQ(read->states[0].value.view(), "c");
  EXPECT_EQ(read->states[0].duration, 9);
  EXPECT_EQ(Storage::readTempRule("t", 2, 2, directory_)->startTime, 1000);
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
  const TempRule longText = rule(0, false, {std::string(61, 'y')}, 1);
  Storage::writeTempRule("t", 0, 0, &longText, 1, -1, directory_);
  EXPECT_EQ(Storage::readTempRule("t", 0, 1, directory_)->states[0].value.view(),
            std::string(60, 'y'));
}

TEST_F(StorageFilesTest, timedValuesThatCannotBeReadAreNone) {
  EXPECT_EQ(Storage::readTempRule("t", 0, 2, directory_), nullptr);
  const TempRule good = rule(0, false, {"a", "b"}, 1);
  Storage::writeTempRule("t", 0, 0, &good, 2, -1, directory_);
  EXPECT_EQ(Storage::readTempRule("t", 1, 2, directory_), nullptr);
  EXPECT_EQ(Storage::readTempRule("t", -1, 2, directory_), nullptr);
  EXPECT_EQ(Storage::readTempRule("t", 2147483647, 2, directory_), nullptr);
  const std::string whole = bytesOf("t.tmp");
  for (std::size_t size = 0; size < whole.size(); ++size) {
    write("t.tmp", whole.substr(0, size));
    EXPECT_EQ(Storage::readTempRule("t", 0, 2, directory_), nullptr) << size;
  }
  for (const std::int32_t count : {-1, -2147483647, 1000000, 2147483647}) {
    write("t.tmp", whole.substr(0, 25) + int32Bytes(count) + whole.substr(29));
    EXPECT_EQ(Storage::readTempRule("t", 0, 2, directory_), nullptr) << count;
  }
}

TEST_F(StorageFilesTest, aRelationFileNamesBothSidesAndEveryRowsPartner) {
  Table parents("customers", {{"id", "int", 0, 60}});
  addRow(parents, {"7"});
  addRow(parents, {"8"});
  parents.setUpPrimaryKeyMap("id");
  Table children("orders", {{"item", "string", 0, 60}, {"cust", "int", 0, 60}});
  addRow(children, {"pen", "8"});
  addRow(children, {"ink", "7"});
  children.setDeleted(1, true);
  addRow(children, {"cap", "99"});
  addRow(children, {"nib", "07"});
  addRow(children, {"box", "unreadable"});
  Storage::linkTables(children, parents, "cust", directory_);
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

TEST_F(StorageFilesTest, listenerRecordsGrowWithTheirConditions) {
  Storage::saveListener("t", "INSERT", "hook", {}, directory_);
  EXPECT_EQ(bytesOf("listeners.bin").size(), 134U);
  const Condition first = {"", "age", "18", ">=", 'o'};
  const Condition second = {"", "name", "Bob", "=", 'a'};
  Storage::saveListener("t", "UPDATE", std::string(120, 'h'), {first, second}, directory_);
  EXPECT_EQ(bytesOf("listeners.bin").substr(134),
            padded("t", 15) + padded("UPDATE", 15) + std::string(100, 'h') + int32Bytes(2) +
                padded("age", 15) + padded("18", 25) + padded(">=", 3) + "o" + padded("name", 15) +
                padded("Bob", 25) + padded("=", 3) + "a");
  EXPECT_EQ(bytesOf("listeners.bin").size(), 134U + 222U);
  const auto records = Storage::readListeners(directory_);
  ASSERT_TRUE(records.has_value());
  ASSERT_EQ(records->size(), 2U);
  EXPECT_EQ((*records)[1].event, "UPDATE");
  EXPECT_EQ((*records)[1].target, std::string(100, 'h'));
  EXPECT_EQ((*records)[1].conditions, (std::vector<Condition>{first, second}));
}

TEST_F(StorageFilesTest, aTornListenerRecordIsCutOffWhereverItEnds) {
  EXPECT_FALSE(Storage::readListeners(directory_).has_value());
  Storage::saveListener("t", "INSERT", "one", {}, directory_);
  Storage::saveListener("t", "INSERT", "two", {{"", "a", "1", "=", 'o'}}, directory_);
  const std::string whole = bytesOf("listeners.bin");
  for (std::size_t size = 134; size < whole.size(); ++size) {
    write("listeners.bin", whole.substr(0, size));
    EXPECT_EQ(Storage::readListeners(directory_)->size(), 1U) << size;
    EXPECT_EQ(bytesOf("listeners.bin").size(), 134U) << size;
  }
}

TEST_F(StorageFilesTest, scheduledChangesAreRecordsOfEightyFiveBytes) {
  EXPECT_EQ(Storage::appendWebhook(task(1010, "red"), directory_), 0);
  EXPECT_EQ(Storage::appendWebhook(task(1020, std::string(30, 'v')), directory_), 85);
  EXPECT_EQ(Storage::appendWebhook(task(1030, "green"), directory_), 170);
  const std::string bytes = bytesOf("webhooks.bin");
  ASSERT_EQ(bytes.size(), 255U);
  EXPECT_EQ(bytes.substr(85, 85), zeros(1) + int32Bytes(1020) + zeros(4) + int32Bytes(1000) +
                                      zeros(4) + int32Bytes(7) + "\1" + int32Bytes(30) + zeros(4) +
                                      padded("t", 15) + padded("status", 15) +
                                      std::string(25, 'v'));
}

TEST_F(StorageFilesTest, aFiredChangeIsNotRevivedAndStaysInTheFile) {
  for (const std::int64_t second : {1010, 1020, 1030}) {
    Storage::appendWebhook(task(second, "x"), directory_);
  }
  const std::string before = bytesOf("webhooks.bin");
  Storage::markWebhookFired(85, directory_);
  std::string after = before;
  after[85] = '\1';
  EXPECT_EQ(bytesOf("webhooks.bin"), after);
  const auto tasks = Storage::readWebhooks(directory_);
  ASSERT_TRUE(tasks.has_value());
  ASSERT_EQ(tasks->size(), 2U);
  EXPECT_EQ((*tasks)[0].filePosition, 0);
  EXPECT_EQ((*tasks)[1].filePosition, 170);
  EXPECT_EQ((*tasks)[1].fireTime, 1030);
  EXPECT_EQ((*tasks)[1].tableName, "t");
  EXPECT_EQ((*tasks)[1].rowIndex, 7);
  EXPECT_EQ((*tasks)[1].column, "status");
  EXPECT_EQ((*tasks)[1].value, "x");
  EXPECT_TRUE((*tasks)[1].repeat);
  EXPECT_EQ((*tasks)[1].totalDuration, 30);
  EXPECT_EQ((*tasks)[1].startTime, 1000);
}

TEST_F(StorageFilesTest, aCyclingChangeGetsANewFireTimeInPlace) {
  Storage::appendWebhook(task(1010, "x"), directory_);
  Storage::appendWebhook(task(1020, "y"), directory_);
  std::string expected = bytesOf("webhooks.bin");
  Storage::updateCycleTime(85, 0x0102030405060708, directory_);
  expected.replace(86, 8, "\x08\x07\x06\x05\x04\x03\x02\x01");
  EXPECT_EQ(bytesOf("webhooks.bin"), expected);
}

TEST_F(StorageFilesTest, aTornChangeIsCutOffWhereverItEnds) {
  EXPECT_FALSE(Storage::readWebhooks(directory_).has_value());
  Storage::appendWebhook(task(1010, "x"), directory_);
  Storage::appendWebhook(task(1020, "y"), directory_);
  const std::string whole = bytesOf("webhooks.bin");
  for (std::size_t size = 85; size < whole.size(); ++size) {
    write("webhooks.bin", whole.substr(0, size));
    EXPECT_EQ(Storage::readWebhooks(directory_)->size(), 1U) << size;
    EXPECT_EQ(bytesOf("webhooks.bin").size(), 85U) << size;
  }
}

}  // namespace
}  // namespace velmora
