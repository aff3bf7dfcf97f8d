#pragma once

#include "oscl/types.h"

OSCL_BEGIN_C

/* Splits a full path at its first backslash. Stores 2 for "HKEY_LOCAL_MACHINE" or 1 for
 * "HKEY_CURRENT_USER" in `*rootType`, and in `*subPath` a pointer to the character behind the
 * backslash: into the caller's string, nothing is copied. E_FAIL, with nothing stored: another
 * root, no backslash, nothing behind it, or a null pointer. */
HRESULT OSCL_UserFeature_ParsePath(void* iface, const char* path, uint32_t* rootType,
                                   char** subPath);

/* Opens `path` under the root 1 (HKEY_CURRENT_USER) or 2 (HKEY_LOCAL_MACHINE); with another
 * `rootType` the path alone is the key's name. Returns what RegOpenKeyEx returns. */
HRESULT OSCL_UserFeature_OpenRegistry(uint32_t rootType, const char* path, uint32_t access,
                                      HKEY* key);

OSCL_END_C

#ifdef __cplusplus
#include "oscl/registry.h"

namespace oscl {

// An opened key, closed at the end of a scope. Closing stores 0 in gLastError.
class OpenedKey {
 public:
  OpenedKey(uint32_t rootType, const char* path, uint32_t access)
      : result_(OSCL_UserFeature_OpenRegistry(rootType, path, access, &key_)) {}
  ~OpenedKey() {
    if (result_ == S_OK && key_ != 0) RegCloseKey_Linux(key_);
  }
  OpenedKey(const OpenedKey&) = delete;
  OpenedKey& operator=(const OpenedKey&) = delete;

  HRESULT result() const { return result_; }
  HKEY get() const { return key_; }

 private:
  HKEY key_ = 0;
  HRESULT result_;
};

}  // namespace oscl
#endif
