// Both ends of the worker's socket: the requests of the test and the loop that serves them.
// A message is one byte of kind, the payload's length as 32 bits, the payload; an answer's kind
// tells a text ('a') from an exception ('t': type, line feed, what).

#include "golden_worker.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <new>

#include "clock.h"
#include "short_answer.h"
#include "velmora/velmora.h"

namespace velmora::golden {
namespace {

// Far longer than any command takes, sanitizers included: only a hang comes to it.
constexpr int answerLimitMilliseconds = 120'000;

struct Message {
  char kind = 0;
  std::string payload;
};

bool sendAll(int socket, const char* bytes, std::size_t size) {
  while (size > 0) {
    const ssize_t sent = send(socket, bytes, size, MSG_NOSIGNAL);
    if (sent <= 0) return false;
    bytes += sent;
    size -= static_cast<std::size_t>(sent);
  }
  return true;
}

bool receiveAll(int socket, char* bytes, std::size_t size) {
  while (size > 0) {
    const ssize_t received = recv(socket, bytes, size, 0);
    if (received <= 0) return false;
    bytes += received;
    size -= static_cast<std::size_t>(received);
  }
  return true;
}

bool sendMessage(int socket, const Message& message) {
  const auto size = static_cast<std::uint32_t>(message.payload.size());
  return sendAll(socket, &message.kind, 1) &&
         sendAll(socket, reinterpret_cast<const char*>(&size), sizeof size) &&
         sendAll(socket, message.payload.data(), size);
}

bool receiveMessage(int socket, Message& message) {
  std::uint32_t size = 0;
  if (!receiveAll(socket, &message.kind, 1) ||
      !receiveAll(socket, reinterpret_cast<char*>(&size), sizeof size)) {
    return false;
  }
  message.payload.resize(size);
  return receiveAll(socket, message.payload.data(), size);
}

std::int64_t injectedSecond = 0;
velmora_db* openDatabase = nullptr;

// By a handle, in the working directory. A kill loses nothing whatever the durability.
void openByHandle() {
  velmora_options options = {};
  options.size = sizeof options;
  options.flags = VELMORA_CREATE;
  options.durability = VELMORA_DURABILITY_OFF;
  options.clock = [](void* /*context*/) { return injectedSecond; };
  velmora_error* error = nullptr;
  if (velmora_open(".", 1, &options, &openDatabase, &error) == VELMORA_OK) return;
  const std::string text = velmora_error_text(error);
  velmora_error_destroy(error);
  throw std::runtime_error(text);
}

void closeByHandle() {
  velmora_close(openDatabase, nullptr);
  openDatabase = nullptr;
}

std::string runRequest(const Message& request) {
  switch (request.kind) {
    case 'c':
      injectedSecond = std::stoll(request.payload);
      clock::setSource([] { return injectedSecond; });
      return "";
    case 's':
      StartEngine();
      return "";
    case 'x':
      StopEngine();
      return "";
    case 'o':
      openByHandle();
      return "";
    case 'h':
      return shortAnswer(openDatabase, request.payload);
    case 'l':
      closeByHandle();
      return "";
    default:
      return ExecuteQuery(request.payload.c_str());
  }
}

Message thrown(const char* type, const std::exception& exception) {
  return {'t', std::string(type) + "\n" + exception.what()};
}

Message answerTo(const Message& request) {
  try {
    return {'a', runRequest(request)};
  } catch (const std::invalid_argument& exception) {
    return thrown("invalid_argument", exception);
  } catch (const std::out_of_range& exception) {
    return thrown("out_of_range", exception);
  } catch (const std::length_error& exception) {
    return thrown("length_error", exception);
  } catch (const std::logic_error& exception) {
    return thrown("logic_error", exception);
  } catch (const std::runtime_error& exception) {
    return thrown("runtime_error", exception);
  } catch (const std::bad_alloc& exception) {
    return thrown("bad_alloc", exception);
  } catch (const std::exception& exception) {
    return thrown("exception", exception);
  }
}

[[noreturn]] void serve(int socket, const std::filesystem::path& directory,
                        const std::filesystem::path& outputFile) {
  const int output = open(outputFile.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
  if (output < 0 || dup2(output, STDOUT_FILENO) < 0 || chdir(directory.c_str()) != 0) _exit(1);
  close(output);
  for (Message request; receiveMessage(socket, request);) {
    const Message answer = answerTo(request);
    std::cout.flush();
    std::fflush(stdout);
    if (!sendMessage(socket, answer)) break;
  }
  // An ordinary end, so that leak checks and coverage counts have their say.
  std::exit(0);
}

}  // namespace

Worker::Worker(const std::filesystem::path& directory, const std::filesystem::path& outputFile) {
  // What is buffered here would come out a second time in the child.
  std::cout.flush();
  std::fflush(stdout);
  int sockets[2];
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sockets) != 0) {
    throw std::runtime_error(std::string("socketpair: ") + std::strerror(errno));
  }
  process_ = fork();
  if (process_ < 0) throw std::runtime_error(std::string("fork: ") + std::strerror(errno));
  if (process_ == 0) {
    close(sockets[0]);
    serve(sockets[1], directory, outputFile);
  }
  close(sockets[1]);
  socket_ = sockets[0];
}

Worker::~Worker() {
  if (process_ > 0) kill();
}

void Worker::kill() {
#ifdef VELMORA_COVERAGE
  // A killed process's counts would die with it; one that ends without a stop leaves the same
  // files.
  shutdown(socket_, SHUT_RDWR);
#else
  ::kill(process_, SIGKILL);
#endif
  waitForEnd();
}

std::string Worker::finish() {
  shutdown(socket_, SHUT_RDWR);
  return waitForEnd();
}

std::string Worker::waitForEnd() {
  int status = 0;
  waitpid(process_, &status, 0);
  close(socket_);
  process_ = -1;
  if (WIFSIGNALED(status)) return "signal " + std::to_string(WTERMSIG(status));
  if (WEXITSTATUS(status) != 0) return "exit status " + std::to_string(WEXITSTATUS(status));
  return "";
}

Outcome Worker::request(char kind, const std::string& payload) {
  Message answer;
  pollfd waiting{socket_, POLLIN, 0};
  const bool sent = sendMessage(socket_, {kind, payload});
  if (sent && poll(&waiting, 1, answerLimitMilliseconds) == 0) {
    ::kill(process_, SIGKILL);
    waitForEnd();
    throw std::runtime_error("the engine's process does not answer");
  }
  if (!sent || !receiveMessage(socket_, answer)) {
    throw std::runtime_error("the engine's process ended: " + waitForEnd());
  }
  if (answer.kind == 'a') return {"", answer.payload};
  const std::size_t lineFeed = answer.payload.find('\n');
  return {answer.payload.substr(0, lineFeed), answer.payload.substr(lineFeed + 1)};
}

}  // namespace velmora::golden
