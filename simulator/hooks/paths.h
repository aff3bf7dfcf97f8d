#pragma once

#include <cstddef>
#include <cstring>

namespace zulisim::hooks {

inline constexpr const char* kDevicePath = "/dev/zuli";

// Returns true if `path` is absolute and names the file `canonical`. Compares only the text: it
// ignores repeated slashes, resolves "." and "..", and does not follow links.
inline bool SamePath(const char* path, const char* canonical) {
  if (path == nullptr || *path != '/') return false;
  const char* end = path + std::strlen(path);
  const char* wanted = canonical + std::strlen(canonical);
  if (end[-1] == '/') return false;  // a folder
  std::size_t skipped = 0;           // components that a later ".." cancels
  for (bool isLast = true; end > path; isLast = false) {
    const char* name = end;
    while (name[-1] != '/') --name;
    const auto length = static_cast<std::size_t>(end - name);
    end = name - 1;
    const bool isUp = length == 2 && name[0] == '.' && name[1] == '.';
    if (length == 0 || isUp || (length == 1 && *name == '.')) {
      if (isLast) return false;
      skipped += isUp ? 1 : 0;
    } else if (skipped > 0) {
      --skipped;
    } else {
      const auto left = static_cast<std::size_t>(wanted - canonical);
      if (left <= length || wanted[-1 - static_cast<std::ptrdiff_t>(length)] != '/' ||
          std::memcmp(wanted - length, name, length) != 0) {
        return false;
      }
      wanted -= length + 1;
    }
  }
  return wanted == canonical;
}

// Returns true if `path` names the device and a device is served.
bool IsDevice(const char* path);

// Opens the device like open(2) and returns its result.
int OpenDevice(int flags, unsigned mode);

}  // namespace zulisim::hooks
