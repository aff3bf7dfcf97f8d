// A driver with a C++ runtime of its own, as every driver has one that is built with the NDK's
// static library. It uses no stream before its first message, and no runtime type of its own meets
// one of the library's but KaloException.

#include <cstdio>
#include <cstring>

#include "log/logger.h"
#include "transport/client_session.h"
#include "transport/kalo_exception.h"

namespace {

char received[64];

struct Receiver : LogSink {
  void logMessage(const char* message) override {
    std::snprintf(received, sizeof received, "%s", message);
  }
};

bool Logs() {
  Logger::logBase.sinks.push_back(new Receiver);
  Logger() << "text " << 42 << ' ' << 2.5 << ' ' << std::hex << 255 << std::endl;
  return std::strcmp(received, "text 42 2.5 ff\n") == 0;
}

bool CatchesKaloException() {
  unsigned char message[8] = {};
  ClientSession session;
  session.ConnectClient(&ClientSession::KALO_CLIENT_GUID);
  try {
    session.IoMessage(message, sizeof message, message, sizeof message, nullptr, nullptr);
  } catch (const KaloException& exception) {
    return exception.errorStatus == KALO_DLL_STATUS_INPUT_BUFFER_TOO_SMALL;
  } catch (...) {
  }
  return false;
}

// If this changes, docs/android.md says it wrong.
bool CatchesStandardTypes() {
  try {
    throw KaloException(KALO_DLL_STATUS_FAILURE, "");
  } catch (const std::exception&) {
    return true;
  } catch (...) {
  }
  return false;
}

}  // namespace

int main() {
  const bool logs = Logs(), catches = CatchesKaloException(), standard = CatchesStandardTypes();
  std::printf("logs: %d  catches KaloException: %d  as std::exception: %d\n", logs, catches,
              standard);
  return logs && catches && !standard ? 0 : 1;
}
