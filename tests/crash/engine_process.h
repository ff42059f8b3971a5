// An engine in a process of its own that can be killed: at any moment from outside, or from within
// right before the k-th file operation. File operations can be made to fail instead.
//
// Requests go to the process over a socket and are answered in order, so that several can be on
// their way at once; what has been answered is what a host has seen.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "disk_journal.h"

namespace velmora::crash {

struct Answer {
  enum class Kind : char { answer = 'a', exception = 'x' };
  Kind kind = Kind::answer;
  std::string text;  // the JSON text, what the engine printed at a start, or the exception's text
  bool succeeded() const {
    return kind == Kind::answer && text.find("\"success\": false") == std::string::npos;
  }
};

// What happens to the file operations that follow, or to one of them.
struct Fault {
  enum class Kind : char {
    none,
    kill,              // counts what may change something: dying before a read is dying before that
    ioError,           // counts every operation
    diskFull,          // counts every operation
    ioErrorOfChange,   // counts what may change something
    shortWrite,        // counts writes
    diskFullFromThen,  // counts writes
    syncErrorFromThen,  // counts syncs
  };
  Kind kind = Kind::none;
  int operation = 0;  // counted from 1
};

class EngineProcess {
 public:
  // Forks; the engine works in the directory once it is started.
  explicit EngineProcess(const std::filesystem::path& directory);
  ~EngineProcess();
  EngineProcess(const EngineProcess&) = delete;
  EngineProcess& operator=(const EngineProcess&) = delete;

  // Each waits for the answer; nothing when the process died first.
  std::optional<Answer> start(std::int64_t second) { return request('s', second, ""); }
  std::optional<Answer> stop() { return request('x', 0, ""); }
  std::optional<Answer> execute(const std::string& command, std::int64_t second) {
    return request('q', second, command);
  }
  // Sets the fault and begins to count operations anew.
  void setFault(const Fault& fault);
  // How many operations have been counted since the fault was set.
  int operations();
  // What has been done to the files since the last call; the first one begins to take it down.
  std::vector<DiskStep> steps();

  // Sends requests without waiting and kills the process after a while, in whatever it is doing.
  // The answers that it had given.
  struct Request {
    char kind;  // 's' start, 'q' command, 'x' stop
    std::int64_t second;
    std::string command;
  };
  std::vector<Answer> executeUntilKilled(const std::vector<Request>& requests,
                                         std::chrono::microseconds after);
  void kill();

 private:
  std::optional<Answer> request(char kind, std::int64_t number, const std::string& text);
  std::optional<Answer> receive();

  pid_t process_ = -1;
  int socket_ = -1;
};

}  // namespace velmora::crash
