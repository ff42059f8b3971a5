// See manifest.h.
#include "manifest.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <stdexcept>

#include "checksum.h"

namespace velmora {
namespace {

constexpr std::string_view firstLine = "velmora manifest 1";
constexpr std::string_view sequenceWord = "sequence ";
constexpr std::string_view secondWord = "second ";
constexpr std::string_view linkWord = "link ";
constexpr std::string_view arrow = " --> ";
constexpr std::string_view fileWord = "file ";
constexpr std::string_view endWord = "end ";
constexpr std::int64_t blockSize = 64 * 1024;  // of what is sealed anew

std::string crcText(std::uint32_t crc) {
  char digits[checksumDigits];
  writeChecksum(digits, crc);
  return {digits, sizeof digits};
}

template <typename Number>
bool readNumber(std::string_view text, Number& number, int base = 10) {
  const char* const end = text.data() + text.size();
  const auto read = std::from_chars(text.data(), end, number, base);
  return read.ec == std::errc() && read.ptr == end;
}

// Takes the last word off the line.
std::string_view takeWord(std::string_view& line) {
  const std::size_t blank = line.rfind(' ');
  if (blank == std::string_view::npos) return {};
  const std::string_view word = line.substr(blank + 1);
  line = line.substr(0, blank);
  return word;
}

void readFileLine(std::string_view line, Manifest& manifest) {
  Seal seal;
  const bool hasCrc = readNumber(takeWord(line), seal.crc, 16);
  if (hasCrc && readNumber(takeWord(line), seal.size)) manifest.files[std::string(line)] = seal;
}

void readLinkLine(std::string_view line, Manifest& manifest) {
  const std::size_t middle = line.find(arrow);
  if (middle == std::string_view::npos) return;
  const std::string_view child = line.substr(0, middle);
  const std::string_view parent = line.substr(middle + arrow.size());
  // A table's name has no point.
  const std::size_t childPoint = child.find('.');
  const std::size_t parentPoint = parent.find('.');
  if (childPoint == std::string_view::npos || parentPoint == std::string_view::npos) return;
  manifest.links.push_back(
      {std::string(child.substr(0, childPoint)), std::string(parent.substr(0, parentPoint)),
       std::string(child.substr(childPoint + 1)), std::string(parent.substr(parentPoint + 1))});
}

void readLine(std::string_view line, Manifest& manifest) {
  const auto rest = [&](std::string_view word) { return line.substr(word.size()); };
  if (line.starts_with(sequenceWord)) readNumber(rest(sequenceWord), manifest.nextSequence);
  if (line.starts_with(secondWord)) readNumber(rest(secondWord), manifest.second);
  if (line.starts_with(linkWord)) readLinkLine(rest(linkWord), manifest);
  if (line.starts_with(fileWord)) readFileLine(rest(fileWord), manifest);
}

}  // namespace

std::string manifestText(const Manifest& manifest) {
  std::string text(firstLine);
  text.append("\n").append(sequenceWord).append(std::to_string(manifest.nextSequence));
  text.append("\n").append(secondWord).append(std::to_string(manifest.second)).append("\n");
  for (const Relation& link : manifest.links) {
    text.append(linkWord).append(link.childTable).append(".").append(link.childColumn);
    text.append(arrow).append(link.parentTable).append(".").append(link.parentColumn).append("\n");
  }
  for (const auto& [name, seal] : manifest.files) {
    text.append(fileWord).append(name).append(" ").append(std::to_string(seal.size));
    text.append(" ").append(crcText(seal.crc)).append("\n");
  }
  const std::uint32_t crc = crc32c(0, text);
  return text.append(endWord).append(crcText(crc)).append("\n");
}

Manifest parseManifest(std::string_view text,
                       const std::function<void(std::int64_t offset)>& fault) {
  Manifest manifest;
  for (std::string_view rest = text; !rest.empty();) {
    const std::size_t size = std::min(rest.find('\n'), rest.size());
    readLine(rest.substr(0, size), manifest);
    rest.remove_prefix(std::min(size + 1, rest.size()));
  }
  const std::string expected = manifestText(manifest);
  if (text != expected) {
    const auto different =
        std::mismatch(text.begin(), text.end(), expected.begin(), expected.end());
    fault(different.first - text.begin());
  }
  return manifest;
}

std::optional<Seal> sealOf(const Directory& directory, const std::string& name,
                           const CountBytes& count) {
  File file(directory, name, File::Mode::read);
  if (!file.isOpen() && errno == ENOENT) return std::nullopt;
  GrowingSeal growing{{}, count};
  BlockReader reader(file, &growing);
  while (!reader.at(growing.seal.size, 1).empty()) {
  }
  return growing.seal;
}

std::optional<Seal> sealBehind(const Directory& directory, const std::string& name,
                               const Patch& patch, const Seal& seal) {
  File before(Directory{directory.descriptor}, name, File::Mode::read);
  File after(directory, name, File::Mode::read);
  const bool isKnown = before.isOpen() && after.isOpen() && before.size() == seal.size;
  if (!isKnown || patch.fileSize < seal.size) return sealOf(directory, name);
  BlockReader readerBefore(before);
  BlockReader readerAfter(after);
  Seal changed = seal;
  // Calls use(offset, size) for the blocks from there to the end.
  const auto forEachBlock = [](std::int64_t offset, std::int64_t end, auto use) {
    for (; offset < end; offset += blockSize) {
      use(offset, static_cast<std::size_t>(std::min(blockSize, end - offset)));
    }
  };
  for (const Piece& piece : patch.pieces) {
    const std::int64_t end = std::min(piece.offset + piece.size, seal.size);
    forEachBlock(piece.offset, end, [&](std::int64_t offset, std::size_t size) {
      const std::uint32_t difference =
          crc32c(0, readerBefore.at(offset, size)) ^ crc32c(0, readerAfter.at(offset, size));
      const std::int64_t behind = seal.size - offset - static_cast<std::int64_t>(size);
      changed.crc ^= crc32cBehind(difference, static_cast<std::uint64_t>(behind));
    });
  }
  forEachBlock(seal.size, patch.fileSize, [&](std::int64_t offset, std::size_t size) {
    changed.crc = crc32c(changed.crc, readerAfter.at(offset, size));
  });
  changed.size = patch.fileSize;
  return changed;
}

}  // namespace velmora
