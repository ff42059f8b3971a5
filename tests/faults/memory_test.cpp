// Small files that could cost much memory: what a start or a checkpoint needs beside the tables
// does not grow with what files claim. Each case runs in a process of its own, whose greatest
// memory is compared with that before it; a sanitiser's memory says nothing about the engine's.
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <functional>
#include <string>

#include "fault_fixture.h"

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define VELMORA_SANITIZED 1
#endif

namespace velmora::faults {
namespace {

namespace fs = std::filesystem;

constexpr long mostKilobytes = 64 * 1024;
constexpr std::uintmax_t threeGigabytes = 3ULL << 30;

class MemoryTest : public FaultTest {
 protected:
  // The growth of the greatest memory of a process that does this, in kilobytes; -1 when it failed.
  static long growthOf(const std::function<bool()>& act) {
    int ends[2];
    if (pipe(ends) != 0) return -1;
    const pid_t child = fork();
    if (child == 0) {
      const long before = greatestMemory();
      long growth = act() ? greatestMemory() - before : -1;
      if (::write(ends[1], &growth, sizeof growth) != sizeof growth) _exit(1);
      _exit(0);
    }
    close(ends[1]);  // so that nothing is read when the other process dies
    long growth = -1;
    if (::read(ends[0], &growth, sizeof growth) != sizeof growth) growth = -1;
    waitpid(child, nullptr, 0);
    close(ends[0]);
    std::printf("             %ld KiB\n", growth);
    return growth;
  }

  static void expectLittle(long growth) {
    EXPECT_GE(growth, 0);
#ifndef VELMORA_SANITIZED
    EXPECT_LT(growth, mostKilobytes);
#endif
  }

  static std::string int32Bytes(std::int32_t value) {
    return {reinterpret_cast<const char*>(&value), sizeof value};
  }

 private:
  static long greatestMemory() {
    rusage usage = {};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
  }
};

TEST_F(MemoryTest, manyRowsThatNameOneLargeTimedValue) {
  constexpr std::int32_t states = 65535;
  ASSERT_EQ(start(), "");
  runAll({"CREATE TABLE t id ApexInt n int 65535"});
  ASSERT_EQ(stop(), "");
  std::string rows = bytesOf("t.bin");
  for (std::int32_t i = 1; i <= 200; ++i) rows += int32Bytes(i) + "\1" + int32Bytes(0);
  write("t.bin", rows);
  std::string rule = int32Bytes(0) + int32Bytes(0) + "\1" + std::string(16, '\1');
  rule += int32Bytes(states);
  for (std::int32_t i = 0; i < states; ++i) rule += std::string(8, '\1') + std::string(60, '5');
  write("t.tmp", rule);
  expectLittle(growthOf([] {
    return start().empty() && succeeded(run("SELECT n FROM t WHERE id = 200")) && stop().empty();
  }));
}

TEST_F(MemoryTest, filesThatAreMostlyHoles) {
  ASSERT_EQ(start(), "");
  runAll({"CREATE TABLE p id ApexInt", "CREATE TABLE c pid int", "LINK c.pid --> p.id",
          "LISTEN c.INSERT --> 'hook'"});
  ASSERT_EQ(stop(), "");
  for (const char* const name :
       {"c-pid_p-id.rel", "velmora.wal", "listeners.bin", "webhooks.bin", "c.del"}) {
    write(name, bytesOf(name));
    fs::resize_file(name, threeGigabytes);
  }
  expectLittle(growthOf([] { return start().empty() && stop().empty(); }));
  EXPECT_EQ(fs::file_size("c-pid_p-id.rel"), 60U);
  EXPECT_EQ(fs::file_size("listeners.bin"), 134U);
  EXPECT_EQ(fs::file_size("webhooks.bin"), 0U);
}

TEST_F(MemoryTest, aCheckpointOfRowsThatAreDeclaredWide) {
  std::string create = "CREATE TABLE t";
  for (int i = 0; i < 500; ++i) create += " c" + std::to_string(i) + " string(65535)";
  ASSERT_EQ(start(), "");
  runAll({create});
  for (int i = 0; i < 20; ++i) runAll({"INSERT INTO t c0 = 'first' c499 = 'last'"});
  const std::string rows = shown({"t"});
  ASSERT_EQ(stop(), "");
  expectLittle(growthOf([] { return start().empty() && succeeded(run("CHECKPOINT")); }));
  ASSERT_EQ(start(), "");
  EXPECT_EQ(shown({"t"}), rows);
  ASSERT_EQ(stop(), "");
  // What the row file alone holds is read cell by cell.
  fs::remove("t.row");
  expectLittle(growthOf([] { return start().empty() && stop().empty(); }));
}

}  // namespace
}  // namespace velmora::faults
