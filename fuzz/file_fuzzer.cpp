// A start over tables of the sample database with one file of any bytes in place of the engine's
// own. Built once for each kind of file; FUZZED_FILE is the file's name, and only files whose names
// begin with a letter of KEPT_FILES stand beside it, since every file costs time.
//
// The start loads, or lets an exception out and has then not written to any file; an engine that
// has loaded runs commands on all tables.
#include <string>
#include <string_view>

#include "engine_run.h"
#include "sample_database.h"
#include "scratch_directory.h"
#include "start_checks.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace velmora::fuzz;
  prepareProcess();
  static const Files sample = sampleFiles();
  const ScratchDirectory directory;
  Files files;
  for (const auto& [name, bytes] : sample) {
    if (std::string_view(KEPT_FILES).find(name.front()) != std::string_view::npos) {
      files[name] = bytes;
    }
  }
  files[FUZZED_FILE].assign(reinterpret_cast<const char*>(data), size);
  ScratchDirectory::write(files);
  checkStart();
  return 0;
}
