// The log with sequence numbers and checksums: what is written is read, what a crash leaves of the
// last record is told from damage, and what cannot be written leaves nothing.
#include "storage/record_log.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <functional>
#include <limits>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "failure.h"
#include "storage/checksum.h"
#include "storage_fixture.h"

namespace velmora {
namespace {

namespace fs = std::filesystem;

using Commands = std::vector<LoggedCommand>;

std::int64_t append(RecordLog& log, const Commands& commands) {
  RecordText record;
  for (const LoggedCommand& command : commands) {
    record.add(command.text, command.values, command.second, command.clock);
  }
  return log.append(record);
}

bool areEqual(const Commands& a, const Commands& b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](const auto& one, const auto& other) {
    return one.text == other.text && one.second == other.second && one.clock == other.clock &&
           one.values == other.values;
  });
}

const std::vector<Commands> someRecords = {
    {{"INSERT INTO t a = 1", 1700000000, std::nullopt}},
    {{"INSERT INTO t a = 'x' --> 'y' @ 5 s c", 1700000001, 1700000077}},
    {{"INSERT INTO t a = 'it''s\n\" #TIME# 5\n'", 1700000002, std::nullopt},
     {"UPDATE t\nSET a = \"2\n\"\"COMMIT #TIME# 5\n\"\nWHERE id = 1", 1700000003, 12},
     {"DELETE FROM t WHERE id = 1", 1700000003, std::nullopt}},
    {{"UPDATE t SET a = 'BEGIN\n\nCOMMIT #TIME# 1 1 00000000\n'", 1700000004, std::nullopt}},
    {{"DELETE FROM t", 1700000005, std::nullopt}},
    {{"INSERT INTO t\n a = ? b = ?",
      1700000006,
      9,
      {std::int64_t{5}, "'\n\" #TIME# 5 9 00000000\n?"}},
     {"DELETE FROM t WHERE a = ?", 1700000007, std::nullopt, {2.5}}},
    {{"DELETE FROM t WHERE a = ?", 1700000007, std::nullopt, {Value()}}},
};

class RecordLogTest : public StorageTest {
 protected:
  struct Found {
    std::vector<Commands> records;
    std::int64_t completeSize;
    std::uint64_t nextSequence;
    bool isTorn;
    std::optional<std::string> fault;
  };
  Found read(std::uint64_t firstSequence = 7) const {
    RecordLogReader reader(directory_, firstSequence);
    Found found{};
    while (auto commands = reader.next()) found.records.push_back(*commands);
    found.completeSize = reader.completeSize();
    found.nextSequence = reader.nextSequence();
    found.isTorn = reader.hasTornTail();
    found.fault = reader.fault();
    return found;
  }
  // A new file each time: one that is cut and written again goes to the disk when it is closed.
  void put(const std::string& bytes) const {
    fs::remove(path_ / "velmora.wal");
    write("velmora.wal", bytes);
  }
  // Writes a log of the records, and tells where each ends.
  std::vector<std::int64_t> writeRecords(const std::vector<Commands>& records) const {
    put("");
    RecordLog log(directory_, 0, 7);
    std::vector<std::int64_t> ends;
    for (const Commands& commands : records) ends.push_back(append(log, commands));
    return ends;
  }
  void expectFirst(const Found& found, std::size_t count, const std::string& where) const {
    ASSERT_EQ(found.records.size(), count) << where;
    for (std::size_t i = 0; i < count; ++i) {
      EXPECT_TRUE(areEqual(found.records[i], someRecords[i])) << where << " record " << i;
    }
    EXPECT_EQ(found.nextSequence, 7 + count) << where;
  }
  static Code codeOf(const std::function<void()>& act) {
    try {
      act();
    } catch (const Failure& failure) {
      return failure.code;
    }
    return Code::ok;
  }

  const LoggedCommand insert_{"INSERT INTO t a = 1", 1700000000, std::nullopt};
};

TEST(Checksum, isThatOfCastagnoli) {
  EXPECT_EQ(crc32c(0, "123456789"), 0xE3069283);
  EXPECT_EQ(crc32c(crc32c(0, "1234"), "56789"), 0xE3069283);
  EXPECT_EQ(crc32c(0, std::string(32, '\0')), 0x8A9136AA);
  std::string bytes;
  for (int i = 0; i < 100; ++i) {
    EXPECT_EQ(crc32c(7, bytes), crc32cByTable(7, bytes)) << i;
    bytes += static_cast<char>(i * 37);
  }
  for (const std::size_t size : {12287U, 12288U, 12289U, 40000U}) {
    while (bytes.size() < size) bytes += static_cast<char>(bytes.size() * bytes.size() >> 7);
    EXPECT_EQ(crc32c(7, bytes), crc32cByTable(7, bytes)) << size;
  }
  const std::uint32_t difference = crc32c(0, "abc") ^ crc32c(0, "axc");
  EXPECT_EQ(crc32cBehind(difference, bytes.size()),
            crc32c(0, "abc" + bytes) ^ crc32c(0, "axc" + bytes));
}

TEST_F(RecordLogTest, recordsHaveTheirForm) {
  writeRecords({someRecords[0], someRecords[1], {someRecords[0][0], someRecords[1][0]}});
  EXPECT_EQ(bytesOf("velmora.wal"),
            "INSERT INTO t a = 1 #TIME# 1700000000 7 6c0602d9\n"
            "INSERT INTO t a = 'x' --> 'y' @ 5 s c #TIME# 1700000077 #TIME# 1700000001 8 f88f220b\n"
            "BEGIN\n"
            "INSERT INTO t a = 1 #TIME# 1700000000\n"
            "INSERT INTO t a = 'x' --> 'y' @ 5 s c #TIME# 1700000077 #TIME# 1700000001\n"
            "COMMIT #TIME# 1700000001 9 94acd947\n");
}

TEST_F(RecordLogTest, aCommandThatIsRunAgainIsWrittenOnce) {
  put("");
  RecordLog log(directory_, 0, 7);
  RecordText record;
  const auto add = [&](const std::string& text, const std::vector<Value>& values) {
    record.add(text, values, 5, std::nullopt);
  };
  const auto append = [&](const std::string& text, const std::vector<Value>& values) {
    add(text, values);
    log.append(record);
    record.wasWritten();
  };
  const std::string insert = "INSERT INTO t a = ?";
  const std::string remove = "DELETE FROM t WHERE a = ?";
  append(insert, {std::int64_t{1}});
  append(insert, {true});
  add(insert, {false});
  add(insert, {Value()});
  add(remove, {0.5});
  append(remove, {std::string("it's")});
  append("DELETE FROM t", {});
  append("DELETE FROM t", {});
  append(remove, {-2.0});
  EXPECT_EQ(bytesOf("velmora.wal"),
            "? 1: INSERT INTO t a = ? #TIME# 5 7 2aa8ee74\n"
            "? t #TIME# 5 8 d9430270\n"
            "BEGIN\n"
            "? f #TIME# 5\n"
            "? n #TIME# 5\n"
            "? x3fe0000000000000: DELETE FROM t WHERE a = ? #TIME# 5\n"
            "? 'it''s' #TIME# 5\n"
            "COMMIT #TIME# 5 9 2bec0bdf\n"
            "DELETE FROM t #TIME# 5 10 a8e95a3b\n"
            "DELETE FROM t #TIME# 5 11 5a82d938\n"
            "? xc000000000000000: DELETE FROM t WHERE a = ? #TIME# 5 12 138ec98a\n");
  const Found found = read();
  ASSERT_EQ(found.records.size(), 6U);
  EXPECT_TRUE(areEqual(found.records[0], {{insert, 5, std::nullopt, {std::int64_t{1}}}}));
  EXPECT_TRUE(areEqual(found.records[1], {{"", 5, std::nullopt, {true}}}));
  EXPECT_TRUE(areEqual(found.records[2], {{"", 5, std::nullopt, {false}},
                                          {"", 5, std::nullopt, {Value()}},
                                          {remove, 5, std::nullopt, {0.5}},
                                          {"", 5, std::nullopt, {std::string("it's")}}}));
  EXPECT_EQ(found.fault, std::nullopt);
}

// What is not in the log cannot be referred to.
TEST_F(RecordLogTest, aCommandIsWrittenInFullBehindWhatWasGivenUp) {
  RecordText record;
  const std::vector<Value> values = {std::int64_t{1}};
  const auto added = [&] {
    const std::size_t size = record.mark().size;
    record.add("DELETE FROM t WHERE a = ?", values, 5, std::nullopt);
    return record.mark().size - size;
  };
  const std::size_t inFull = added();
  const RecordText::Mark second = record.mark();
  const std::size_t again = added();
  EXPECT_LT(again, inFull);
  record.cutTo(record.mark());
  EXPECT_EQ(added(), inFull) << "who goes back may have added half a command";
  record.cutTo(second);
  EXPECT_EQ(added(), inFull);
  record.wasWritten();
  EXPECT_EQ(added(), again);
  record.clear();
  EXPECT_EQ(added(), inFull);
}

TEST_F(RecordLogTest, whatIsWrittenIsRead) {
  const auto ends = writeRecords(someRecords);
  const Found found = read();
  expectFirst(found, someRecords.size(), "");
  EXPECT_EQ(found.completeSize, ends.back());
  EXPECT_FALSE(found.isTorn);
  EXPECT_EQ(found.fault, std::nullopt);
}

TEST_F(RecordLogTest, aMissingLogIsEmpty) {
  const Found found = read();
  EXPECT_TRUE(found.records.empty());
  EXPECT_FALSE(found.isTorn);
  EXPECT_EQ(found.fault, std::nullopt);
}

TEST_F(RecordLogTest, secondsMayBeBeforeTheEpochAndNumbersLarge) {
  put("");
  constexpr std::uint64_t last = std::numeric_limits<std::uint64_t>::max() - 1;
  RecordLog log(directory_, 0, last);
  append(log, Commands{{"DELETE FROM t", -5, -7}});
  const Found found = read(last);
  ASSERT_EQ(found.records.size(), 1U);
  EXPECT_EQ(found.records[0][0].second, -5);
  EXPECT_EQ(found.records[0][0].clock, -7);
}

TEST_F(RecordLogTest, recordsLongerThanABlockAreRead) {
  const std::string text = "INSERT INTO t a = '" + std::string(700'000, 'x') + "\n'";
  writeRecords({{insert_}, {{text, 5, std::nullopt}}, {insert_, {text, 6, std::nullopt}}});
  const Found found = read();
  ASSERT_EQ(found.records.size(), 3U);
  EXPECT_TRUE(found.records[1][0].text == text);
  EXPECT_TRUE(found.records[2][1].text == text);
}

TEST_F(RecordLogTest, aLogThatIsCutAnywhereIsTornAtItsLastRecord) {
  const auto ends = writeRecords(someRecords);
  const std::string whole = bytesOf("velmora.wal");
  for (std::size_t size = 0; size < whole.size(); ++size) {
    put(whole.substr(0, size));
    const std::string where = "cut at " + std::to_string(size);
    std::size_t count = 0;
    while (ends[count] <= static_cast<std::int64_t>(size)) ++count;
    const Found found = read();
    expectFirst(found, count, where);
    EXPECT_EQ(found.fault, std::nullopt) << where;
    const std::int64_t complete = count == 0 ? 0 : ends[count - 1];
    EXPECT_EQ(found.completeSize, complete) << where;
    EXPECT_EQ(found.isTorn, complete < static_cast<std::int64_t>(size)) << where;
  }
}

TEST_F(RecordLogTest, aRecordBehindACutOneIsReadAfterARestart) {
  const auto ends = writeRecords(someRecords);
  const std::string whole = bytesOf("velmora.wal");
  for (std::size_t size = 0; size < whole.size(); size += 3) {
    put(whole.substr(0, size));
    const Found before = read();
    RecordLog log(directory_, before.completeSize, before.nextSequence);
    EXPECT_EQ(append(log, someRecords[before.records.size()]), ends[before.records.size()]);
    const Found found = read();
    expectFirst(found, before.records.size() + 1, "cut at " + std::to_string(size));
    EXPECT_FALSE(found.isTorn);
    EXPECT_EQ(found.fault, std::nullopt);
  }
}

TEST_F(RecordLogTest, everyFlippedBitIsDamage) {
  const auto ends = writeRecords(someRecords);
  const std::string whole = bytesOf("velmora.wal");
  for (std::size_t bit = 0; bit < whole.size() * 8; ++bit) {
    std::string flipped = whole;
    flipped[bit / 8] = static_cast<char>(flipped[bit / 8] ^ 1 << bit % 8);
    put(flipped);
    const std::string where = "bit " + std::to_string(bit);
    std::size_t count = 0;
    while (ends[count] <= static_cast<std::int64_t>(bit / 8)) ++count;
    const Found found = read();
    expectFirst(found, count, where);
    EXPECT_NE(found.fault, std::nullopt) << where;
    EXPECT_FALSE(found.isTorn) << where;
    EXPECT_EQ(found.completeSize, count == 0 ? 0 : ends[count - 1]) << where;
  }
}

TEST_F(RecordLogTest, whatIsDamagedIsTold) {
  writeRecords({{insert_}, {insert_}});
  const std::string whole = bytesOf("velmora.wal");
  const std::size_t half = whole.size() / 2;
  const std::string second = whole.substr(half);
  const auto faultOf = [&](const std::string& bytes) {
    put(bytes);
    return read().fault.value_or("none");
  };
  EXPECT_EQ(faultOf(second), "the record's sequence number is 8 instead of 7");
  EXPECT_EQ(faultOf("x" + whole.substr(1, half - 1)), "the record's checksum is wrong");
  EXPECT_EQ(faultOf("x" + whole.substr(1)), "a right record stands behind a wrong one");
  EXPECT_EQ(faultOf(whole.substr(0, half - 1) + "a" + second),
            "other bytes than a line feed stand behind a record");
  EXPECT_EQ(faultOf(whole.substr(0, half - 10) + "(" + whole.substr(half - 9, 9)),
            "the end of the last record is wrong");
  EXPECT_EQ(faultOf(whole + whole), "the record's sequence number is 7 instead of 9");
}

TEST_F(RecordLogTest, pagesThatAPowerCutLostAreATornTail) {
  const std::string text = "INSERT INTO t a = '" + std::string(20'000, 'x') + "'";
  const auto ends = writeRecords({{insert_}, {{text, 5, std::nullopt}}});
  const std::string whole = bytesOf("velmora.wal");
  const auto first = static_cast<std::size_t>(ends[0]);
  for (std::size_t page = 0; page * 4096 < whole.size(); ++page) {
    std::string lost = whole;
    const std::size_t start = std::max(page * 4096, first);
    const std::size_t size = std::min(page * 4096 + 4096, whole.size()) - start;
    lost.replace(start, size, size, '\0');
    put(lost);
    const Found found = read();
    EXPECT_EQ(found.records.size(), 1U) << page;
    EXPECT_TRUE(found.isTorn) << page;
    EXPECT_EQ(found.fault, std::nullopt) << page;
  }
  put(whole.substr(0, first) + std::string(100, '\0'));
  EXPECT_TRUE(read().isTorn);
}

TEST_F(RecordLogTest, zerosThatAreNoPageAreDamage) {
  const std::string text = "INSERT INTO t a = '" + std::string(20'000, 'x') + "'";
  writeRecords({{insert_}, {{text, 5, std::nullopt}}});
  std::string bytes = bytesOf("velmora.wal");
  bytes.replace(4097, 4095, 4095, '\0');
  put(bytes);
  EXPECT_EQ(read().fault, "the record's checksum is wrong");
}

// Of writes that nobody waited for, a power cut may lose an earlier one.
TEST_F(RecordLogTest, aLostPageBeforeARightRecordIsATornTail) {
  const std::string text = "INSERT INTO t a = '" + std::string(20'000, 'x') + "'";
  const auto ends = writeRecords({{insert_}, {{text, 5, std::nullopt}}, {insert_}});
  std::string bytes = bytesOf("velmora.wal");
  bytes.replace(4096, 4096, 4096, '\0');
  put(bytes);
  EXPECT_EQ(read().fault, std::nullopt);
  EXPECT_TRUE(read().isTorn);
  EXPECT_EQ(read().completeSize, ends[0]);
  // Where the page is lost behind the right record, that one has nothing to be wrong before it.
  writeRecords({{insert_}, {insert_}, {{text, 5, std::nullopt}}, {insert_}});
  bytes = "x" + bytesOf("velmora.wal").substr(1);
  bytes.replace(4096, 4096, 4096, '\0');
  put(bytes);
  EXPECT_EQ(read().fault, "a right record stands behind a wrong one");
}

TEST_F(RecordLogTest, aLostRecordBeforeARightOneIsATornTail) {
  writeRecords({{insert_}, {insert_}, {insert_}});
  std::string bytes = bytesOf("velmora.wal");
  const std::size_t size = bytes.size() / 3;
  bytes.replace(size, size, size, '\0');
  put(bytes);
  EXPECT_EQ(read().fault, std::nullopt);
  EXPECT_EQ(read().records.size(), 1U);
}

// A text may hold what looks like the end of a record, and be torn there.
TEST_F(RecordLogTest, anEndWithinALiteralIsNone) {
  writeRecords({{{"INSERT INTO t a = 'b #TIME# 1 2 00000000\nc'", 5, std::nullopt}}});
  const std::string whole = bytesOf("velmora.wal");
  put(whole.substr(0, whole.find('\n') + 1));
  EXPECT_TRUE(read().isTorn);
  std::string crafted = "INSERT INTO t a = 'b #TIME# 1 7";
  char digits[checksumDigits];
  writeChecksum(digits, crc32c(0, crafted));
  crafted += ' ' + std::string(digits, sizeof digits) + "\nc'";
  writeRecords({{{crafted, 5, std::nullopt}}});
  const Found found = read();
  ASSERT_EQ(found.records.size(), 1U);
  EXPECT_EQ(found.records[0][0].text, crafted);
}

TEST_F(RecordLogTest, aRecordThatCannotBeWrittenLeavesNothing) {
  for (const int wish : {ENOSPC, shortWrite}) {
    static int failure;
    failure = wish;
    writeRecords({{insert_}});
    const std::string before = bytesOf("velmora.wal");
    RecordLog log(directory_, static_cast<std::int64_t>(before.size()), 8);
    setFileHook([](const FileEvent& event) {
      return event.operation == FileOperation::write ? failure : 0;
    });
    EXPECT_EQ(codeOf([&] { append(log, Commands{insert_}); }), Code::full);
    setFileHook(nullptr);
    EXPECT_EQ(bytesOf("velmora.wal"), before);
    EXPECT_FALSE(log.hasFailed());
    append(log, Commands{insert_});
    EXPECT_EQ(read().records.size(), 2U);
  }
}

TEST_F(RecordLogTest, aRecordThatCannotBeTakenBackFailsTheLog) {
  writeRecords({{insert_}});
  RecordLog log(directory_, sizeOf(directory_, "velmora.wal"), 8);
  setFileHook([](const FileEvent& event) {
    if (event.operation == FileOperation::write) return shortWrite;
    return event.operation == FileOperation::truncate ? EIO : 0;
  });
  EXPECT_EQ(codeOf([&] { append(log, Commands{insert_}); }), Code::full);
  setFileHook(nullptr);
  EXPECT_TRUE(log.hasFailed());
  EXPECT_EQ(codeOf([&] { append(log, Commands{insert_}); }), Code::io);
  EXPECT_TRUE(read().isTorn);
}

TEST_F(RecordLogTest, aSyncThatFailsFailsTheLog) {
  put("");
  RecordLog log(directory_, 0, 7);
  const std::int64_t end = append(log, Commands{insert_});
  setFileHook(
      [](const FileEvent& event) { return event.operation == FileOperation::sync ? EIO : 0; });
  EXPECT_EQ(codeOf([&] { log.syncTo(end); }), Code::io);
  setFileHook(nullptr);
  EXPECT_TRUE(log.hasFailed());
  EXPECT_EQ(codeOf([&] { log.syncTo(end); }), Code::io);
}

int syncs = 0;

TEST_F(RecordLogTest, whatIsSyncedIsNotSyncedAgain) {
  put("");
  RecordLog log(directory_, 0, 7);
  const std::int64_t first = append(log, Commands{insert_});
  const std::int64_t second = append(log, Commands{insert_});
  syncs = 0;
  setFileHook([](const FileEvent& event) {
    if (event.operation == FileOperation::sync) ++syncs;
    return 0;
  });
  log.syncTo(first);
  log.syncTo(second);
  setFileHook(nullptr);
  EXPECT_EQ(syncs, 1);
}

TEST_F(RecordLogTest, everythingIsSyncedThatWasFoundOrFollowsACheckpoint) {
  writeRecords({{insert_}, {insert_}});
  RecordLog log(directory_, sizeOf(directory_, "velmora.wal"), 9);
  syncs = 0;
  setFileHook([](const FileEvent& event) {
    if (event.operation == FileOperation::sync) ++syncs;
    return 0;
  });
  log.syncTo(log.end());
  EXPECT_EQ(syncs, 1);
  put("");
  log.wasEmptied();
  append(log, Commands{insert_});  // the file is shorter than the one before
  log.syncTo(log.end());
  log.syncTo(log.end());
  setFileHook(nullptr);
  EXPECT_EQ(syncs, 2);
}

TEST_F(RecordLogTest, aCheckpointSyncsAllRecords) {
  put("");
  RecordLog log(directory_, 0, 7);
  const std::int64_t end = append(log, Commands{insert_});
  fs::remove(path_ / "velmora.wal");
  put("");
  log.wasEmptied();
  EXPECT_EQ(log.size(), 0);
  EXPECT_EQ(log.nextSequence(), 8U);
  log.syncTo(end);
  const std::int64_t next = append(log, Commands{insert_});
  EXPECT_GT(next, end);
  log.syncTo(next);
  EXPECT_EQ(read(8).records.size(), 1U);
}

// Who wrote them may have been killed before they were synced.
TEST_F(RecordLogTest, recordsThatWereFoundAreSynced) {
  const auto ends = writeRecords({{insert_}});
  RecordLog log(directory_, ends[0], 8);
  syncs = 0;
  setFileHook([](const FileEvent& event) {
    if (event.operation == FileOperation::sync) ++syncs;
    return 0;
  });
  log.syncTo(log.end());
  setFileHook(nullptr);
  EXPECT_EQ(syncs, 1);
}

TEST_F(RecordLogTest, theEndIsCountedOnOverACheckpoint) {
  put("");
  RecordLog log(directory_, 0, 7);
  const std::int64_t first = append(log, Commands{insert_});
  EXPECT_EQ(log.end(), first);
  fs::remove(path_ / "velmora.wal");
  put("");
  log.wasEmptied();
  EXPECT_EQ(log.end(), first);
  const std::int64_t second = append(log, Commands{insert_});
  EXPECT_EQ(log.end(), second);
  EXPECT_EQ(second, 2 * first);
}

TEST_F(RecordLogTest, threadsWaitForTheirOwnRecords) {
  put("");
  RecordLog log(directory_, 0, 7);
  std::mutex appending;
  const auto work = [&] {
    for (int i = 0; i < 50; ++i) {
      std::unique_lock lock(appending);
      const std::int64_t end = append(log, Commands{insert_});
      lock.unlock();
      log.syncTo(end);
    }
  };
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) threads.emplace_back(work);
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(read().records.size(), 200U);
}

}  // namespace
}  // namespace velmora
