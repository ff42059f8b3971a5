// A directory of its own for each test of the storage room.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>

#include "storage/storage.h"

namespace velmora {

class StorageTest : public testing::Test {
 protected:
  StorageTest() {
    std::string name = (std::filesystem::temp_directory_path() / "velmora-storage-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("cannot make " + name);
    path_ = name;
    directory_.descriptor = open(name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  }
  ~StorageTest() override {
    close(directory_.descriptor);
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }

  std::string bytesOf(const std::string& name) const {
    // In blocks: byte by byte, megabytes take seconds in a build without optimisation.
    std::ostringstream bytes;
    bytes << std::ifstream(path_ / name, std::ios::binary).rdbuf();
    return bytes.str();
  }
  void write(const std::string& name, const std::string& bytes) const {
    std::ofstream(path_ / name, std::ios::binary) << bytes;
  }
  bool exists(const std::string& name) const { return std::filesystem::exists(path_ / name); }

  std::filesystem::path path_;
  Directory directory_;
};

}  // namespace velmora
