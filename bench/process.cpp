// Forked workers over two pipes. A message is its length (8 bytes) and its bytes; the first byte of
// an answer tells a result ('=') from an exception's text ('!').
#include "process.h"

#include <fcntl.h>
#include <malloc.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <exception>
#include <stdexcept>

namespace bench {

namespace {

bool writeAll(int descriptor, const char* bytes, std::size_t count) {
  while (count > 0) {
    const ssize_t written = write(descriptor, bytes, count);
    if (written <= 0) return false;
    bytes += written;
    count -= static_cast<std::size_t>(written);
  }
  return true;
}

bool readAll(int descriptor, char* bytes, std::size_t count) {
  while (count > 0) {
    const ssize_t got = read(descriptor, bytes, count);
    if (got <= 0) return false;
    bytes += got;
    count -= static_cast<std::size_t>(got);
  }
  return true;
}

bool sendMessage(int descriptor, const std::string& text) {
  const std::uint64_t size = text.size();
  char header[sizeof size];
  std::memcpy(header, &size, sizeof size);
  return writeAll(descriptor, header, sizeof header) &&
         writeAll(descriptor, text.data(), text.size());
}

bool receiveMessage(int descriptor, std::string& text) {
  char header[sizeof(std::uint64_t)];
  if (!readAll(descriptor, header, sizeof header)) return false;
  std::uint64_t size = 0;
  std::memcpy(&size, header, sizeof size);
  text.resize(size);
  return readAll(descriptor, text.data(), text.size());
}

// What call returns, as the text of an answer.
template <typename Call>
std::string answerOf(const Call& call) {
  try {
    return "=" + call();
  } catch (const std::exception& error) {
    return std::string("!") + error.what();
  }
}

void throwOutputAway() {
  const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
  if (nowhere >= 0) {
    dup2(nowhere, STDOUT_FILENO);
    close(nowhere);
  }
}

[[noreturn]] void serve(int requests, int answers, const std::filesystem::path& directory,
                        const std::function<Process::Handler()>& start) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  // Freed memory of the parent, if it were written to again, would be copied page by page first.
  malloc_trim(0);
  throwOutputAway();
  Process::Handler handler;
  std::string answer = answerOf([&] {
    std::filesystem::create_directories(directory);
    std::filesystem::current_path(directory);
    handler = start();
    return std::string();
  });
  std::string request;
  while (sendMessage(answers, answer) && receiveMessage(requests, request)) {
    answer = answerOf([&] { return handler(request); });
  }
  _exit(0);
}

}  // namespace

std::string packFigures(const Figures& figures) {
  std::string bytes(figures.size() * sizeof(double), '\0');
  std::memcpy(bytes.data(), figures.data(), bytes.size());
  return bytes;
}

Figures unpackFigures(const std::string& bytes) {
  Figures figures(bytes.size() / sizeof(double));
  std::memcpy(figures.data(), bytes.data(), figures.size() * sizeof(double));
  return figures;
}

Process::Process(const std::filesystem::path& directory, const std::function<Handler()>& start) {
  int requestEnds[2];
  int answerEnds[2];
  if (pipe2(requestEnds, O_CLOEXEC) != 0 || pipe2(answerEnds, O_CLOEXEC) != 0) {
    throw std::runtime_error("Cannot make a pipe");
  }
  process_ = fork();
  if (process_ < 0) throw std::runtime_error("Cannot fork");
  if (process_ == 0) {
    close(requestEnds[1]);
    close(answerEnds[0]);
    serve(requestEnds[0], answerEnds[1], directory, start);
  }
  close(requestEnds[0]);
  close(answerEnds[1]);
  requests_ = requestEnds[1];
  answers_ = answerEnds[0];
  receive();
}

Process::~Process() {
  kill(process_, SIGKILL);
  waitpid(process_, nullptr, 0);
  close(requests_);
  close(answers_);
}

std::string Process::ask(const std::string& request) {
  sendMessage(requests_, request);
  return receive();
}

std::string Process::receive() {
  std::string answer;
  if (!receiveMessage(answers_, answer)) throw std::runtime_error("A process ended early");
  if (answer[0] == '!') throw std::runtime_error(answer.substr(1));
  return answer.substr(1);
}

std::string callInFreshProcess(const std::function<std::string()>& body,
                               const std::filesystem::path& directory) {
  Process process(directory,
                  [&] { return Process::Handler([&](const std::string&) { return body(); }); });
  return process.ask("");
}

Figures measureInFreshProcess(const std::function<Figures()>& body,
                              const std::filesystem::path& directory) {
  return unpackFigures(callInFreshProcess([&] { return packFigures(body()); }, directory));
}

}  // namespace bench
