#include "oscl/version.h"

#include <cstdio>

#include "oscl/bounded_string.h"
#include "oscl/errno_code.h"
#include "oscl/last_error.h"
#include "oscl/memory.h"

static_assert(sizeof(OSVERSIONINFO) == 148, "callers rely on the layout of the record");

namespace {

// Scans the kernel's version into the record and returns the last-error code.
uint32_t ScanVersion(OSVERSIONINFO& info) {
  std::FILE* file = nullptr;
  const int32_t error = fopen_s(&file, "/proc/version", "r");
  if (file == nullptr) return oscl::ErrnoCode(error);
  int major = 0;
  int minor = 0;
  const int scanned = std::fscanf(file, "Linux version %d.%d", &major, &minor);
  std::fclose(file);
  if (scanned < 1) return OSCL_ERROR_UNKNOWN;
  info.dwMajorVersion = static_cast<uint32_t>(major);
  info.dwMinorVersion = static_cast<uint32_t>(minor);
  return OSCL_ERROR_SUCCESS;
}

}  // namespace

BOOL GetVersionEx(OSVERSIONINFO* info) {
  uint32_t code = OSCL_ERROR_INVALID_PARAMETER;
  if (info != nullptr) {
    ZeroMemory(info, sizeof(*info));
    info->dwOSVersionInfoSize = sizeof(*info);
    code = ScanVersion(*info);
  }
  oscl::SetLastErrorCode(code);
  return code == OSCL_ERROR_SUCCESS ? 1 : 0;
}
