// A C++ driver on a machine without the device: catches what the exported classes throw, logs into a
// sink of its own.
#include <cstring>
#include <iostream>
#include <sstream>
#include <stdexcept>

#include "api/kalo_dll.h"
#include "api/kalo_dll_state.h"
#include "log/logger.h"
#include "log/value_format.h"
#include "transport/client_session.h"
#include "transport/kalo_exception.h"

namespace {

int failures = 0;

void Expect(const char* what, bool holds) {
  if (holds) return;
  std::cout << what << ": not so\n";
  ++failures;
}

}  // namespace

int main() {
  std::ostringstream lines;
  Logger::logBase.sinks.push_back(new StreamLogSink(&lines));
  Logger() << "from the driver";
  Expect("a driver's message reaches its sink", lines.str() == "from the driver");

  lines.str("");
  lines << ClientSession::KALO_CLIENT_GUID;
  Expect("a client is printed",
         lines.str() == "{fbf6fcf1,96cf,4e2e,a6,a6,1b,ab,8c,be,36,b1}");

  ClientSession session;
  bool thrown = false;
  try {
    session.ConnectClient(&ClientSession::KALO_CLIENT_GUID);
#ifdef _LIBCPP_VERSION
  // libc++ compares standard types by address, and the library hides its own.
  } catch (...) {
    thrown = true;
  }
#else
  } catch (const std::runtime_error& error) {
    thrown = std::strcmp(error.what(), "Cannot open ZULI device.") == 0;
  }
#endif
  Expect("a missing device is thrown with its text", thrown);
  try {
    throw KaloException(KALO_DLL_STATUS_INVALID_PARAMETER, "Invalid CP session handle");
  } catch (const KaloException& error) {
    thrown = std::strcmp(error.what(), "KALO Exception 0x2 Invalid CP session handle") == 0;
  }
  Expect("the exception's text is built by the library", thrown);
  Expect("SessionCleanup leaves null alone", SessionCleanup(nullptr) == KALO_DLL_STATUS_SUCCESS);
  Expect("nothing is recorded yet", gKaloDllState.lastErrorProcessId == 0xDEADBEEF);
  std::cout << (failures == 0 ? "C++ driver: as expected" : "C++ driver: FAILED") << '\n';
  return failures != 0;
}
