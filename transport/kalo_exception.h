#pragma once

/* For C++ only. */
#ifndef __cplusplus
#error \
    "transport/kalo_exception.h is for C++ only; C drivers include api/kalo_dll.h and api/kalo_dll_state.h"
#endif

#include <stdexcept>
#include <string>

#include "transport/kalo_status.h"

// A failure that the library's own checks found. The entry point that catches it returns its
// status. If it crosses into a driver with another C++ runtime, std::uncaught_exceptions() of that
// runtime may stay off by one.
class KaloException : public std::runtime_error {
 public:
  // `detail` is not copied: it must live as long as the program. It may be null.
  KaloException(KALO_DLL_STATUS status, const char* detail);

  ~KaloException() override;

  // Returns "KALO Exception 0x<status in hexadecimal> <detail>". The first call builds the text,
  // which lives as long as this object. If memory is exhausted, the text is "KALO Exception". Only
  // one thread at a time may call it.
  const char* what() const noexcept override;

  KALO_DLL_STATUS errorStatus;
  const char* detail;

 private:
  mutable std::string whatText;
};
