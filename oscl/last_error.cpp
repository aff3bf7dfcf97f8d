#include "oscl/last_error.h"

#include <algorithm>
#include <cerrno>
#include <iterator>

#include "oscl/android_log.h"

namespace {

constexpr const char* kMessages[] = {
#define OSCL_ERROR_MESSAGE(name, code, message) message,
    OSCL_ERROR_TABLE(OSCL_ERROR_MESSAGE)
#undef OSCL_ERROR_MESSAGE
};
static_assert(std::size(kMessages) == OSCL_ERROR_UNKNOWN + 1, "one message for each code");

}  // namespace

void oscl::SetLastErrorFromErrno(int error) {
  switch (error) {
    case 0:
      return SetLastErrorCode(OSCL_ERROR_SUCCESS);
    case ENOENT:
      return SetLastErrorCode(OSCL_ERROR_FILE_NOT_FOUND);
    case EEXIST:
      return SetLastErrorCode(OSCL_ERROR_FILE_EXISTS);
    case EINVAL:
      return SetLastErrorCode(OSCL_ERROR_INVALID_PARAMETER);
    case EROFS:
      return SetLastErrorCode(OSCL_ERROR_FILE_READ_ONLY);
    default:
      return SetLastErrorCode(OSCL_ERROR_UNKNOWN);
  }
}

uint32_t gLastError = OSCL_ERROR_SUCCESS;

uint32_t GetLastError(void) { return __atomic_load_n(&gLastError, __ATOMIC_RELAXED); }

uint32_t OSCL_GetLastError(void) { return GetLastError(); }

void ShowErrorInfo(uint32_t code) {
  const char* message = kMessages[std::min<uint32_t>(code, OSCL_ERROR_UNKNOWN)];
  oscl::AndroidLog()(oscl::kAndroidLogDebug, nullptr, "%s", message);
}
