// The verbs that look at a database, and those that check, repair and copy it.
#include <filesystem>
#include <regex>

#include "tool_fixture.h"
#include "velmora/velmora.hpp"

namespace velmora_tests {
namespace {

class Verbs : public ToolFixture {
 protected:
  // At second 1000000000; the colour changes every 30 seconds.
  void makeShop() const {
    make("shop", {"CREATE TABLE lamps id ApexInt name string(20) colour string 3 watts double",
                  "CREATE TABLE rooms lamp int", "LINK rooms.lamp --> lamps.id",
                  "LISTEN lamps.change --> 'it''s' WHERE name = 'a''b' && watts > 2",
                  "INSERT INTO lamps name = 'north' colour = 'red' --> 'green' @ 30 s c",
                  "INSERT INTO lamps name = 'south'", "DELETE FROM lamps WHERE name = 'south'",
                  "INSERT INTO rooms lamp = 1"});
  }
  void expect(const std::vector<std::string>& arguments, int code, const std::string& output,
              const std::string& errors) const {
    const ToolRun result = run(arguments);
    EXPECT_EQ(result.code, code);
    EXPECT_EQ(result.output, output);
    EXPECT_EQ(result.errors, errors);
  }
  // The file with one byte changed.
  void flip(const std::string& name, std::size_t offset) const {
    std::string content = read(name);
    content.at(offset) = static_cast<char>(content.at(offset) ^ 1);
    write(name, content);
  }
};

TEST_F(Verbs, tablesHaveSizesAndTheNextChange) {
  makeShop();
  const std::string output = outputOf({"tables", "shop", "--now", "1000000010"});
  const std::regex wanted(
      "table,rows,deleted,memory,disk,next_change,time\n"
      "lamps,1,1,[1-9][0-9]*,([1-9][0-9]*),1000000030,2001-09-09T01:47:10Z\n"
      "rooms,1,0,[1-9][0-9]*,[1-9][0-9]*,,\n");
  std::smatch found;
  ASSERT_TRUE(std::regex_match(output, found, wanted)) << output;
  std::uintmax_t bytes = 0;
  for (const auto& file : std::filesystem::directory_iterator(at("shop"))) {
    if (file.path().stem() == "lamps") bytes += file.file_size();
  }
  EXPECT_EQ(found[1], std::to_string(bytes));
}

TEST_F(Verbs, schemaMakesTheTablesAgain) {
  makeShop();
  const std::string schema = outputOf({"schema", "shop"});
  EXPECT_EQ(schema,
            "CREATE TABLE lamps id ApexInt name string(20) colour string(60) 3 watts double\n"
            "CREATE TABLE rooms lamp int\n"
            "LINK rooms.lamp --> lamps.id\n"
            "LISTEN lamps.change --> 'it''s' WHERE name = 'a''b' && watts > 2\n");
  EXPECT_EQ(outputOf({"run", "copy", "--create"}, schema), "");
  EXPECT_EQ(outputOf({"schema", "copy"}), schema);
  EXPECT_EQ(outputOf({"schema", "shop", "rooms"}),
            "CREATE TABLE rooms lamp int\nLINK rooms.lamp --> lamps.id\n");
  expect({"schema", "shop", "nix"}, 1, "", "velmora-tool: Unknown table 'nix'\n");
}

TEST_F(Verbs, linksAreListed) {
  makeShop();
  EXPECT_EQ(outputOf({"links", "shop"}),
            "child_table,child_column,parent_table,parent_column\nrooms,lamp,lamps,id\n");
}

TEST_F(Verbs, scheduleTellsWhatChangesWhen) {
  makeShop();
  const std::string names = "second,time,table,row,key,column,value,cycles\n";
  const std::string green = "1000000030,2001-09-09T01:47:10Z,lamps,0,1,colour,green,true\n";
  const std::string red = "1000000060,2001-09-09T01:47:40Z,lamps,0,1,colour,red,true\n";
  EXPECT_EQ(outputOf({"schedule", "shop", "--now", "1000000000"}), names + green);
  EXPECT_EQ(outputOf({"schedule", "shop", "--now", "1000000000", "--until", "+1m"}),
            names + green + red);
  EXPECT_EQ(outputOf({"schedule", "shop", "--now", "1000000000", "--table", "rooms"}), names);
}

TEST_F(Verbs, atAnswersForAnotherSecond) {
  makeShop();
  const auto colourAt = [this](const std::string& time) {
    return outputOf(
        {"at", "shop", time, "SELECT colour FROM lamps;", "--now", "2001-09-09T01:46:40Z"});
  };
  EXPECT_EQ(colourAt("1000000029"), "colour\nred\n");
  EXPECT_EQ(colourAt("+30s"), "colour\ngreen\n");
  EXPECT_EQ(colourAt("2001-09-09T01:47:10"), "colour\ngreen\n");
  EXPECT_EQ(colourAt("2001-09-09 03:47:40+0200"), "colour\nred\n");
}

TEST_F(Verbs, atRefusesWhatHasNoOtherSecond) {
  makeShop();
  const std::string ownSecond =
      "velmora-tool: The command has to be a SELECT without an AT of its own, since the second is "
      "given before it\n";
  expect({"at", "shop", "5", "SELECT * FROM lamps AT 6"}, 2, "", ownSecond);
  expect({"at", "shop", "5", "SHOW TABLES"}, 2, "", ownSecond);
  expect({"at", "shop", "5", "DELETE FROM rooms"}, 2, "",
         "velmora-tool: Only a SELECT has an answer at another second\n");
  expect({"at", "shop", "5", "SELECT nix FROM lamps"}, 1, "",
         "velmora-tool: Unknown column 'nix'\n  SELECT nix FROM lamps AT 5\n         ^\n");
  expect({"at", "shop", "5", "SELECT name FROM lamps WHERE name = '漢\x1b字' nix"}, 1, "",
         "velmora-tool: Unexpected 'nix' after the command\n"
         "  SELECT name FROM lamps WHERE name = '漢␛字' nix\n"
         "                                              ^\n");
}

TEST_F(Verbs, timesAreReadInEveryForm) {
  makeShop();
  const auto secondOf = [this](const std::string& time) {
    const std::string output = outputOf({"stat", "shop", "--format", "line", "--now", time});
    const std::string label = "     second = ";
    EXPECT_EQ(output.substr(0, label.size()), label);
    return output.substr(label.size(), output.find('\n') - label.size());
  };
  EXPECT_EQ(secondOf("0"), "0");
  EXPECT_EQ(secondOf("1700000000"), "1700000000");
  EXPECT_EQ(secondOf("1970-01-02"), "86400");
  EXPECT_EQ(secondOf("2027-01-01T00:00"), "1798761600");
  EXPECT_EQ(secondOf("2027-01-01T00:00:30Z"), "1798761630");
  EXPECT_EQ(secondOf("2027-01-01T00:00-01:00"), "1798765200");
  EXPECT_EQ(secondOf("2024-02-29T23:59:59Z"), "1709251199");
  for (const char* const wrong :
       {"", "x", "5x", "+5", "+5y", "2027-02-29", "2027-1-1", "2027-01-01T24:00",
        "2027-01-01T00:00ZZ", "2027-01-01T", "99999999999999999999", "+9223372036854775807d"}) {
    const ToolRun result = run({"stat", "shop", std::string("--now=") + wrong});
    EXPECT_EQ(result.code, 2) << wrong;
    EXPECT_EQ(result.output, "") << wrong;
  }
}

TEST_F(Verbs, checkFindsDamage) {
  makeShop();
  expect({"check", "shop"}, 0, "", "velmora-tool: shop: no faults\n");
  flip("shop/rooms.bin", 70);
  expect({"check", "shop"}, 1, "file,offset,meaning\nrooms.bin,,the file's checksum is wrong\n",
         "");
  expect({"tables", "shop"}, 3, "",
         "velmora-tool: shop: damaged: 'rooms.bin': the file's checksum is wrong\n"
         "velmora-tool check lists the faults, velmora-tool repair saves what can be read.\n");
  expect({"check", "nowhere"}, 3, "", "velmora-tool: nowhere: there is no such directory\n");
}

TEST_F(Verbs, repairKeepsTheDamagedFilesAndSaysWhatIsLost) {
  makeShop();
  expect({"repair", "shop"}, 0, "", "velmora-tool: shop: no faults, nothing to repair\n");
  const std::string whole = read("shop/rooms.bin");
  flip("shop/rooms.bin", 70);
  const std::string damaged = read("shop/rooms.bin");
  expect({"repair", "shop"}, 0,
         "what,text\nlost,'rooms.bin': the file's checksum is wrong\n"
         "note,The damaged files are kept in 'damaged-1'\n",
         "velmora-tool: shop: repaired\n");
  EXPECT_EQ(read("shop/damaged-1/rooms.bin"), damaged);
  expect({"check", "shop"}, 0, "", "velmora-tool: shop: no faults\n");
}

TEST_F(Verbs, aCutFileIsDamage) {
  makeShop();
  write("shop/lamps.bin", read("shop/lamps.bin").substr(0, 100));
  const ToolRun result = run({"check", "shop", "--format", "jsonl"});
  EXPECT_EQ(result.code, 1);
  EXPECT_EQ(result.output.substr(0, 20), "{\"file\": \"lamps.bin\"");
}

TEST_F(Verbs, backupIsACopyThatHasBeenReadBack) {
  makeShop();
  const std::string tables = "table,rows\nlamps,1\nrooms,1\n";
  expect({"backup", "shop", "copy"}, 0, tables,
         "velmora-tool: The copy in copy has been read back, and is right\n");
  EXPECT_EQ(outputOf({"schema", "copy"}), outputOf({"schema", "shop"}));
  expect({"backup", "shop", "copy"}, 1, "",
         "velmora-tool: copy: The directory of the copy is not empty\n");
  std::filesystem::remove_all(at("shop"));
  expect({"restore", "copy", "shop"}, 0, tables,
         "velmora-tool: The copy in shop has been read back, and is right\n");
  expect({"restore", "copy", "shop"}, 1, "",
         "velmora-tool: shop: The directory of the copy is not empty\n");
}

TEST_F(Verbs, backupNamesWhoHasToHelp) {
  makeShop();
  const velmora::Database holder(at("shop").string());
  const std::string inUse =
      "velmora-tool: shop: in use by process " + std::to_string(getpid()) + " (tools_test)\n";
  expect({"backup", "shop", "copy"}, 3, "",
         inUse + "The program that has it open can copy it meanwhile: velmora_backup.\n");
  EXPECT_FALSE(std::filesystem::exists(at("copy")));
  expect({"check", "shop"}, 3, "", inUse);
  expect({"repair", "shop"}, 3, "", inUse);
}

TEST_F(Verbs, statWorksBesideWhoHasItOpen) {
  makeShop();
  const auto stat = [this] { return outputOf({"stat", "shop", "--now", "1000000100"}); };
  const std::string names =
      "second,files,log,log_records,records,per_second,last_change,process,rows,deleted,memory,"
      "next_change\n";
  EXPECT_TRUE(std::regex_match(
      stat(), std::regex(names + "1000000100,[0-9]+,0,0,8,0,1000000000,,2,1,[0-9]+,1000000120\n")));
  velmora_options options = velmora::options();
  options.clock = [](void*) -> std::int64_t { return 1'000'000'050; };
  velmora::Database holder(at("shop").string(), options);
  for (int i = 0; i < 6; ++i) holder.run("INSERT INTO rooms lamp = 1");
  EXPECT_TRUE(
      std::regex_match(stat(), std::regex(names + "1000000100,[0-9]+,[0-9]+,6,14,0.02,1000000050," +
                                          std::to_string(getpid()) + ",,,,\n")));
  EXPECT_TRUE(
      std::regex_match(outputOf({"stat", "shop", "--watch", "0.01", "--count", "2", "--now", "5"}),
                       std::regex(names + "(5,[0-9]+,[0-9]+,6,14,0,1000000050," +
                                  std::to_string(getpid()) + ",,,,\n){2}")));
}

}  // namespace
}  // namespace velmora_tests
