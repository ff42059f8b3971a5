// Processes of one's own. A process has one engine, and an engine's memory, files and start must
// not be mixed with another's, so each side of a workload plays in a process and a directory of
// its own and answers requests over a pipe.
#pragma once

#include <sys/types.h>

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace bench {

using Figures = std::vector<double>;

std::string packFigures(const Figures& figures);
Figures unpackFigures(const std::string& bytes);

class Process {
 public:
  using Handler = std::function<std::string(const std::string& request)>;

  // Forks a process that makes the directory, enters it, calls start and then answers each request
  // with what the handler returns. Returns when start has. Its standard output is thrown away.
  // An exception in the process comes out here, and out of ask, as a std::runtime_error.
  Process(const std::filesystem::path& directory, const std::function<Handler()>& start);
  // Ends the process as a crash would: nothing in it is destroyed.
  ~Process();
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;

  std::string ask(const std::string& request);

 private:
  std::string receive();

  pid_t process_ = -1;
  int requests_ = -1;
  int answers_ = -1;
};

// Runs the body once in a fresh process, in a directory that is made if it is not there. The
// process then ends as by a crash.
std::string callInFreshProcess(const std::function<std::string()>& body,
                               const std::filesystem::path& directory = ".");
Figures measureInFreshProcess(const std::function<Figures()>& body,
                              const std::filesystem::path& directory = ".");

}  // namespace bench
