// The files of a database for handles: what a checkpoint writes is read back to the byte, files
// that are not what was written are reported, and nothing is ever half done.
#include "storage/sealed.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "sealed_fixture.h"
#include "storage/record_log.h"

namespace velmora {
namespace {

namespace fs = std::filesystem;

using SealedFilesTest = SealedTest;

std::int64_t append(RecordLog& log, const LoggedCommand& command) {
  RecordText record;
  record.add(command.text, command.values, command.second, command.clock);
  return log.append(record);
}

// A file operation that fails, or at which the process ends.
struct Stop {};
int countdown = -1;
bool isKill = false;

int stopAtCountdown(const FileEvent& event) {
  if (countdown == 0 && isKill) throw Stop();  // and at all that would follow
  if (countdown < 0 || countdown-- > 0) return 0;
  return event.operation == FileOperation::write ? shortWrite : ENOSPC;
}

TEST_F(SealedFilesTest, everythingComesBackToTheByte) {
  Tables tables = someTables();
  save(tables, someListeners(), 7, 1'700'000'123);
  const SealedState state = load();
  EXPECT_EQ(contentOf(state.tables), contentOf(tables));
  EXPECT_EQ(state.links, (std::vector<Relation>{{"child", "all", "of", "id"}}));
  ASSERT_EQ(state.listeners.size(), 3U);
  EXPECT_EQ(state.listeners[0].conditions, someListeners().at("all").begin()->conditions);
  EXPECT_EQ(state.nextSequence, 7U);
  EXPECT_EQ(state.second, 1'700'000'123);
  EXPECT_EQ(state.tables.at("all").primaryKeyColumn, "id");
  EXPECT_EQ(state.tables.at("all").findLive("4", 0), 3);
  for (const auto& [name, table] : state.tables) EXPECT_FALSE(table.isDirty()) << name;
  EXPECT_EQ(bytesOf("velmora.wal"), "");
}

TEST_F(SealedFilesTest, manyRowsComeBack) {
  Tables tables;
  Table& table = addTable(tables, "t", {{"n", "int"}, {"s", "string", 2}, {"f", "float"}});
  for (int i = 0; i < 5000; ++i) {
    addRow(table, {i % 3 == 0 ? Value() : Value(std::int64_t{i}), std::to_string(i),
                   static_cast<double>(static_cast<float>(i) / 7000)});
    if (i % 5 == 0) table.set(static_cast<std::size_t>(i), 1, timed({"a", std::to_string(i)}), 0);
  }
  save(tables);
  EXPECT_TRUE(contentOf(load().tables) == contentOf(tables));
}

TEST_F(SealedFilesTest, changesOfFewRowsArePatched) {
  Tables tables = someTables();
  save(tables);
  const auto identity = identityOf(directory_, "all.bin");
  tables.at("all").setValue(1, 1, std::int64_t{12});
  tables.at("all").setValue(2, 7, std::string(80, 'q'));
  tables.at("all").set(3, 6, timed({"new", "states"}), 0);
  tables.at("all").setDeleted(0, true);
  addRow(tables.at("all"), {std::int64_t{99}});
  save(tables);
  EXPECT_EQ(identityOf(directory_, "all.bin"), identity);
  EXPECT_EQ(contentOf(load().tables), contentOf(tables));
}

TEST_F(SealedFilesTest, theFirstNullOfATableIsKept) {
  Tables tables;
  Table& table = addTable(tables, "t", {{"n", "int"}});
  for (int i = 0; i < 100; ++i) addRow(table, {std::int64_t{i}});
  save(tables);
  EXPECT_FALSE(exists("t.exact"));
  table.setValue(50, 0, std::int64_t{-1});
  save(tables);
  EXPECT_FALSE(exists("t.exact"));
  table.setValue(60, 0, Value());
  save(tables);
  EXPECT_TRUE(exists("t.exact"));
  EXPECT_EQ(contentOf(load().tables), contentOf(tables));
  table.setValue(60, 0, std::int64_t{60});
  save(tables);
  EXPECT_EQ(contentOf(load().tables), contentOf(tables));
  table.markAllDirty();
  save(tables);
  EXPECT_FALSE(exists("t.exact"));
  EXPECT_EQ(contentOf(load().tables), contentOf(tables));
}

TEST_F(SealedFilesTest, aLoadedDatabaseGoesOn) {
  Tables first = someTables();
  save(first, someListeners());
  Tables tables = tablesOf(load());
  const Files before = files();
  save(tables, someListeners());
  EXPECT_EQ(files(), before);
  tables.at("wide").setValue(0, 0, std::string("changed"));
  save(tables, someListeners());
  EXPECT_EQ(contentOf(load().tables), contentOf(tables));
}

TEST_F(SealedFilesTest, cleanTablesKeepTheirFiles) {
  Tables tables = someTables();
  save(tables, someListeners());
  std::map<std::string, std::uint64_t> numbers;
  for (const auto& [name, bytes] : files()) {
    numbers[name] = identityOf(directory_, name.c_str())->inode;
  }
  addRow(tables.at("child"), {std::int64_t{2}});
  save(tables, someListeners());
  for (const auto& [name, bytes] : files()) {
    const bool isNew = name == "velmora.wal";
    EXPECT_EQ(identityOf(directory_, name.c_str())->inode == numbers.at(name), !isNew) << name;
  }
}

// As a copy made of links has one.
TEST_F(SealedFilesTest, aSecondNameOfTheManifestKeepsTheOldOne) {
  Tables tables = someTables();
  save(tables);
  const std::string old = bytesOf("velmora.manifest");
  const fs::path manifest = path_ / "velmora.manifest";
  const fs::path copy = path_ / "copy";
  fs::create_hard_link(manifest, copy);
  addRow(tables.at("child"), {std::int64_t{2}});
  save(tables);
  EXPECT_NE(bytesOf("velmora.manifest"), old);
  EXPECT_EQ(bytesOf("copy"), old);
  EXPECT_EQ(contentOf(load().tables), contentOf(tables));
}

TEST_F(SealedFilesTest, whatIsDroppedIsRemoved) {
  Tables tables = someTables();
  save(tables, someListeners());
  tables.erase("child");
  tables.erase("wide");
  save(tables);
  EXPECT_EQ(contentOf(load().tables), contentOf(tables));
  for (const char* const name : {"child.bin", "child.del", "wide.bin", "wide.row", "wide.tmp",
                                 "wide.exact", "child-of_all-id.rel", "listeners.bin"}) {
    EXPECT_FALSE(exists(name)) << name;
  }
  tables.erase("all");
  save(tables);
  EXPECT_FALSE(exists("webhooks.bin"));
  EXPECT_EQ(contentOf(load().tables), "empty\nn int 0 60\n");
}

TEST_F(SealedFilesTest, aTableMadeAgainIsAnother) {
  Tables tables = someTables();
  save(tables);
  Table& wide = addTable(tables, "wide", {{"n", "int"}});
  addRow(wide, {std::int64_t{5}});
  save(tables);
  EXPECT_EQ(contentOf(load().tables), contentOf(tables));
  EXPECT_FALSE(exists("wide.row"));
  EXPECT_FALSE(exists("wide.exact"));
}

TEST_F(SealedFilesTest, theScheduleIsThatOfTheTimedCells) {
  Tables tables;
  Table& table = addTable(tables, "t", {{"s", "string", 2}});
  addRow(table, {"x"});
  table.set(0, 0, timed({"a", "b"}), 0);
  save(tables);
  table.set(0, 0, timed({"c", "d"}, false), 0);
  save(tables);
  std::vector<WebhookTask> tasks;
  Storage::readWebhooks([&](WebhookTask task) { tasks.push_back(std::move(task)); }, directory_);
  ASSERT_EQ(tasks.size(), 1U);
  EXPECT_EQ(tasks[0].value, "d");
  EXPECT_EQ(tasks[0].fireTime, 1'700'000'010);
}

TEST_F(SealedFilesTest, theScheduleStaysAsLongAsTheTimedCellsDo) {
  Tables tables;
  Table& table = addTable(tables, "t", {{"s", "string", 2}, {"n", "int", 2}});
  for (int i = 0; i < 3; ++i) addRow(table, {"x", std::int64_t{i}});
  table.set(0, 0, timed({"a", "b"}), 0);
  save(tables);
  const auto isKeptBehind = [&](auto change) {
    change(tables.at("t"));
    const auto before = identityOf(directory_, "webhooks.bin");
    save(tables);
    const bool isKept = identityOf(directory_, "webhooks.bin") == before;
    const std::string bytes = bytesOf("webhooks.bin");
    tables = tablesOf(load());
    tables.at("t").markAllDirty();
    save(tables);
    EXPECT_EQ(bytesOf("webhooks.bin"), bytes);
    return isKept;
  };
  EXPECT_TRUE(isKeptBehind([](Table& t) { t.setValue(0, 1, std::int64_t{7}); }));
  EXPECT_TRUE(isKeptBehind([](Table& t) { t.setValue(1, 0, Value()); }));
  EXPECT_TRUE(isKeptBehind([](Table& t) { t.setDeleted(2, true); }));
  EXPECT_TRUE(isKeptBehind([](Table& t) { addRow(t, {"y", std::int64_t{9}}); }));
  EXPECT_FALSE(isKeptBehind([](Table& t) { t.set(1, 1, timed({"1", "2"}), 0); }));
  EXPECT_FALSE(isKeptBehind([](Table& t) { t.set(1, 1, timed({"1", "3"}), 0); }));
  EXPECT_FALSE(isKeptBehind([](Table& t) { t.setValue(1, 1, std::int64_t{1}); }));
  EXPECT_FALSE(isKeptBehind([](Table& t) { t.restore(3, 0, timed({"c", "d"}), 0); }));
  EXPECT_FALSE(isKeptBehind([](Table& t) { t.setDeleted(0, true); }));
  EXPECT_FALSE(isKeptBehind([](Table& t) { t.setDeleted(0, false); }));
  EXPECT_FALSE(isKeptBehind([](Table& t) { t.removeLastRow(); }));
}

TEST_F(SealedFilesTest, theManifestIsForPeople) {
  Tables tables;
  addRow(addTable(tables, "p", {{"id", "ApexInt"}}), {std::int64_t{1}});
  tables.at("p").setUpPrimaryKeyMap("id", 0);
  Table& child = addTable(tables, "c", {{"of", "int"}});
  child.links.push_back({"of", "p", "id"});
  save(tables, {}, 12, 1'700'000'000);
  EXPECT_EQ(bytesOf("velmora.manifest"),
            "velmora manifest 1\n"
            "sequence 12\n"
            "second 1700000000\n"
            "link c.of --> p.id\n"
            "file c-of_p-id.rel 60 bb4fa389\n"
            "file c.bin 75 9ce00475\n"
            "file c.del 0 00000000\n"
            "file p.bin 79 757f16e6\n"
            "file p.del 1 527d5351\n"
            "end d43468d7\n");
}

// What a sanitizer finds in an open it finds in some of them.
#ifdef __SANITIZE_ADDRESS__
constexpr std::size_t bitStep = 11;
#else
constexpr std::size_t bitStep = 1;
#endif

TEST_F(SealedFilesTest, everyFlippedBitIsReported) {
  Tables tables;
  Table& parent = addTable(tables, "p", {{"id", "ApexInt"}, {"b", "bool", 1}});
  addRow(parent, {std::int64_t{1}, true});
  addRow(parent, {std::int64_t{2}, Value()});
  parent.set(0, 1, timed({"true"}), 0);
  parent.setUpPrimaryKeyMap("id", 0);
  Table& child = addTable(tables, "c", {{"of", "int"}});
  addRow(child, {std::int64_t{1}});
  child.links.push_back({"of", "p", "id"});
  save(tables);
  parent.setValue(1, 1, true);
  addRow(parent, {std::int64_t{3}, Value()});
  save(tables, {{"c", {{"c", "INSERT", "x", {{"", "of", "1", "=", 'o'}}}}}});
  ASSERT_EQ(bytesOf("p.exact").substr(0, 8), "velmexc2");
  ASSERT_EQ(files().size(), 12U);
  for (const auto& [name, bytes] : files()) {
    for (std::size_t bit = 0; bit < bytes.size() * 8; bit += bitStep) {
      std::string flipped = bytes;
      flipped[bit / 8] = static_cast<char>(flipped[bit / 8] ^ 1 << bit % 8);
      fs::remove(path_ / name);
      write(name, flipped);
      EXPECT_FALSE(tryToLoad().faults.empty()) << name << " bit " << bit;
    }
    fs::remove(path_ / name);
    write(name, bytes);
  }
}

TEST_F(SealedFilesTest, filesThatAreMissingLongerOrShorterAreReported) {
  Tables tables;
  addRow(addTable(tables, "t", {{"s", "string"}}), {std::string(70, 'x')});
  save(tables);
  const auto faultsWith = [&](const std::string& name, const std::string& bytes) {
    const std::string before = bytesOf(name);
    write(name, bytes);
    const auto faults = tryToLoad().faults;
    write(name, before);
    return faults;
  };
  using Faults = std::vector<std::string>;
  EXPECT_EQ(faultsWith("t.bin", bytesOf("t.bin") + "x"),
            (Faults{"t.bin 135: the file has 136 bytes instead of 135"}));
  EXPECT_EQ(faultsWith("t.del", ""), (Faults{"t.del 0: the file has 0 bytes instead of 1"}));
  EXPECT_EQ(faultsWith("t.del", "\1"), (Faults{"t.del -1: the file's checksum is wrong"}));
  EXPECT_EQ(faultsWith("t.exact", "velmexct"),
            (Faults{"t.exact 8: the file has 8 bytes instead of 99",
                    "t.exact -1: Corrupt file: t.exact"}));
  fs::remove(path_ / "t.bin");
  EXPECT_EQ(tryToLoad().faults,
            (Faults{"t.bin -1: the file is missing", "t.bin -1: Failed to open file: t.bin"}));
  fs::remove(path_ / "velmora.manifest");
  EXPECT_EQ(tryToLoad().faults, (Faults{"velmora.manifest -1: the file is missing"}));
}

TEST_F(SealedFilesTest, whatIsDamagedIsWrittenAnew) {
  Tables tables = someTables();
  save(tables, someListeners());
  for (const auto& [name, bytes] : files()) {
    if (bytes.size() < 3) continue;
    const Files before = files();
    std::string flipped = bytes;
    flipped[bytes.size() / 2] = static_cast<char>(flipped[bytes.size() / 2] ^ 1);
    write(name, flipped);
    Loaded loaded = tryToLoad();
    EXPECT_FALSE(loaded.faults.empty()) << name;
    ASSERT_TRUE(loaded.state) << name;
    ListenerMap listeners;
    for (const Listener& each : loaded.state->listeners) listeners[each.tableName].insert(each);
    Tables repaired = tablesOf(std::move(*loaded.state));
    if (repaired.contains("all")) {
      saveSealed(repaired, {listeners, 1, 1'700'000'000, true}, directory_, {});
      EXPECT_EQ(contentOf(load().tables), contentOf(repaired)) << name;
    }
    putFiles(before);
  }
}

// Ends the process at each file operation of a checkpoint.
TEST_F(SealedFilesTest, aKilledCheckpointLeavesTheOldStateOrTheNew) {
  Tables tables = someTables();
  save(tables, someListeners());
  const std::string oldContent = contentOf(load());
  const Files before = files();
  bool hasEnded = false;
  std::set<std::string> found;
  for (int step = 0; !hasEnded; ++step) {
    putFiles(before);
    write("velmora.wal", "records");
    Tables changed = tablesOf(load());
    changed.erase("wide");
    changed.at("all").setValue(0, 7, std::string(99, 'k'));
    addRow(changed.at("child"), {std::int64_t{2}});
    addTable(changed, "more", {{"s", "string", 2}});
    addRow(changed.at("more"), {"m"});
    countdown = step;
    isKill = true;
    setFileHook(stopAtCountdown);
    try {
      save(changed, {}, 9);
      hasEnded = true;
    } catch (const Stop&) {
    }
    setFileHook(nullptr);
    const std::string content = contentOf(load());
    EXPECT_TRUE(content == oldContent || contentOf(changed) == contentOf(load().tables)) << step;
    const bool isNew = content != oldContent;
    found.insert(isNew ? "new" : "old");
    finishSealed(directory_);
    EXPECT_EQ(contentOf(load()), content) << step;
    EXPECT_EQ(bytesOf("velmora.wal"), isNew ? "" : "records") << step;
    for (const auto& [name, bytes] : files()) {
      EXPECT_FALSE(name.ends_with(".checkpoint") || name == "velmora.ckpt") << step << name;
      EXPECT_FALSE(isNew && name.starts_with("wide")) << step << name;
    }
  }
  EXPECT_EQ(found.size(), 2U);
}

// Lets each file operation of a checkpoint fail.
TEST_F(SealedFilesTest, aFailedCheckpointLeavesTheOldStateOrTheNew) {
  Tables tables = someTables();
  save(tables, someListeners());
  const std::string oldContent = contentOf(load());
  const Files before = files();
  bool hasEnded = false;
  for (int step = 0; !hasEnded; ++step) {
    putFiles(before);
    Tables changed = tablesOf(load());
    changed.erase("wide");
    changed.at("all").setValue(0, 7, std::string(99, 'k'));
    addTable(changed, "more", {{"s", "string", 2}});
    countdown = step;
    isKill = false;
    bool hasFailed = false;
    setFileHook(stopAtCountdown);
    try {
      save(changed, {}, 9);
      hasEnded = countdown >= 0;
    } catch (const Failure& failure) {
      hasFailed = true;
      const bool isRead = std::string(failure.what()).find("read") != std::string::npos;
      EXPECT_TRUE(failure.code == Code::full || isRead) << step << failure.what();
    }
    setFileHook(nullptr);
    EXPECT_EQ(contentOf(load()) == oldContent, hasFailed) << step;
    // The next one does all of it.
    save(changed, {}, 9);
    EXPECT_EQ(contentOf(load().tables), contentOf(changed)) << step;
  }
}

// What is logged behind a checkpoint that counts and could not be completed is not lost with the
// log that the checkpoint was to replace.
TEST_F(SealedFilesTest, recordsBehindAnIncompleteCheckpointAreKept) {
  Tables tables = someTables();
  save(tables);
  RecordLog log(directory_, 0, 1);
  const LoggedCommand command{"DELETE FROM t", 5, std::nullopt};
  append(log, command);
  setFileHook(
      [](const FileEvent& event) { return event.operation == FileOperation::rename ? EIO : 0; });
  tables.at("all").setValue(0, 7, std::string("changed"));
  save(tables, {}, 2);
  setFileHook(nullptr);
  log.wasEmptied();
  log.syncTo(append(log, command));
  EXPECT_TRUE(exists("velmora.wal.checkpoint"));
  for (const bool isFinished : {false, true}) {
    if (isFinished) finishSealed(directory_);
    EXPECT_EQ(contentOf(load().tables), contentOf(tables));
    RecordLogReader reader(directory_, load().nextSequence);
    EXPECT_TRUE(reader.next());
    EXPECT_FALSE(reader.next());
    EXPECT_EQ(reader.fault(), std::nullopt);
  }
  EXPECT_FALSE(exists("velmora.wal.checkpoint"));
}

TEST_F(SealedFilesTest, aCheckpointThatCannotBeTakenBackIsInDoubt) {
  Tables tables = someTables();
  save(tables);
  tables.at("all").setValue(0, 7, std::string("changed"));
  setFileHook([](const FileEvent& event) {
    const bool isJournal = std::string_view(event.name) == "velmora.ckpt";
    const bool isRefused =
        event.operation == FileOperation::sync || event.operation == FileOperation::truncate;
    return isJournal && isRefused ? EIO : 0;
  });
  EXPECT_THROW(save(tables), CheckpointInDoubt);
  setFileHook(nullptr);
  RecordLog log(directory_, 0, 1);
  log.fail();
  EXPECT_TRUE(log.hasFailed());
  save(tables);
  EXPECT_EQ(contentOf(load().tables), contentOf(tables));
}

TEST_F(SealedFilesTest, aCheckpointCanBeStopped) {
  Tables tables = someTables();
  save(tables);
  const Files before = files();
  tables.at("all").setValue(0, 7, std::string("changed"));
  const ListenerMap none;
  const auto stop = [](std::uint64_t done, std::uint64_t total) {
    EXPECT_EQ(total, 4U);
    return done < 2;
  };
  try {
    saveSealed(tables, {none, 2, 0}, directory_, stop);
    ADD_FAILURE();
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.code, Code::interrupted);
  }
  EXPECT_EQ(files(), before);
  try {
    loadSealed(directory_, {}, [](std::uint64_t, std::uint64_t) { return false; });
    ADD_FAILURE();
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.code, Code::interrupted);
  }
}

TEST_F(SealedFilesTest, aDirectoryIsToldByWhatItHolds) {
  EXPECT_EQ(contentsOf(directory_), Contents::nothing);
  write("velmora.wal", "");
  EXPECT_EQ(contentsOf(directory_), Contents::plain);
  Tables tables = someTables();
  save(tables);
  EXPECT_EQ(contentsOf(directory_), Contents::sealed);
}

TEST_F(SealedFilesTest, plainFilesAreLoadedAndSealed) {
  Tables tables;
  Table& table = addTable(tables, "t", {{"id", "ApexInt"}, {"f", "float"}, {"s", "string", 2}});
  addRow(table, {std::int64_t{1}, 0.1, "x"});
  addRow(table, {std::int64_t{2}, static_cast<double>(1e-9F), "y"});
  table.set(1, 2, timed({"a", "b"}), 0);
  Log log(directory_);
  Storage::saveCheckpoint(tables, 0, directory_, log);
  std::vector<std::string> faults;
  const auto report = [&](const std::string& file, std::int64_t, const std::string& meaning) {
    faults.push_back(file + ": " + meaning);
  };
  SealedState state = loadPlain(directory_, report, {});
  EXPECT_EQ(faults, std::vector<std::string>());
  EXPECT_EQ(contentOf(state.tables), contentOf(tables));
  Tables loaded = std::move(state.tables);
  const auto identity = identityOf(directory_, "t.bin");
  save(loaded);
  EXPECT_EQ(identityOf(directory_, "t.bin"), identity);
  EXPECT_EQ(contentOf(load().tables), contentOf(tables));
}

TEST_F(SealedFilesTest, whatAPlainStartWouldLeaveOutIsReported) {
  write("t.bin", "");
  write("t.del", std::string(1, '\0'));
  write("velmora.wal", "CREATE TABLE t n int #TIME# 1700000000\n");
  std::vector<std::string> faults;
  loadPlain(directory_,
            [&](const std::string& file, std::int64_t, const std::string& meaning) {
              faults.push_back(file + ": " + meaning);
            },
            {});
  EXPECT_EQ(faults, (std::vector<std::string>{
                        "t.bin: the file has no table header",
                        "velmora.wal: the log holds commands of the plain functions"}));
}

TEST_F(SealedFilesTest, unsealedFilesAreThePlainFunctions) {
  Tables tables;
  Table& table = addTable(tables, "t", {{"id", "ApexInt"}, {"s", "string", 2}});
  addRow(table, {std::int64_t{1}, "x"});
  table.set(0, 1, timed({"a", "b"}), 0);
  save(tables, someListeners());
  EXPECT_TRUE(fitsPlainFiles(tables));
  addRow(table, {std::int64_t{2}, "y"});
  unseal(tables, {someListeners(), 5, 0}, directory_);
  EXPECT_EQ(contentsOf(directory_), Contents::plain);
  EXPECT_FALSE(exists("velmora.manifest"));
  EXPECT_FALSE(exists("t.exact"));
  EXPECT_EQ(contentOf(loadPlain(directory_, {}, {}).tables), contentOf(tables));
}

TEST_F(SealedFilesTest, whatDoesNotFitPlainFilesIsTold) {
  const auto fits = [](const Column& column, const Value& value) {
    Tables tables;
    addRow(addTable(tables, "t", {column}), {value});
    return fitsPlainFiles(tables);
  };
  EXPECT_TRUE(fits({"n", "int"}, std::int64_t{1}));
  EXPECT_FALSE(fits({"n", "int"}, Value()));
  EXPECT_FALSE(fits({"b", "bool"}, Value()));
  EXPECT_FALSE(fits({"l", std::string(longType)}, std::int64_t{1}));
  EXPECT_TRUE(fits({"s", "string"}, Value()));
  EXPECT_FALSE(fits({"s", "string"}, "#/#?"));
  EXPECT_TRUE(fits({"s", "string"}, std::string(60, 'x')));
  EXPECT_FALSE(fits({"s", "string"}, std::string(61, 'x')));
  EXPECT_TRUE(fits({"f", "float"}, 0.1));
  EXPECT_TRUE(fits({"f", "float"}, Value()));
  EXPECT_FALSE(fits({"f", "float"}, static_cast<double>(1e-9F)));
}

class SealedCopyTest : public SealedTest {
 protected:
  SealedCopyTest() {
    fs::create_directory(path_ / "copy");
    to_.descriptor = open((path_ / "copy").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  }
  ~SealedCopyTest() override { close(to_.descriptor); }

  Directory to_;
};

TEST_F(SealedCopyTest, aCopyIsTheDatabase) {
  Tables tables = someTables();
  save(tables, someListeners(), 7);
  RecordLog log(directory_, 0, 7);
  const LoggedCommand command{"DELETE FROM t", 5, std::nullopt};
  const std::int64_t size = append(log, command);
  append(log, command);
  copySealed(directory_, size, to_, {});
  const std::string content = contentOf(load());
  EXPECT_EQ(contentOf(loadSealed(to_, {}, {})), content);
  EXPECT_EQ(sizeOf(to_, "velmora.wal"), size);
}

TEST_F(SealedCopyTest, aDamagedFileIsNotCopied) {
  Tables tables = someTables();
  save(tables);
  write("all.bin", bytesOf("all.bin").substr(1));
  try {
    copySealed(directory_, 0, to_, {});
    ADD_FAILURE();
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.code, Code::corrupt);
    EXPECT_STREQ(failure.what(), "The file is not what was written: all.bin");
  }
  EXPECT_EQ(contentsOf(to_), Contents::plain);
}

TEST_F(SealedCopyTest, eachFailedOperationLeavesNoManifest) {
  Tables tables = someTables();
  save(tables);
  bool hasEnded = false;
  for (int step = 0; !hasEnded; ++step) {
    for (const auto& entry : fs::directory_iterator(path_ / "copy")) fs::remove(entry.path());
    countdown = step;
    isKill = false;
    setFileHook(stopAtCountdown);
    try {
      copySealed(directory_, 0, to_, {});
      hasEnded = countdown >= 0;
    } catch (const Failure&) {
    }
    setFileHook(nullptr);
  }
  EXPECT_EQ(contentOf(loadSealed(to_, {}, {}).tables), contentOf(tables));
}

}  // namespace
}  // namespace velmora
