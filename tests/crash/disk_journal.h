// What an engine has done to the files of its directory, step by step, with what each file held
// afterwards: written by the file hook of the engine's process, read by the test.
#pragma once

#include <string>
#include <vector>

#include "storage/files.h"

namespace velmora::crash {

struct DiskStep {
  FileOperation operation = FileOperation::list;
  std::string name;
  std::string target;      // of a rename
  bool hasFailed = false;  // the hook made it fail
  bool isThere =
      false;          // whether there is a file of that name afterwards, of open, write, truncate
  std::string bytes;  // what it holds then
};

// Takes the steps down; one for each process, whose current directory is the engine's.
class DiskJournal {
 public:
  // To be called before each operation that may change something, with what the hook then answers.
  void add(const FileEvent& event, int wish);
  // The steps since the last time, as bytes.
  std::string take();
  static std::vector<DiskStep> read(const std::string& bytes);

 private:
  void settle();

  std::vector<DiskStep> steps_;
  bool isSettled_ = true;  // whether the last one has its bytes
};

}  // namespace velmora::crash
