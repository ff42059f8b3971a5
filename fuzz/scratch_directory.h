// A directory of the fuzzer's own, in memory where the system has such a file system, so that an
// input costs microseconds. The engine runs in it as the current directory; the fuzzer's own
// relative paths (corpora, findings) stay valid, because it is left again after each input.
#pragma once

#include <map>
#include <string>
#include <string_view>

namespace velmora::fuzz {

using Files = std::map<std::string, std::string>;

// Makes the directory at its first use in a process and enters it, empty; leaves it when destroyed.
class ScratchDirectory {
 public:
  ScratchDirectory();
  ~ScratchDirectory();
  ScratchDirectory(const ScratchDirectory&) = delete;
  ScratchDirectory& operator=(const ScratchDirectory&) = delete;

  static void clear();
  static void write(const std::string& name, std::string_view bytes);
  static void write(const Files& files);
  // All files with their bytes.
  static Files read();
};

}  // namespace velmora::fuzz
