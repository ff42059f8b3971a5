// Ctrl-C: stops what runs, cleanly. The signal's handler only writes into a pipe; a thread reads
// it and interrupts the database whose commands are under way.
#pragma once

#include "velmora/velmora.hpp"

namespace tool {

// From now on SIGINT is noted rather than the end of the process.
void catchInterrupts();

// From now on it ends the process, which must have no database open.
void letInterruptsEnd();

// Whether one came since the last forgetInterrupt.
bool isInterrupted();
void forgetInterrupt();
// Throws Failure if one came.
void checkInterrupt();

// Has interrupts reach the commands of a database while this lives; one at a time.
class Interruptible {
 public:
  explicit Interruptible(velmora::Database& database);
  ~Interruptible();
  Interruptible(const Interruptible&) = delete;
  Interruptible& operator=(const Interruptible&) = delete;
};

}  // namespace tool
