// See interrupt.h.
#include "interrupt.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <mutex>
#include <thread>

#include "failure.h"

namespace tool {
namespace {

std::atomic<bool> interrupted = false;
static_assert(std::atomic<bool>::is_always_lock_free);  // as a signal's handler sets it
int pipeEnds[2];

std::mutex databaseMutex;
velmora::Database* running = nullptr;  // under databaseMutex

void note(int) {
  const int error = errno;
  interrupted = true;
  // A full pipe holds enough to be read.
  [[maybe_unused]] const auto written = ::write(pipeEnds[1], "i", 1);
  errno = error;
}

void passOn() {
  for (char byte; read(pipeEnds[0], &byte, 1) == 1;) {
    const std::lock_guard lock(databaseMutex);
    // One that has been answered meanwhile is not for the command that runs by now.
    if (running != nullptr && interrupted) running->interrupt();
  }
}

// Without SA_RESTART: waiting ends, too.
void handle(int signal, void (*handler)(int)) {
  struct sigaction action = {};
  action.sa_handler = handler;
  sigaction(signal, &action, nullptr);
}

}  // namespace

void catchInterrupts() {
  if (pipe2(pipeEnds, O_CLOEXEC) != 0) throwSystem("Interrupts", errno);
  fcntl(pipeEnds[1], F_SETFL, O_NONBLOCK);
  sigset_t signals;
  sigset_t before;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  // The thread does not get it, so that it finds the one that reads.
  pthread_sigmask(SIG_BLOCK, &signals, &before);
  std::thread(passOn).detach();
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  handle(SIGINT, note);
}

void letInterruptsEnd() {
  handle(SIGINT, SIG_DFL);
  checkInterrupt();
}

bool isInterrupted() { return interrupted; }

void forgetInterrupt() {
  const std::lock_guard lock(databaseMutex);
  interrupted = false;
}

void checkInterrupt() {
  if (isInterrupted()) throw Failure(exitInterrupted, "Interrupted");
}

bool waitForInput(int descriptor) {
  sigset_t interrupts;
  sigset_t before;
  sigemptyset(&interrupts);
  sigaddset(&interrupts, SIGINT);
  pthread_sigmask(SIG_BLOCK, &interrupts, &before);
  pollfd waiting = {descriptor, POLLIN, 0};
  while (!isInterrupted() && ppoll(&waiting, 1, nullptr, &before) < 0 && errno == EINTR) {
  }
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  return !isInterrupted();
}

Interruptible::Interruptible(velmora::Database& database) {
  const std::lock_guard lock(databaseMutex);
  running = &database;
}

Interruptible::~Interruptible() {
  const std::lock_guard lock(databaseMutex);
  running = nullptr;
}

}  // namespace tool
