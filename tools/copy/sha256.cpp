// See sha256.h.
#include "copy/sha256.h"

#include <bit>

namespace tool {
namespace {

constexpr std::array<std::uint32_t, 64> constants = {
    0x428a2f98, 0x71374491, 0xb5c0fbcf, 0xe9b5dba5, 0x3956c25b, 0x59f111f1, 0x923f82a4, 0xab1c5ed5,
    0xd807aa98, 0x12835b01, 0x243185be, 0x550c7dc3, 0x72be5d74, 0x80deb1fe, 0x9bdc06a7, 0xc19bf174,
    0xe49b69c1, 0xefbe4786, 0x0fc19dc6, 0x240ca1cc, 0x2de92c6f, 0x4a7484aa, 0x5cb0a9dc, 0x76f988da,
    0x983e5152, 0xa831c66d, 0xb00327c8, 0xbf597fc7, 0xc6e00bf3, 0xd5a79147, 0x06ca6351, 0x14292967,
    0x27b70a85, 0x2e1b2138, 0x4d2c6dfc, 0x53380d13, 0x650a7354, 0x766a0abb, 0x81c2c92e, 0x92722c85,
    0xa2bfe8a1, 0xa81a664b, 0xc24b8b70, 0xc76c51a3, 0xd192e819, 0xd6990624, 0xf40e3585, 0x106aa070,
    0x19a4c116, 0x1e376c08, 0x2748774c, 0x34b0bcb5, 0x391c0cb3, 0x4ed8aa4a, 0x5b9cca4f, 0x682e6ff3,
    0x748f82ee, 0x78a5636f, 0x84c87814, 0x8cc70208, 0x90befffa, 0xa4506ceb, 0xbef9a3f7, 0xc67178f2};

std::array<std::uint32_t, 64> scheduleOf(const std::array<unsigned char, 64>& block) {
  std::array<std::uint32_t, 64> words = {};
  for (std::size_t i = 0; i < 64; ++i) words[i / 4] = words[i / 4] << 8U | block[i];
  for (std::size_t i = 16; i < 64; ++i) {
    const std::uint32_t a = words[i - 15];
    const std::uint32_t b = words[i - 2];
    words[i] = words[i - 16] + words[i - 7] + (std::rotr(a, 7) ^ std::rotr(a, 18) ^ (a >> 3U)) +
               (std::rotr(b, 17) ^ std::rotr(b, 19) ^ (b >> 10U));
  }
  return words;
}

}  // namespace

void Sha256::addBlock() {
  const std::array<std::uint32_t, 64> words = scheduleOf(block_);
  auto [a, b, c, d, e, f, g, h] = state_;
  for (std::size_t i = 0; i < 64; ++i) {
    const std::uint32_t first = h + (std::rotr(e, 6) ^ std::rotr(e, 11) ^ std::rotr(e, 25)) +
                                ((e & f) ^ (~e & g)) + constants[i] + words[i];
    const std::uint32_t second =
        (std::rotr(a, 2) ^ std::rotr(a, 13) ^ std::rotr(a, 22)) + ((a & b) ^ (a & c) ^ (b & c));
    h = g;
    g = f;
    f = e;
    e = d + first;
    d = c;
    c = b;
    b = a;
    a = first + second;
  }
  const std::array<std::uint32_t, 8> sums = {a, b, c, d, e, f, g, h};
  for (std::size_t i = 0; i < 8; ++i) state_[i] += sums[i];
}

void Sha256::add(std::string_view bytes) {
  for (const char byte : bytes) {
    block_[size_++ % 64] = static_cast<unsigned char>(byte);
    if (size_ % 64 == 0) addBlock();
  }
}

Sha256::Digest Sha256::digest() {
  const std::uint64_t bits = size_ * 8;
  add("\x80");
  while (size_ % 64 != 56) add(std::string_view("\0", 1));
  for (unsigned i = 0; i < 8; ++i) {
    const char byte = static_cast<char>(bits >> (56 - 8 * i));
    add({&byte, 1});
  }
  Digest digest = {};
  for (std::size_t i = 0; i < 32; ++i) {
    digest[i] = static_cast<unsigned char>(state_[i / 4] >> (24 - 8 * (i % 4)));
  }
  return digest;
}

std::string hexadecimal(const Sha256::Digest& digest) {
  std::string text;
  for (const unsigned char byte : digest) {
    text += "0123456789abcdef"[byte / 16];
    text += "0123456789abcdef"[byte % 16];
  }
  return text;
}

}  // namespace tool
