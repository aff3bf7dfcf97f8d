#include "oscl/user_feature_key.h"

#include <cstring>
#include <string_view>

namespace {

constexpr uint32_t kRootCurrentUser = 1;
constexpr uint32_t kRootLocalMachine = 2;

HKEY RootOf(uint32_t rootType) {
  switch (rootType) {
    case kRootCurrentUser:
      return HKEY_CURRENT_USER;
    case kRootLocalMachine:
      return HKEY_LOCAL_MACHINE;
    default:
      return 0;
  }
}

// The root type of a name, or 0.
uint32_t RootTypeOf(std::string_view name) {
  if (name == "HKEY_LOCAL_MACHINE") return kRootLocalMachine;
  if (name == "HKEY_CURRENT_USER") return kRootCurrentUser;
  return 0;
}

}  // namespace

HRESULT OSCL_UserFeature_ParsePath(void* /*iface*/, const char* path, uint32_t* rootType,
                                   char** subPath) {
  if (path == nullptr || rootType == nullptr || subPath == nullptr) return E_FAIL;
  const char* backslash = std::strchr(path, '\\');
  if (backslash == nullptr || backslash[1] == '\0') return E_FAIL;
  const uint32_t parsed = RootTypeOf({path, static_cast<std::size_t>(backslash - path)});
  if (parsed == 0) return E_FAIL;
  *rootType = parsed;
  *subPath = const_cast<char*>(backslash + 1);
  return S_OK;
}

HRESULT OSCL_UserFeature_OpenRegistry(uint32_t rootType, const char* path, uint32_t access,
                                      HKEY* key) {
  return RegOpenKeyEx(RootOf(rootType), path, 0, access, key);
}
