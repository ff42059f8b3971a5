// Tells whether somebody has changed what an open file is called, or who may use it, without
// looking its name up: the system notes such changes down for who watches a file, and asking
// whether there is such a note takes a quarter of the time.
//
// A watch is good for one file, and only where every change goes through this system; elsewhere,
// and where the system has no more watches, it never says that nothing has happened. Ending one can
// take the system ten milliseconds, as long as looking up ten thousand names: it begins with the
// question of that number.
#pragma once

namespace velmora {

class FileWatch {
 public:
  FileWatch() = default;
  ~FileWatch();
  FileWatch(const FileWatch&) = delete;
  FileWatch& operator=(const FileWatch&) = delete;

  // Whether nobody has renamed, replaced or removed the open file, given it another name, or
  // changed its owner or permissions since this was last asked. False before the watch has begun.
  bool isQuiet(int file);

  static constexpr int questionsBefore = 10'000;

 private:
  static constexpr int none = -1;
  static constexpr int impossible = -2;
  int questions_ = 0;
  int notes_ = none;
};

}  // namespace velmora
