// SHA-256 (FIPS 180-4), for hashes of a database's content.
#ifndef VELMORA_TOOLS_COPY_SHA256_H
#define VELMORA_TOOLS_COPY_SHA256_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace tool {

class Sha256 {
 public:
  using Digest = std::array<unsigned char, 32>;

  void add(std::string_view bytes);
  // To be asked for once.
  Digest digest();

 private:
  void addBlock();

  std::array<std::uint32_t, 8> state_ = {0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a,
                                         0x510e527f, 0x9b05688c, 0x1f83d9ab, 0x5be0cd19};
  std::array<unsigned char, 64> block_ = {};
  std::uint64_t size_ = 0;  // of all bytes so far
};

std::string hexadecimal(const Sha256::Digest& digest);

}  // namespace tool

#endif
