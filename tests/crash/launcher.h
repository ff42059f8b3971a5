// A process that forks others for the test, and stays as small as it was when it was forked itself.
//
// A fork copies the page tables of all that a process holds, and afterwards each page that either
// side writes. A sanitised test holds on to hundreds of megabytes that it has freed: forked from
// there, an engine took more time to come into being than for all that it then did.
#pragma once

#include <sys/types.h>

#include <filesystem>

namespace velmora::crash {

class Launcher {
 public:
  // What a forked process does, and never comes back from.
  using Work = void (*)(int socket, const std::filesystem::path& directory);
  explicit Launcher(Work work);
  ~Launcher();
  Launcher(const Launcher&) = delete;
  Launcher& operator=(const Launcher&) = delete;

  // A new process, which is given the socket's other end.
  struct Launched {
    pid_t process = -1;
    int socket = -1;
  };
  Launched launch(const std::filesystem::path& directory) const;
  // Comes back when the process is no more.
  void kill(pid_t process) const;

 private:
  pid_t process_ = -1;
  int control_ = -1;
};

}  // namespace velmora::crash
