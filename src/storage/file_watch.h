// Tells whether somebody has changed what an open file is called, or who may use it, without
// looking its name up: the system notes such changes down for who watches a file, and asking
// whether there is such a note takes a quarter of the time.
//
// A watch is good for one file, and only where every change goes through this system; elsewhere,
// and where the system has no more watches, it never says that nothing has happened.
#pragma once

namespace velmora {

class FileWatch {
 public:
  FileWatch() = default;
  ~FileWatch();
  FileWatch(const FileWatch&) = delete;
  FileWatch& operator=(const FileWatch&) = delete;

  // Whether nobody has renamed, replaced or removed the open file, given it another name, or
  // changed its owner or permissions since this was last asked. False the first time.
  bool isQuiet(int file);

 private:
  static constexpr int none = -1;
  static constexpr int impossible = -2;
  int notes_ = none;
};

}  // namespace velmora
