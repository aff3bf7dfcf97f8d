#include "common/input.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <vector>

#include "common/format.h"
#include "common/text.h"

namespace common {
void ReadBlocks(const std::string& path, const std::function<void(std::string_view)>& consumer) {
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(
      path == "-" ? fdopen(dup(STDIN_FILENO), "rb") : std::fopen(path.c_str(), "rb"), &std::fclose);
  if (file != nullptr) {
    std::vector<char> block(1 << 16);
    std::size_t count = 0;
    while ((count = std::fread(block.data(), 1, block.size(), file.get())) != 0) {
      consumer(std::string_view(block.data(), count));
    }
    if (std::ferror(file.get()) == 0) return;
  }
  throw InputError("cannot read " + InputName(path) + ": " + std::strerror(errno));
}

std::string ReadInput(const std::string& path, std::size_t most) {
  std::string content;
  ReadBlocks(path, [&](std::string_view block) {
    content += block;
    if (content.size() <= most) return;
    throw InputError(Format("{} is longer than {} bytes", InputName(path), most));
  });
  return content;
}

std::string InputName(const std::string& path) {
  return path == "-" ? "standard input" : Quoted(path);
}

}  // namespace common
