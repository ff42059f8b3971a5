// A start over the sample database with one file of any bytes in place of the engine's own. Built
// once for each kind of file; FUZZED_FILE is the file's name.
//
// The start loads, or lets an exception out and has then not written to any file; an engine that
// has loaded runs commands on all tables.
#include <string>

#include "engine_run.h"
#include "sample_database.h"
#include "scratch_directory.h"
#include "start_checks.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace velmora::fuzz;
  prepareProcess();
  static const Files sample = sampleFiles();
  const ScratchDirectory directory;
  Files files = sample;
  files[FUZZED_FILE].assign(reinterpret_cast<const char*>(data), size);
  ScratchDirectory::write(files);
  checkStart();
  return 0;
}
