#include "common/text_input.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <vector>

namespace kaloctl {

namespace {

struct CloseUnlessStandard {
  void operator()(std::FILE* file) const {
    if (file != stdin) std::fclose(file);
  }
};

}  // namespace

void ReadBlocks(const std::string& path, const std::function<void(std::string_view)>& consumer) {
  std::unique_ptr<std::FILE, CloseUnlessStandard> file(
      path == "-" ? stdin : std::fopen(path.c_str(), "rb"));
  if (file != nullptr) {
    std::vector<char> block(1 << 16);
    std::size_t count = 0;
    while ((count = std::fread(block.data(), 1, block.size(), file.get())) != 0) {
      consumer(std::string_view(block.data(), count));
    }
    if (std::ferror(file.get()) == 0) return;
  }
  throw InputError(InputName(path) + ": " + std::strerror(errno) +
                   ": the name of a readable file is expected, or - for standard input");
}

std::string ReadInput(const std::string& path) {
  std::string content;
  ReadBlocks(path, [&](std::string_view block) {
    content += block;
    if (content.size() <= kLongestInput) return;
    throw InputTooLong(InputName(path) + ": at most " + std::to_string(kLongestInput) +
                       " bytes are expected");
  });
  return content;
}

std::string InputName(const std::string& path) {
  return path == "-" ? "standard input" : "'" + path + "'";
}

}  // namespace kaloctl
