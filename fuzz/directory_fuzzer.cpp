// A start over a directory of several files of any bytes. An input is a list of
//
//   1 byte   which file
//   2 bytes  its size, little-endian
//   n bytes  its content, as far as the input goes
//
// A file named again is written again. Files of the sample database that are not named are absent.
#include <array>
#include <string>
#include <string_view>

#include "directory_input.h"
#include "engine_run.h"
#include "scratch_directory.h"
#include "start_checks.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace velmora::fuzz;
  prepareProcess();
  const ScratchDirectory directory;
  ScratchDirectory::write(filesOf({reinterpret_cast<const char*>(data), size}));
  checkStart();
  return 0;
}
