#include "tools/text_input.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include "tools/input_error.h"

namespace kaloctl {

namespace {

struct CloseUnlessStandard {
  void operator()(std::FILE* file) const {
    if (file != stdin) std::fclose(file);
  }
};

}  // namespace

std::string ReadInput(const std::string& path) {
  std::unique_ptr<std::FILE, CloseUnlessStandard> file(
      path == "-" ? stdin : std::fopen(path.c_str(), "rb"));
  std::string content;
  if (file != nullptr) {
    char block[1 << 16];
    std::size_t count = 0;
    while ((count = std::fread(block, 1, sizeof(block), file.get())) != 0) {
      content.append(block, count);
    }
    if (std::ferror(file.get()) == 0) return content;
  }
  throw InputError(InputName(path) + ": " + std::strerror(errno) +
                   ": the name of a readable file is expected, or - for standard input");
}

std::string InputName(const std::string& path) {
  return path == "-" ? "standard input" : "'" + path + "'";
}

}  // namespace kaloctl
