// See engine_process.h.
#include "engine_process.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <stdexcept>

#include "clock.h"
#include "disk_journal.h"
#include "launcher.h"
#include "storage/files.h"
#include "velmora/velmora.h"

namespace velmora::crash {
namespace {

// A message on the socket: a kind, a number, and a text of the given size.
struct Head {
  std::int64_t number;
  std::uint32_t size;
  char kind;
};

bool sendAll(int socket, const std::string& bytes) {
  for (std::size_t done = 0; done < bytes.size();) {
    const ssize_t count = send(socket, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL);
    if (count <= 0) return false;
    done += static_cast<std::size_t>(count);
  }
  return true;
}

bool receiveAll(int socket, char* out, std::size_t size) {
  for (std::size_t done = 0; done < size;) {
    const ssize_t count = recv(socket, out + done, size - done, 0);
    if (count <= 0) return false;
    done += static_cast<std::size_t>(count);
  }
  return true;
}

std::string message(char kind, std::int64_t number, const std::string& text) {
  Head head = {};
  head.number = number;
  head.size = static_cast<std::uint32_t>(text.size());
  head.kind = kind;
  std::string bytes(sizeof head, '\0');
  std::memcpy(bytes.data(), &head, sizeof head);
  return bytes + text;
}

// The forked side. The hook has no parameter of its own, so its state is the process's.

std::int64_t injectedSecond = 0;
Fault activeFault;
int operationCount = 0;
bool isRecording = false;
DiskJournal journal;
constexpr const char* outputName = "../output";

bool isCounted(FileOperation operation) {
  switch (activeFault.kind) {
    case Fault::Kind::kill:
    case Fault::Kind::ioErrorOfChange:
      return operation != FileOperation::read && operation != FileOperation::list;
    case Fault::Kind::shortWrite:
    case Fault::Kind::diskFullFromThen:
      return operation == FileOperation::write;
    case Fault::Kind::syncErrorFromThen:
      return operation == FileOperation::sync;
    default:
      return true;
  }
}

// What the fault has the operation come to.
int wishFor(const FileEvent& event) {
  if (!isCounted(event.operation)) return 0;
  ++operationCount;
  const bool isItsTurn = operationCount == activeFault.operation;
  switch (activeFault.kind) {
    case Fault::Kind::none:
      return 0;
    case Fault::Kind::kill:
      if (isItsTurn) raise(SIGKILL);
      return 0;
    case Fault::Kind::ioError:
    case Fault::Kind::ioErrorOfChange:
      return isItsTurn ? EIO : 0;
    case Fault::Kind::diskFull:
      return isItsTurn ? ENOSPC : 0;
    case Fault::Kind::shortWrite:
      return isItsTurn ? shortWrite : 0;
    case Fault::Kind::diskFullFromThen:
      return operationCount >= activeFault.operation ? shortWrite : 0;
    case Fault::Kind::syncErrorFromThen:
      return operationCount >= activeFault.operation ? EIO : 0;
  }
  return 0;
}

int beforeFileOperation(const FileEvent& event) {
  const int wish = wishFor(event);
  const bool isReading =
      event.operation == FileOperation::read || event.operation == FileOperation::list;
  if (isRecording && !isReading) journal.add(event, wish);
  return wish;
}

// Standard output goes to a file; what is new in it is handed over with the start's answer.
std::string takeOutput() {
  std::fflush(stdout);
  std::string text;
  char buffer[4096];
  static off_t seen = 0;
  const int file = open(outputName, O_RDONLY | O_CLOEXEC);
  for (ssize_t count = 0; (count = pread(file, buffer, sizeof buffer, seen)) > 0; seen += count) {
    text.append(buffer, static_cast<std::size_t>(count));
  }
  close(file);
  return text;
}

std::string perform(char kind, std::int64_t number, const std::string& text) {
  switch (kind) {
    case 's':
      injectedSecond = number;
      StartEngine();
      return takeOutput();
    case 'x':
      StopEngine();
      return "";
    case 'q':
      injectedSecond = number;
      return ExecuteQuery(text.c_str());
    case 'f':
      activeFault = {static_cast<Fault::Kind>(text[0]), static_cast<int>(number)};
      operationCount = 0;
      return "";
    case 'j':
      isRecording = true;
      return journal.take();
    case 'n':
      return std::to_string(operationCount);
    default:
      throw std::logic_error("unknown request");
  }
}

[[noreturn]] void serve(int socket, const std::filesystem::path& directory) {
  std::filesystem::current_path(directory);
  if (std::freopen(outputName, "w", stdout) == nullptr) _exit(2);
  clock::setSource([] { return injectedSecond; });
  setFileHook(beforeFileOperation);
  while (true) {
    Head head = {};
    if (!receiveAll(socket, reinterpret_cast<char*>(&head), sizeof head)) _exit(0);
    std::string text(head.size, '\0');
    if (!receiveAll(socket, text.data(), text.size())) _exit(0);
    std::string answer;
    auto kind = Answer::Kind::answer;
    try {
      answer = perform(head.kind, head.number, text);
    } catch (const std::exception& exception) {
      kind = Answer::Kind::exception;
      answer = exception.what();
    }
    if (!sendAll(socket, message(static_cast<char>(kind), 0, answer))) _exit(0);
  }
}

const Launcher& launcher() {
  static const Launcher made(serve);
  return made;
}

}  // namespace

EngineProcess::EngineProcess(const std::filesystem::path& directory) {
  const auto [process, socket] = launcher().launch(directory);
  process_ = process;
  socket_ = socket;
}

EngineProcess::~EngineProcess() {
  kill();
  close(socket_);
}

void EngineProcess::kill() {
  if (process_ <= 0) return;
  launcher().kill(process_);
  process_ = -1;
}

void EngineProcess::setFault(const Fault& fault) {
  request('f', fault.operation, std::string(1, static_cast<char>(fault.kind)));
}

int EngineProcess::operations() {
  const auto answer = request('n', 0, "");
  return answer ? std::stoi(answer->text) : -1;
}

std::vector<DiskStep> EngineProcess::steps() {
  const auto answer = request('j', 0, "");
  return answer ? DiskJournal::read(answer->text) : std::vector<DiskStep>();
}

std::optional<Answer> EngineProcess::request(char kind, std::int64_t number,
                                             const std::string& text) {
  if (!sendAll(socket_, message(kind, number, text))) return std::nullopt;
  return receive();
}

std::optional<Answer> EngineProcess::receive() {
  Head head = {};
  if (!receiveAll(socket_, reinterpret_cast<char*>(&head), sizeof head)) return std::nullopt;
  Answer answer;
  answer.kind = static_cast<Answer::Kind>(head.kind);
  answer.text.resize(head.size);
  if (!receiveAll(socket_, answer.text.data(), answer.text.size())) return std::nullopt;
  return answer;
}

std::vector<Answer> EngineProcess::executeUntilKilled(const std::vector<Request>& requests,
                                                      std::chrono::microseconds after) {
  std::string bytes;
  for (const Request& each : requests) bytes += message(each.kind, each.second, each.command);
  sendAll(socket_, bytes);
  const auto deadline = std::chrono::steady_clock::now() + after;
  std::vector<Answer> answers;
  while (answers.size() < requests.size()) {
    const auto left = std::chrono::duration_cast<std::chrono::nanoseconds>(
        deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0) break;
    const timespec timeout = {0, static_cast<long>(left.count())};
    pollfd readable = {socket_, POLLIN, 0};
    if (ppoll(&readable, 1, &timeout, nullptr) <= 0) break;
    const auto answer = receive();
    if (!answer) break;
    answers.push_back(*answer);
  }
  kill();
  // What it had answered before it died is still in the socket.
  while (const auto answer = receive()) answers.push_back(*answer);
  return answers;
}

}  // namespace velmora::crash
