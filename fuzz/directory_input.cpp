// See directory_input.h.
#include "directory_input.h"

#include <algorithm>
#include <array>

namespace velmora::fuzz {
namespace {

// The sample database's names, and others that a start looks at.
constexpr std::array<std::string_view, 26> names = {"customers.bin",
                                                    "customers.del",
                                                    "orders.bin",
                                                    "orders.del",
                                                    "orders.tmp",
                                                    "orders-customer_customers-id.rel",
                                                    "lamps.bin",
                                                    "lamps.del",
                                                    "lamps.tmp",
                                                    "tags.bin",
                                                    "tags.del",
                                                    "tags.tmp",
                                                    "tags.row",
                                                    "listeners.bin",
                                                    "webhooks.bin",
                                                    "velmora.wal",
                                                    "velmora.ckpt",
                                                    "lamps.bin.checkpoint",
                                                    "lamps.del.checkpoint",
                                                    "velmora.wal.checkpoint",
                                                    "customers.bak.bin",
                                                    "other.bin",
                                                    "other.row",
                                                    "a-name-longer-than-a-field.bin",
                                                    ".bin",
                                                    "x.rel"};

constexpr std::size_t prefixSize = 3;

}  // namespace

Files filesOf(std::string_view input) {
  Files files;
  while (input.size() >= prefixSize) {
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(input[i]); };
    const std::string name(names[byte(0) % names.size()]);
    const std::size_t size = byte(1) + std::size_t{256} * byte(2);
    input.remove_prefix(prefixSize);
    files[name] = input.substr(0, size);
    input.remove_prefix(std::min(size, input.size()));
  }
  return files;
}

std::string inputOf(const Files& files) {
  std::string input;
  for (const auto& [name, bytes] : files) {
    const auto* const found = std::find(names.begin(), names.end(), name);
    if (found == names.end()) continue;
    input += static_cast<char>(found - names.begin());
    input += static_cast<char>(bytes.size() % 256);
    input += static_cast<char>(bytes.size() / 256);
    input += bytes;
  }
  return input;
}

}  // namespace velmora::fuzz
