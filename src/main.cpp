// The interactive shell: one command a line from standard input, each answer as JSON on standard
// output. It owns its engine and has no handler for exceptions: one that the engine lets out ends
// the process, and the log brings everything back at the next start.
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>

#include "clock.h"
#include "database/database.h"
#include "engine/opening.h"
#include "number.h"
#include "parser/parser.h"
#include "storage/directory_lock.h"

namespace {

using velmora::Database;
using velmora::DirectoryLock;
using velmora::Parser;

void printBanner() {
  const std::string rule(55, '=');
  std::cout << rule << "\n";
  std::cout << " velmora: tables whose values know the time\n";
  std::cout << " One command a line; \"exit\" or \"quit\" saves and leaves.\n";
  std::cout << rule << "\n\n";
}

// Reads the next line; a failed read gives an empty one. Without a terminal such reads would follow
// each other at full speed, so each is answered by a pause; a terminal waits again by itself.
std::string readLine() {
  std::string line;
  if (!std::getline(std::cin, line)) {
    line.clear();
    if (isatty(STDIN_FILENO) != 0) {
      std::cin.clear();
      std::clearerr(stdin);
    } else {
      std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
  }
  return line;
}

void runShell(Parser& parser) {
  while (true) {
    std::cout << "velmora> " << std::flush;
    const std::string line = readLine();
    if (line.empty()) continue;
    if (line == "exit" || line == "quit") return;
    std::cout << velmora::renderJson(parser.handleCommand(line)).view() << "\n\n";
  }
}

// The lock on the current directory; null, with a line saying why, when it cannot be had.
std::unique_ptr<DirectoryLock> lockDirectory() {
  try {
    return std::make_unique<DirectoryLock>();
  } catch (const std::runtime_error& error) {
    std::cout << error.what() << "\n";
    return nullptr;
  }
}

}  // namespace

int main() {
  const std::unique_ptr<DirectoryLock> lock = lockDirectory();
  if (lock == nullptr) return 1;
  Database db(lock->directory());
  Parser parser(&db);
  velmora::withStandardExceptions([&] {
    velmora::loadForPlainFunctions(db);
    printBanner();
    runShell(parser);
    db.checkpoint(velmora::clock::now());
  });
  return 0;
}
