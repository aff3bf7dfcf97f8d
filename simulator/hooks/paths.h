#pragma once

#include <limits.h>

#include <cstddef>
#include <cstring>

namespace zulisim::hooks {

inline constexpr const char* kDevicePath = "/dev/zuli";

// Returns true if `path` is absolute and names the file `canonical`. Compares only the text: it
// ignores repeated slashes, resolves "." and "..", and does not follow links.
inline bool SamePath(const char* path, const char* canonical) {
  if (path == nullptr || *path != '/' || std::strlen(path) >= PATH_MAX) return false;
  char plain[PATH_MAX];
  char* end = plain;
  bool isFile = false;  // the last component is a name
  for (std::size_t length = 0; *path != '\0'; path += length) {
    path += std::strspn(path, "/");
    length = std::strcspn(path, "/");
    const bool isUp = length == 2 && std::memcmp(path, "..", 2) == 0;
    isFile = length > 0 && !isUp && !(length == 1 && *path == '.');
    if (isFile) {
      *end++ = '/';
      std::memcpy(end, path, length);
      end += length;
    } else if (isUp) {
      while (end > plain && *--end != '/') {
      }
    }
  }
  *end = '\0';
  return isFile && std::strcmp(plain, canonical) == 0;
}

// Returns true if `path` names the device and a device is served.
bool IsDevice(const char* path);

// Opens the device like open(2) and returns its result.
int OpenDevice(int flags, unsigned mode);

}  // namespace zulisim::hooks
