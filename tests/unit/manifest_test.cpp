// The manifest: its text, what is read back of it, and what of a text that was changed.
#include "storage/manifest.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "storage/checkpoint_journal.h"
#include "storage/checksum.h"
#include "storage_fixture.h"

namespace velmora {
namespace {

Manifest someManifest() {
  Manifest manifest;
  manifest.nextSequence = std::numeric_limits<std::uint64_t>::max();
  manifest.second = -5;
  manifest.links = {{"z", "a", "of", "id"}, {"b", "a", "of it", "the id"}};
  manifest.files = {{"a.bin", {std::int64_t{1} << 40, 0xFFFFFFFF}}, {"a name.rel", {0, 0}}};
  return manifest;
}

struct Parsed {
  Manifest manifest;
  std::int64_t fault = -1;
};
Parsed parse(const std::string& text) {
  Parsed parsed;
  parsed.manifest = parseManifest(text, [&](std::int64_t offset) { parsed.fault = offset; });
  return parsed;
}

TEST(Manifest, isReadBack) {
  const std::string text = manifestText(someManifest());
  EXPECT_EQ(text,
            "velmora manifest 1\n"
            "sequence 18446744073709551615\n"
            "second -5\n"
            "link z.of --> a.id\n"
            "link b.of it --> a.the id\n"
            "file a name.rel 0 00000000\n"
            "file a.bin 1099511627776 ffffffff\n"
            "end e34b6d86\n");
  const Parsed parsed = parse(text);
  EXPECT_EQ(parsed.fault, -1);
  EXPECT_EQ(parsed.manifest.nextSequence, someManifest().nextSequence);
  EXPECT_EQ(parsed.manifest.second, -5);
  EXPECT_EQ(parsed.manifest.links, someManifest().links);
  EXPECT_EQ(parsed.manifest.files, someManifest().files);
}

TEST(Manifest, everyOtherTextIsFaulty) {
  const std::string text = manifestText(someManifest());
  for (std::size_t bit = 0; bit < text.size() * 8; ++bit) {
    std::string flipped = text;
    flipped[bit / 8] = static_cast<char>(flipped[bit / 8] ^ 1 << bit % 8);
    EXPECT_GE(parse(flipped).fault, 0) << bit;
  }
  for (std::size_t size = 0; size < text.size(); ++size) {
    EXPECT_GE(parse(text.substr(0, size)).fault, 0) << size;
  }
  EXPECT_EQ(parse(text + "more").fault, static_cast<std::int64_t>(text.size()));
  EXPECT_EQ(parse("velmora manifest 2" + text.substr(18)).fault, 17);
}

// Also where the checksum is right.
TEST(Manifest, hasNothingElse) {
  const std::string text = manifestText(Manifest());
  std::string more = text.substr(0, text.find("end")) + "file x\n";
  char digits[checksumDigits];
  writeChecksum(digits, crc32c(0, more));
  more += "end " + std::string(digits, sizeof digits) + "\n";
  EXPECT_EQ(parse(more).fault, static_cast<std::int64_t>(text.find("end")));
}

TEST(Manifest, whatCanBeReadIs) {
  std::string text = manifestText(someManifest());
  text[text.find("second")] = 'x';
  const Parsed parsed = parse(text);
  EXPECT_EQ(parsed.fault, 49);
  EXPECT_EQ(parsed.manifest.files, someManifest().files);
  EXPECT_EQ(parsed.manifest.second, 0);
}

class SealTest : public StorageTest {};

TEST_F(SealTest, isOfTheWholeFile) {
  const std::string bytes(700'001, 'x');
  write("t.bin", bytes);
  std::size_t count = 0;
  const auto seal = sealOf(directory_, "t.bin", [&](std::size_t some) { count += some; });
  EXPECT_EQ(seal, (Seal{700'001, crc32c(0, bytes)}));
  EXPECT_EQ(count, bytes.size());
  EXPECT_EQ(sealOf(directory_, "u.bin"), std::nullopt);
}

TEST_F(SealTest, growsWithWhatIsRead) {
  std::string bytes;
  for (std::size_t i = 0; i < 700001; ++i) bytes += static_cast<char>(i % 251);
  write("t.bin", bytes);
  File file(directory_, "t.bin", File::Mode::read);
  std::size_t count = 0;
  GrowingSeal growing{{}, [&](std::size_t some) { count += some; }};
  BlockReader reader(file, &growing);
  // Pieces of a size that no block is a multiple of: some bytes are read twice.
  for (std::int64_t offset = 0; !reader.at(offset, 999).empty(); offset += 999) {
  }
  EXPECT_EQ(growing.seal, (Seal{700'001, crc32c(0, bytes)}));
  EXPECT_EQ(count, bytes.size());
  // What does not go on with it is of no account.
  growing.add(growing.seal.size + 1, "x");
  EXPECT_EQ(count, bytes.size());
}

// Blocks are read from the beginning of a page on, whatever is asked for.
TEST_F(SealTest, growsAlsoWhereReadingBeginsWithinAPage) {
  std::string bytes;
  for (std::size_t i = 0; i < 700001; ++i) bytes += static_cast<char>(i % 251);
  write("t.bin", bytes);
  File file(directory_, "t.bin", File::Mode::read);
  for (const std::size_t begin : {1U, 255U, 4095U, 4096U, 4097U, 400'000U, 700'000U}) {
    SCOPED_TRACE(begin);
    std::size_t count = 0;
    GrowingSeal growing{{static_cast<std::int64_t>(begin), 0},
                        [&](std::size_t some) { count += some; }};
    BlockReader reader(file, &growing);
    for (std::size_t at = begin; at < bytes.size(); at += 5000) {
      const std::string_view expected = std::string_view(bytes).substr(at, 5000);
      EXPECT_TRUE(reader.at(static_cast<std::int64_t>(at), 5000) == expected) << at;
    }
    EXPECT_EQ(growing.seal, (Seal{700'001, crc32c(0, std::string_view(bytes).substr(begin))}));
    EXPECT_EQ(count, bytes.size() - begin);
    EXPECT_TRUE(reader.at(static_cast<std::int64_t>(begin - 1), 2) == bytes.substr(begin - 1, 2));
    EXPECT_TRUE(reader.at(700'001, 1).empty());
    EXPECT_TRUE(reader.at(704'097, 1).empty());
  }
}

// A file that a checkpoint has put pieces of into its journal, and what it will be.
class PatchedSealTest : public SealTest {
 protected:
  void patch(std::size_t offset, const std::string& bytes) {
    writer_.put(static_cast<std::int64_t>(offset), bytes);
    expected_.resize(std::max(expected_.size(), offset + bytes.size()));
    expected_.replace(offset, bytes.size(), bytes);
  }
  // It is to have this seal in the end.
  void expectSeal(const Seal& before, const Seal& after) {
    writer_.finish(after.size);
    journal_.flush();
    const Directory pending{directory_.descriptor, &journal_.awaited()};
    const Patch& patch = journal_.awaited().patched.at("t.bin");
    EXPECT_EQ(sealBehind(pending, "t.bin", patch, before), after);
  }
  Seal sealOfExpected() const {
    return {static_cast<std::int64_t>(expected_.size()), crc32c(0, expected_)};
  }

  std::string expected_ = [this] {
    std::string bytes;
    for (int i = 0; bytes.size() < 300'000; ++i) bytes += std::to_string(i);
    write("t.bin", bytes);
    return bytes;
  }();
  CheckpointJournal journal_{directory_};
  PatchWriter writer_{journal_, directory_, "t.bin"};
};

TEST_F(PatchedSealTest, followsFromTheOneBefore) {
  const Seal before = sealOfExpected();
  patch(0, "first");
  patch(70'000, "another");
  patch(100'000, std::string(150'000, 'y'));
  patch(299'995, "what lies over the end");
  patch(expected_.size(), std::string(100'000, 'z'));
  expectSeal(before, sealOfExpected());
}

TEST_F(PatchedSealTest, saysWhetherTheRestIsAsItWas) {
  Seal before = sealOfExpected();
  before.crc ^= 1;
  patch(5, "changed");
  const Seal right = sealOfExpected();
  expectSeal(before, {right.size, right.crc ^ 1});
}

TEST_F(PatchedSealTest, ofAFileThatIsCutOffIsReadAnew) {
  const Seal before = sealOfExpected();
  patch(5, "changed");
  expected_.resize(1000);
  expectSeal(before, sealOfExpected());
}

}  // namespace
}  // namespace velmora
