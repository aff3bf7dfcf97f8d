#pragma once

#include <cstddef>
#include <cstring>

namespace zulisim::hooks {

inline constexpr const char* kDevicePath = "/dev/zuli";

// True when `path` is absolute and names the file of `canonical` by its text alone: repeated
// slashes, "." and ".." are allowed for, links are not followed.
inline bool SamePath(const char* path, const char* canonical) {
  if (path == nullptr || *path != '/') return false;
  const char* end = path + std::strlen(path);
  const char* wanted = canonical + std::strlen(canonical);
  if (end[-1] == '/') return false;  // a folder
  std::size_t skipped = 0;           // components that a later ".." takes back
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

// True for the path of a device that is served.
bool IsDevice(const char* path);

// What open(2) does for such a path.
int OpenDevice(int flags, unsigned mode);

}  // namespace zulisim::hooks
