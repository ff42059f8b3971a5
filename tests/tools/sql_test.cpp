// dump --sql, loaded into the real thing: every table gives the engine's own answers at twelve
// seconds, past and future.
#include <cstdlib>
#include <fstream>
#include <functional>
#include <nlohmann/json.hpp>
#include <sstream>

#include "rich_database.h"
#include "velmora/velmora.hpp"

namespace velmora_tests {
namespace {

using Json = nlohmann::json;

class Sql : public RichDatabase {
 protected:
  // Runs a shell command in the test's directory; what it prints is in "printed".
  int shell(const std::string& command) const {
    const std::string all = "cd '" + at("").string() + "' && " + command + " >printed 2>complaints";
    return WEXITSTATUS(std::system(all.c_str()));
  }

  // The lines that the other system gives for every table at every second.
  static std::string script(const std::string& before, const std::string& select) {
    std::string text = before;
    for (const std::string& second : richSeconds) {
      text += "BEGIN; INSERT INTO \"velmora$clock\" VALUES (" + second + ");\n";
      for (const std::string& table : richTables) {
        text += select + " FROM \"" + table + "\" t;\n";
      }
      text += "ROLLBACK;\n";
    }
    return text;
  }

  // The engine's answers as the other system gives them, a line each.
  void compare(const std::function<void(Json&)>& adapt) const {
    std::istringstream printed(read("printed"));
    velmora::Database database(at("rich").string(), velmora::options(VELMORA_READ_ONLY));
    for (const std::string& second : richSeconds) {
      for (const std::string& table : richTables) {
        std::string line;
        std::getline(printed, line);
        const std::string query = "SELECT * FROM " + table + " AT " + second;
        Json rows = Json::parse(database.run(query).json()).at("data");
        for (Json& row : rows) {
          for (Json& value : row) adapt(value);
        }
        ASSERT_EQ(Json::parse(line, nullptr, false), rows) << query << "\n" << read("complaints");
      }
    }
  }
};

TEST_F(Sql, sqliteGivesTheSameAnswers) {
  if (shell("command -v sqlite3") != 0) GTEST_SKIP() << "no sqlite3";
  makeRich("rich");
  write("dump.sql", outputOf({"dump", "rich", "--sql", "sqlite"}));
  write("ask.sql", script(".mode json\n", "SELECT *"));
  ASSERT_EQ(shell("sqlite3 -bail db <dump.sql && sqlite3 db 'PRAGMA foreign_key_check; PRAGMA "
                  "integrity_check'"),
            0)
      << read("complaints");
  EXPECT_EQ(read("printed"), "ok\n");
  ASSERT_EQ(shell("sqlite3 -bail db <ask.sql | tr -d '\\n' | sed 's/\\]\\[/]\\n[/g'"), 0);
  compare([](Json& value) {
    if (value.is_boolean()) value = value.get<bool>() ? 1 : 0;
  });
}

// With tables that could be distributed, too, which changes the keys alone.
TEST_F(Sql, postgresGivesTheSameAnswers) {
  makeRich("rich");
  write("dump.sql", outputOf({"dump", "rich", "--sql", "postgres"}));
  write("shards.sql", outputOf({"dump", "rich", "--sql", "postgres", "--shard", "places=id",
                                "--shard", "lights=pole"}));
  write("ask.sql", script("", "SELECT json_agg(t)::jsonb"));
  const int code = shell("'" VELMORA_SOURCE_DIR
                         "/tests/tools/postgres.sh' sh -c '"
                         "ask=\"psql -X -q -A -t -v ON_ERROR_STOP=1\";"
                         "$ask -c \"CREATE DATABASE shards\" && $ask -f dump.sql -f ask.sql &&"
                         "$ask -d shards -f shards.sql -f ask.sql'");
  if (code == 77) GTEST_SKIP() << "no PostgreSQL";
  ASSERT_EQ(code, 0) << read("complaints");
  const std::string printed = read("printed");
  EXPECT_EQ(printed.substr(0, printed.size() / 2), printed.substr(printed.size() / 2));
  compare([](Json&) {});
}

TEST_F(Sql, theOtherSystemRefusesAndTellsWhatALinkRefuses) {
  if (shell("command -v sqlite3") != 0) GTEST_SKIP() << "no sqlite3";
  makeRich("rich");
  write("dump.sql", outputOf({"dump", "rich", "--sql", "sqlite"}));
  ASSERT_EQ(shell("sqlite3 -bail db <dump.sql"), 0);
  const auto ask = [this](const std::string& sql) {
    write("ask.sql", "PRAGMA foreign_keys = on;\n" + sql);
    shell("sqlite3 db <ask.sql");
    return read("printed") + read("complaints");
  };
  EXPECT_EQ(ask("INSERT INTO \"stays$rows\" (place) VALUES (9);"),
            "Runtime error near line 2: FOREIGN KEY constraint failed (19)\n");
  EXPECT_EQ(
      ask("INSERT INTO \"Mixed\" (a) VALUES (2147483648);").find("CHECK") != std::string::npos,
      true);
  EXPECT_EQ(ask("INSERT INTO places$rows (name) VALUES ('new'); SELECT max(id) FROM places;"),
            "5\n");
  EXPECT_EQ(ask("SELECT count(*) FROM velmora$link1$states;"), "0\n");
  EXPECT_EQ(ask("DELETE FROM places$rows WHERE id = 3; SELECT \"row$\", number, value FROM "
                "velmora$link1$states;"),
            "1|2|3\n2|1|3\n");
}

TEST_F(Sql, namesTheColumnsToShardBy) {
  make("shop", {"CREATE TABLE users id ApexInt name string(9) 2",
                "CREATE TABLE orders id ApexInt buyer int item int",
                "CREATE TABLE items id ApexInt name string(9)", "LINK orders.buyer --> users.id",
                "LINK orders.item --> items.id"});
  const std::string sql = outputOf(
      {"dump", "shop", "--sql", "postgres", "--shard", "users=id", "--shard", "orders=buyer"});
  EXPECT_NE(sql.find("  PRIMARY KEY (\"buyer\", \"id\")\n"), std::string::npos) << sql;
  EXPECT_EQ(sql.substr(sql.find("COMMIT;")),
            "COMMIT;\nANALYZE;\n\nDO $$ BEGIN\n"
            "IF EXISTS (SELECT FROM pg_proc WHERE proname = 'create_distributed_table') THEN\n"
            "  PERFORM create_reference_table('\"velmora$clock\"');\n"
            "  PERFORM create_reference_table('\"items\"');\n"
            "  PERFORM create_distributed_table('\"orders\"', 'buyer');\n"
            "  PERFORM create_distributed_table('\"users$rows\"', 'id');\n"
            "  PERFORM create_distributed_table('\"users$name\"', 'id');\n"
            "END IF;\nEND $$;\n");
  const auto refused = [this](const std::string& shard) {
    const ToolRun result = run({"dump", "shop", "--sql", "postgres", "--shard", shard});
    EXPECT_EQ(result.code, 2);
    EXPECT_EQ(result.output, "");
    return result.errors;
  };
  EXPECT_EQ(refused("x=id"), "velmora-tool: --shard x=id: there is no such table\n");
  EXPECT_EQ(refused("users=x"), "velmora-tool: --shard users=x: there is no such column\n");
  EXPECT_EQ(refused("users=name"),
            "velmora-tool: --shard users=name: a row with a timed value would have to move\n");
  EXPECT_EQ(refused("users"), "velmora-tool: --shard takes TABLE=COLUMN, not 'users'\n");
  EXPECT_EQ(run({"dump", "shop", "--sql", "sqlite", "--shard", "users=id"}).errors,
            "velmora-tool: --shard goes with --sql postgres\n");
}

}  // namespace
}  // namespace velmora_tests
