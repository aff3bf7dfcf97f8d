#include "oscl/module.h"

#include <dlfcn.h>

#include <cerrno>

#include "oscl/last_error.h"

namespace {

uint32_t NotAvailable() {
  oscl::SetLastErrorCode(OSCL_ERROR_SUCCESS);
  return 0;
}

}  // namespace

HANDLE LoadLibrary(const char* name) {
  // The loader may not set errno, so clear it first: an earlier errno must not be reported. Restore
  // it unless the loader sets another.
  const int earlier = errno;
  errno = 0;
  HANDLE module = dlopen(name, RTLD_LAZY);
  const int error = module == nullptr ? errno : 0;
  oscl::SetLastErrorFromErrno(error);
  if (error == 0) errno = earlier;
  return module;
}

HANDLE OSCL_LoadLibrary(const char* name) { return LoadLibrary(name); }

BOOL FreeLibrary(HANDLE module) {
  // The loader would dereference a null handle.
  const bool released = module != nullptr && dlclose(module) == 0;
  oscl::SetLastErrorCode(released ? OSCL_ERROR_SUCCESS : OSCL_ERROR_UNKNOWN);
  return released ? 1 : 0;
}

HRESULT OSCL_FreeLibrary(HANDLE module) { return FreeLibrary(module) != 0 ? S_OK : E_FAIL; }

void* GetProcAddress(HANDLE module, const char* name) {
  void* address = name != nullptr ? dlsym(module, name) : nullptr;
  oscl::SetLastErrorCode(OSCL_ERROR_SUCCESS);
  return address;
}

void* OSCL_GetProcAddress(HANDLE module, const char* name) { return GetProcAddress(module, name); }

HANDLE GetModuleHandle(const char* /*name*/) {
  NotAvailable();
  return nullptr;
}

uint32_t GetModuleFileName(HANDLE /*module*/, char* /*path*/, uint32_t /*size*/) {
  return NotAvailable();
}

uint32_t GetWindowsDirectory(char* /*path*/, uint32_t /*size*/) { return NotAvailable(); }

uint32_t GetSystemWow64Directory(char* /*path*/, uint32_t /*size*/) { return NotAvailable(); }
