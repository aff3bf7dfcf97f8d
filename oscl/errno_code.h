#pragma once

#include <cerrno>
#include <cstdint>

#include "oscl/last_error.h"

namespace oscl {

// The last-error code of an errno value that a file or module primitive failed with.
inline uint32_t ErrnoCode(int error) {
  switch (error) {
    case 0:
      return OSCL_ERROR_SUCCESS;
    case ENOENT:
      return OSCL_ERROR_FILE_NOT_FOUND;
    case EEXIST:
      return OSCL_ERROR_FILE_EXISTS;
    case EINVAL:
      return OSCL_ERROR_INVALID_PARAMETER;
    case EROFS:
      return OSCL_ERROR_FILE_READ_ONLY;
    default:
      return OSCL_ERROR_UNKNOWN;
  }
}

}  // namespace oscl
