// See input.h.
#include "input.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "failure.h"
#include "interrupt.h"
#include "output/text.h"

namespace tool {

Input::Input(const std::string& name) : name_(name) {
  if (name == "-") return;
  descriptor_ = open(name.c_str(), O_RDONLY | O_CLOEXEC);
  if (descriptor_ < 0) throwSystem(visible(name), errno);
}

Input::~Input() {
  if (descriptor_ > 0) close(descriptor_);
}

std::string Input::read() {
  std::string text(64 * 1024, '\0');
  while (true) {
    const ssize_t count = ::read(descriptor_, text.data(), text.size());
    checkInterrupt();
    if (count >= 0) {
      text.resize(static_cast<std::size_t>(count));
      return text;
    }
    if (errno != EINTR) throwSystem(visible(name_), errno);
  }
}

}  // namespace tool
