// A C++ driver on a machine without the device: catches what the exported classes throw, logs into
// a sink of its own.
#undef NDEBUG
#include <cassert>
#include <cstring>
#include <sstream>
#include <stdexcept>

#include "api/kalo_dll.h"
#include "api/kalo_dll_state.h"
#include "log/logger.h"
#include "log/value_format.h"
#include "transport/client_session.h"
#include "transport/kalo_exception.h"

#ifdef _LIBCPP_VERSION
// libc++ compares standard types by address, and the library hides its own.
#define CATCH_FAILURE catch (...)
#else
#define CATCH_FAILURE catch (const std::runtime_error&)
#endif

// A driver that is a Windows-style module itself.
extern "C" int DllMain(void*, unsigned int, void*) { return 1; }

int main() {
  std::ostringstream lines;
  Logger::logBase.sinks.push_back(new StreamLogSink(&lines));
  Logger() << ClientSession::KALO_CLIENT_GUID;
  assert(lines.str() == "{fbf6fcf1,96cf,4e2e,a6,a6,1b,ab,8c,be,36,b1}");
  int caught = 0;
  try {
    ClientSession().ConnectClient(&ClientSession::KALO_CLIENT_GUID);
  }
  CATCH_FAILURE { ++caught; }
  try {
    throw KaloException(KALO_DLL_STATUS_INVALID_PARAMETER, "Invalid CP session handle");
  } catch (const KaloException& error) {
    caught += std::strcmp(error.what(), "KALO Exception 0x2 Invalid CP session handle") == 0;
  }
  assert(caught == 2);
  assert(gKaloDllState.lastErrorProcessId == 0xDEADBEEF);
}
