// What the system has refused, as a failure of the engine.
#pragma once

#include <cerrno>
#include <string>
#include <utility>

#include "../failure.h"

namespace velmora {

// By the system's error number: full where there was no room, else io.
inline Failure systemFailure(const std::string& text, int systemError) {
  const bool isFull = systemError == ENOSPC || systemError == EDQUOT || systemError == EFBIG;
  return Failure(isFull ? Code::full : Code::io, text).because(systemError);
}

// Calls step(); what fails in it, but for failures that are told already, is the system's refusal.
template <typename Step>
auto asSystemFailure(const char* what, Step step) -> decltype(step()) {
  try {
    return step();
  } catch (const Failure&) {
    throw;
  } catch (const std::runtime_error& error) {
    const int systemError = errno;
    throw systemFailure(std::string(what) + error.what(), systemError);
  }
}

}  // namespace velmora
