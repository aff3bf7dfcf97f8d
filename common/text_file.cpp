#include "common/text_file.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <stdexcept>

namespace zulisim {

std::string ReadFile(const std::string& path, std::size_t most) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) {
    throw std::runtime_error("'" + path + "' cannot be read: " + std::strerror(errno));
  }
  if (!S_ISREG(status.st_mode)) throw std::runtime_error("'" + path + "' is no regular file");
  if (static_cast<std::size_t>(status.st_size) > most) {
    throw std::runtime_error("'" + path + "' is longer than " + std::to_string(most) + " bytes");
  }
  std::ifstream file(path, std::ios::binary);
  std::string content(static_cast<std::size_t>(status.st_size), '\0');
  file.read(content.data(), static_cast<std::streamsize>(content.size()));
  if (file.bad() || !file.is_open()) throw std::runtime_error("'" + path + "' cannot be read");
  content.resize(static_cast<std::size_t>(file.gcount()));
  return content;
}

}  // namespace zulisim
