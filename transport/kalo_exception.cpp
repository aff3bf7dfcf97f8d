#include "transport/kalo_exception.h"

#include <sstream>

KaloException::KaloException(KALO_DLL_STATUS status, const char* text)
    : std::runtime_error("KALO Exception"), errorStatus(status), detail(text) {}

KaloException::~KaloException() = default;

const char* KaloException::what() const noexcept {
  if (!whatText.empty()) return whatText.c_str();
  try {
    std::ostringstream text;
    text << std::runtime_error::what() << " 0x" << std::hex << static_cast<uint32_t>(errorStatus)
         << std::dec << ' ';
    if (detail != nullptr) text << detail;
    whatText = text.str();
    return whatText.c_str();
  } catch (...) {
    // If memory is exhausted, keep the driver's process alive without the text.
    return std::runtime_error::what();
  }
}
