#include "common/file_follower.h"
#include "tests/support/descriptors.h"
#include "tests/support/standard_headers.h"

namespace common {
namespace {

TEST(FileFollower, reads_what_is_appended_and_starts_again_in_a_new_file) {
  char folder[] = "/tmp/follower.XXXXXX";
  const std::string path = mkdtemp(folder) + std::string("/log"), next = path + ".next";
  const long descriptors = test::OpenDescriptors();
  auto follower = std::make_unique<FileFollower>(path);
  EXPECT_EQ(follower->Take(), "");
  for (const auto& [file, mode, text] : {std::tuple(path, std::ios::app, "one"),
                                         {path, std::ios::app, "two"},
                                         {path, std::ios::trunc, "three"},
                                         {next, std::ios::trunc, "longer"}}) {
    std::ofstream(file, mode) << text;
    std::filesystem::rename(file, path);
    EXPECT_EQ(follower->Take(), text);
  }
  std::filesystem::remove_all(folder);
  EXPECT_EQ(follower->Take(), "");
  follower.reset();
  EXPECT_EQ(test::OpenDescriptors(), descriptors);
}

}  // namespace
}  // namespace common
