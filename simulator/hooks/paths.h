#pragma once

namespace zulisim::hooks {

inline constexpr const char* kDevicePath = "/dev/zuli";

// True when both name the same file but for repeated slashes and "." components in `path`.
inline bool SamePath(const char* path, const char* canonical) {
  if (path == nullptr || *path != '/') return false;
  while (true) {
    if (*path == '/') {
      do {
        while (*path == '/') ++path;
        if (path[0] == '.' && path[1] == '/') ++path;
      } while (*path == '/');
      if (*canonical != '/') return false;
      ++canonical;
      continue;
    }
    if (*path != *canonical) return false;
    if (*path == '\0') return true;
    ++path;
    ++canonical;
  }
}

}  // namespace zulisim::hooks
