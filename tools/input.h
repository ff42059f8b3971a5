// Texts that are read bit by bit: files and standard input. Ctrl-C ends the reading.
#pragma once

#include <string>

namespace tool {

class Input {
 public:
  // "-" is standard input. Throws Failure where there is no such file.
  explicit Input(const std::string& name);
  ~Input();
  Input(const Input&) = delete;
  Input& operator=(const Input&) = delete;

  // The next bytes; empty at the end. Throws Failure.
  std::string read();

 private:
  std::string name_;
  int descriptor_ = 0;
};

}  // namespace tool
