// An executable at a fixed address holds copies of the library's data: both sides must use them.

#include <cstdio>
#include <stdexcept>

#include "api/kalo_dll.h"
#include "api/kalo_dll_state.h"
#include "log/logger.h"
#include "oscl/last_error.h"
#include "transport/client_session.h"
#include "transport/kalo_exception.h"

namespace {

int failures = 0;
void Check(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "not so: %s\n", what);
  ++failures;
}

template <typename Exception, typename Function>
bool Throws(Function function) {
  try {
    function();
  } catch (const Exception&) {
    return true;
  } catch (...) {
  }
  return false;
}

struct CountingSink : LogSink {
  void logMessage(const char*) override { ++lines; }
  int lines = 0;
};

}  // namespace

int main() {
  Check(ClientSession::CommandIdToGuid(0) == &ClientSession::KALO_CLIENT_GUID, "KALO's address");
  Check(ClientSession::CommandIdToGuid(0x30000) == &ClientSession::FENU_CLIENT_GUID,
        "FENU's address");
  KALO_STATE_INIT_PARAMS params{0x30002, 1};
  KaloStateInit(&params);
  Check(gKaloDllState.firmwareApiVersion == 0x30002, "the state");
  Check(gKaloDllState.lastErrorProcessId == 0xDEADBEEF, "the state was constructed where it lies");
  auto* sink = new CountingSink;
  Logger::logBase.sinks.push_back(sink);
  KaloStateInit(nullptr);
  Check(sink->lines == 2, "the log's base");
  gLastError = 7;
  Check(GetLastError() == 7, "the last error");

#ifndef _LIBCPP_VERSION  // which compares types by address, and the library's are its own
  ClientSession session;
  unsigned char message[16] = {};
  const auto exchange = [&] { session.IoMessage(message, 16, message, 16, nullptr, nullptr); };
  Check(Throws<std::logic_error>(exchange), "logic_error is caught");
  Check(Throws<std::runtime_error>([&] { session.IoControl(nullptr, 0, nullptr, 0); }),
        "runtime_error is caught");
  Check(Throws<std::runtime_error>([] { throw KaloException(KALO_DLL_STATUS_FAILURE, ""); }),
        "KaloException is caught as runtime_error");
#endif
  const auto refuse = [] { throw KaloException(KALO_DLL_STATUS_FAILURE, "here"); };
  Check(Throws<KaloException>(refuse), "KaloException is caught");
  return failures;
}
