#pragma once

#include <gtest/gtest.h>

#include <dirent.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>

#include "oscl/memory.h"
#include "simulator/attachment.h"

// A registry file of the case's own in the place of the real one. No case may leave a descriptor
// or a block of memory behind.
class RegistryFixture : public testing::Test {
 protected:
  void SetUp() override {
    path_ = testing::TempDir() + "vrel_registry." + std::to_string(getpid());
    attachment_.emplace(engine_, zulisim::Attachment::Redirects{{"/etc/vrel_registry.txt", path_}});
    descriptors_ = OpenDescriptors();
    blocks_ = gAllocationCount;
  }

  void TearDown() override {
    EXPECT_EQ(OpenDescriptors(), descriptors_);
    EXPECT_EQ(gAllocationCount, blocks_);
    attachment_.reset();
    std::remove(path_.c_str());
  }

  void Store(const std::string& text) const {
    std::ofstream(path_, std::ios::binary | std::ios::trunc) << text;
  }

  std::string Stored() const {
    std::ifstream file(path_, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }

  static long OpenDescriptors() {
    DIR* directory = opendir("/proc/self/fd");
    long count = 0;
    while (readdir(directory) != nullptr) ++count;
    closedir(directory);
    return count;
  }

  std::string path_;

 private:
  zulisim::Engine engine_;
  std::optional<zulisim::Attachment> attachment_;
  long descriptors_ = 0;
  int32_t blocks_ = 0;
};
