// See verify.h.
#include "verify.h"

#include "failure.h"
#include "open.h"

namespace tool {

namespace {

int tellProgress(void* context, const char* what, std::size_t length, std::uint64_t done,
                 std::uint64_t total) {
  static_cast<Progress*>(context)->tell({what, length}, done, total);
  return isInterrupted() ? 1 : 0;
}

}  // namespace

std::vector<Fault> faultsOf(const std::string& directory) {
  Progress progress;
  velmora_options options = velmora::options();
  options.context = &progress;
  options.progress = tellProgress;
  std::vector<Fault> faults;
  const velmora_fault add = [](void* context, const char* file, std::int64_t offset,
                               const char* meaning) {
    static_cast<std::vector<Fault>*>(context)->push_back({file, offset, meaning});
  };
  velmora_error* error = nullptr;
  const int code =
      velmora_check(directory.data(), directory.size(), &options, add, &faults, &error);
  progress.clear();
  checkInterrupt();
  if (code == VELMORA_OK || code == VELMORA_CORRUPT) {
    velmora_error_destroy(error);
    return faults;
  }
  throw Failure(exitNotOpened, openingText(directory, velmora::Error(code, error)));
}

}  // namespace tool
