// See launcher.h.
#include "launcher.h"

#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <stdexcept>
#include <string>

namespace velmora::crash {
namespace {

// One packet to the launcher: a process to be killed, or a directory that a new one works in, with
// the socket that it answers on. The launcher answers with the process.
struct Request {
  pid_t killed = 0;
  char directory[1020] = {};
};

// What it takes to hand a descriptor over beside a packet.
struct Packet {
  explicit Packet(Request& request) : part{&request, sizeof request} {
    head.msg_iov = &part;
    head.msg_iovlen = 1;
    head.msg_control = descriptor;
    head.msg_controllen = sizeof descriptor;
  }

  iovec part;
  msghdr head = {};
  alignas(cmsghdr) char descriptor[CMSG_SPACE(sizeof(int))] = {};
};

bool sendRequest(int control, Request& request, int socket) {
  Packet packet(request);
  cmsghdr* const attached = CMSG_FIRSTHDR(&packet.head);
  attached->cmsg_level = SOL_SOCKET;
  attached->cmsg_type = SCM_RIGHTS;
  attached->cmsg_len = CMSG_LEN(sizeof socket);
  std::memcpy(CMSG_DATA(attached), &socket, sizeof socket);
  return sendmsg(control, &packet.head, MSG_NOSIGNAL) == sizeof request;
}

// The socket that came with it; -1 when the test has ended.
int receiveRequest(int control, Request& request) {
  Packet packet(request);
  if (recvmsg(control, &packet.head, MSG_CMSG_CLOEXEC) != sizeof request) return -1;
  const cmsghdr* const attached = CMSG_FIRSTHDR(&packet.head);
  int socket = -1;
  if (attached != nullptr) std::memcpy(&socket, CMSG_DATA(attached), sizeof socket);
  return socket;
}

pid_t forkedFor(const Request& request, int control, int socket, Launcher::Work work) {
  const pid_t process = fork();
  if (process == 0) {
    close(control);
    work(socket, request.directory);
  }
  return process;
}

[[noreturn]] void serveRequests(int control, Launcher::Work work) {
  Request request;
  for (int socket = -1; (socket = receiveRequest(control, request)) >= 0; close(socket)) {
    pid_t process = request.killed;
    if (process == 0) {
      process = forkedFor(request, control, socket, work);
    } else {
      ::kill(process, SIGKILL);
      waitpid(process, nullptr, 0);
    }
    if (send(control, &process, sizeof process, MSG_NOSIGNAL) < 0) break;
  }
  _exit(0);
}

pid_t answerTo(int control, Request& request, int socket) {
  pid_t process = -1;
  const bool isAnswered = sendRequest(control, request, socket) &&
                          recv(control, &process, sizeof process, 0) == sizeof process;
  if (!isAnswered || process < 0) throw std::runtime_error("no process");
  return process;
}

}  // namespace

Launcher::Launcher(Work work) {
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) {
    throw std::runtime_error("no socket");
  }
  process_ = fork();
  if (process_ < 0) throw std::runtime_error("no process");
  if (process_ == 0) {
    close(ends[0]);
    serveRequests(ends[1], work);
  }
  close(ends[1]);
  control_ = ends[0];
}

Launcher::~Launcher() {
  close(control_);
  waitpid(process_, nullptr, 0);
}

Launcher::Launched Launcher::launch(const std::filesystem::path& directory) const {
  Request request;
  const std::string path = directory.string();
  if (path.size() >= sizeof request.directory) throw std::runtime_error("too long: " + path);
  path.copy(request.directory, path.size());
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) {
    throw std::runtime_error("no socket");
  }
  const pid_t process = answerTo(control_, request, ends[1]);
  close(ends[1]);
  return {process, ends[0]};
}

void Launcher::kill(pid_t process) const {
  Request request;
  request.killed = process;
  answerTo(control_, request, control_);
}

}  // namespace velmora::crash
