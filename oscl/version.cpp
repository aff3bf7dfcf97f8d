#include "oscl/version.h"

#include <cstdio>

#include "oscl/bounded_string.h"
#include "oscl/last_error.h"
#include "oscl/memory.h"

static_assert(sizeof(OSVERSIONINFO) == 148, "callers rely on the layout of the record");

namespace {

// Reads the kernel's version into the record. Returns false with a code in gLastError on failure.
bool ScanVersion(OSVERSIONINFO& info) {
  std::FILE* file = nullptr;
  const int32_t error = fopen_s(&file, "/proc/version", "r");
  if (file == nullptr) return oscl::SetLastErrorFromErrno(error), false;
  int major = 0;
  int minor = 0;
  const int scanned = std::fscanf(file, "Linux version %d.%d", &major, &minor);
  std::fclose(file);
  if (scanned < 1) return oscl::SetLastErrorCode(OSCL_ERROR_UNKNOWN), false;
  info.dwMajorVersion = static_cast<uint32_t>(major);
  info.dwMinorVersion = static_cast<uint32_t>(minor);
  return true;
}

}  // namespace

BOOL GetVersionEx(OSVERSIONINFO* info) {
  if (info == nullptr) return oscl::SetLastErrorCode(OSCL_ERROR_INVALID_PARAMETER), 0;
  // ZeroMemory also stores 0 in gLastError.
  ZeroMemory(info, sizeof(*info));
  info->dwOSVersionInfoSize = sizeof(*info);
  return ScanVersion(*info) ? 1 : 0;
}
