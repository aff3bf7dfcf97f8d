#pragma once

/* For C++ only. */
#ifndef __cplusplus
#error \
    "transport/kalo_exception.h is for C++ only; C drivers include api/kalo_dll.h and api/kalo_dll_state.h"
#endif

#include <stdexcept>
#include <string>

#include "transport/kalo_status.h"

// A failure found by the library's own checks. The entry point that catches it returns its status.
// Where it crosses into a driver with another C++ runtime, std::uncaught_exceptions() there may
// stay one off.
class KaloException : public std::runtime_error {
 public:
  // `detail` is not copied: it must live as long as the program. It may be null.
  KaloException(KALO_DLL_STATUS status, const char* detail);

  ~KaloException() override;

  // "KALO Exception 0x<status in hexadecimal> <detail>", built at the first call and kept; the
  // text lives as long as this object. Out of memory leaves the first two words. Not for two
  // threads at once.
  const char* what() const noexcept override;

  KALO_DLL_STATUS errorStatus;
  const char* detail;

 private:
  mutable std::string whatText;
};
