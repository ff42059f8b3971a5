// Page supply and resident memory, from the kernel's own account. Linux only.
#include "memory.h"

#include <malloc.h>
#include <sys/mman.h>
#include <unistd.h>

#include <fstream>
#include <stdexcept>

namespace bench {

namespace {

std::size_t freshBytes = 0;

}  // namespace

void setFreshMemory(std::size_t bytes) { freshBytes = bytes; }

void freshMemory() {
  if (freshBytes == 0) return;
  // MAP_POPULATE touches every page inside the call.
  void* memory = mmap(nullptr, freshBytes, PROT_READ | PROT_WRITE,
                      MAP_PRIVATE | MAP_ANONYMOUS | MAP_POPULATE, -1, 0);
  if (memory == MAP_FAILED) {
    throw std::runtime_error("Not enough memory to touch");
  }
  munmap(memory, freshBytes);
}

double residentBytes() {
  // Freed memory that the allocator keeps is nobody's.
  malloc_trim(0);
  std::ifstream account("/proc/self/statm");
  double totalPages = 0;
  double residentPages = 0;
  if (!(account >> totalPages >> residentPages)) {
    throw std::runtime_error("Cannot read /proc/self/statm");
  }
  return residentPages * static_cast<double>(sysconf(_SC_PAGESIZE));
}

}  // namespace bench
