// The process in which a golden script's engine lives, so that a script can kill it for real.
//
// It is forked before the engine is touched, works in a directory of its own, and answers one
// request at a time over a socket. What the engine prints goes to a file beside the directory.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <filesystem>
#include <string>

#include "golden_script.h"

namespace velmora::golden {

class Worker {
 public:
  // Forks. `outputFile` is created when missing and appended to.
  Worker(const std::filesystem::path& directory, const std::filesystem::path& outputFile);
  ~Worker();
  Worker(const Worker&) = delete;
  Worker& operator=(const Worker&) = delete;

  // Each throws std::runtime_error when the process ends or does not answer.
  Outcome start() { return request('s', ""); }
  Outcome stop() { return request('x', ""); }
  Outcome execute(const std::string& command) { return request('q', command); }
  // The same through a handle; the answer in short form.
  Outcome openHandle() { return request('o', ""); }
  Outcome closeHandle() { return request('l', ""); }
  Outcome runByHandle(const std::string& command) { return request('h', command); }
  void setClock(std::int64_t second) { request('c', std::to_string(second)); }

  // SIGKILL: whatever the engine had not handed to the system is gone.
  void kill();
  // Lets the process end by itself; answers how it ended, empty when as it should.
  std::string finish();

 private:
  Outcome request(char kind, const std::string& payload);
  std::string waitForEnd();

  pid_t process_ = -1;
  int socket_ = -1;
};

}  // namespace velmora::golden
