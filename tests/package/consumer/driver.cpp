// A C++ driver on a machine without the device. It shares data with the library, catches exceptions
// of the exported classes, and logs into its own sink. It uses no stream before its first message.
#undef NDEBUG
#include <cassert>
#include <cstring>
#include <string>
#include <stdexcept>

#include "api/kalo_dll.h"
#include "api/kalo_dll_state.h"
#include "log/logger.h"
#include "log/value_format.h"
#include "oscl/last_error.h"
#include "transport/client_session.h"
#include "transport/kalo_exception.h"

#ifdef _LIBCPP_VERSION
// libc++ compares standard types by address, and the library hides its own. If this changes,
// correct docs/android.md.
constexpr bool kStandardTypesPass = true;
#else
constexpr bool kStandardTypesPass = false;
#endif

struct StringSink : LogSink {
  void logMessage(const char* message) override { text += message; }
  static inline std::string text;
};

// The driver may define DllMain itself.
extern "C" int DllMain(void*, unsigned int, void*) { return 1; }

int main() {
  Logger::logBase.sinks.push_back(new StringSink);
  Logger() << ClientSession::KALO_CLIENT_GUID << 2.5 << std::endl;
  assert(StringSink::text == "{fbf6fcf1,96cf,4e2e,a6,a6,1b,ab,8c,be,36,b1}2.5\n");
  bool passed = false;
  try {
    ClientSession().ConnectClient(&ClientSession::KALO_CLIENT_GUID);
  } catch (const std::runtime_error&) {
  } catch (...) {
    passed = true;
  }
  assert(passed == kStandardTypesPass);
  try {
    throw KaloException(KALO_DLL_STATUS_INVALID_PARAMETER, "Invalid CP session handle");
  } catch (const KaloException& error) {
    assert(std::strcmp(error.what(), "KALO Exception 0x2 Invalid CP session handle") == 0);
  }
  assert(ClientSession::CommandIdToGuid(0) == &ClientSession::KALO_CLIENT_GUID);
  assert(ClientSession::CommandIdToGuid(0x30000) == &ClientSession::FENU_CLIENT_GUID);
  KALO_STATE_INIT_PARAMS params = {KALO_FIRMWARE_API_30, 1};
  assert(KaloStateInit(&params) == KALO_DLL_STATUS_SUCCESS);
  assert(StringSink::text.find("Executing call to KaloStateInit()") != std::string::npos);
  assert(gKaloDllState.firmwareApiVersion == KALO_FIRMWARE_API_30);
  gLastError = 7;
  assert(GetLastError() == 7);
}
