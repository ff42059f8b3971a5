// How far something is that takes long: a line on standard error, if that is a terminal, from its
// first second on, with an estimate of what is left.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>

namespace tool {

class Progress {
 public:
  ~Progress() { clear(); }

  // What is done, such as "load", and how much of how much of it.
  void tell(std::string_view what, std::uint64_t done, std::uint64_t total);
  // Takes the line away.
  void clear();

 private:
  using Clock = std::chrono::steady_clock;

  std::string what_;
  Clock::time_point begin_;
  Clock::time_point shown_;
  bool isShown_ = false;
};

}  // namespace tool
