// An executable at a fixed address has copies of the library's data. The executable and the library
// must both use the copies.

#include <gtest/gtest.h>

#include <stdexcept>

#include "api/kalo_dll.h"
#include "api/kalo_dll_state.h"
#include "log/logger.h"
#include "oscl/last_error.h"
#include "transport/client_session.h"
#include "transport/kalo_exception.h"

namespace {

struct CountingSink : LogSink {
  void logMessage(const char*) override { ++lines; }
  int lines = 0;
};

TEST(CopiedData, is_used_by_program_and_library) {
  EXPECT_EQ(ClientSession::CommandIdToGuid(0), &ClientSession::KALO_CLIENT_GUID);
  EXPECT_EQ(ClientSession::CommandIdToGuid(0x30000), &ClientSession::FENU_CLIENT_GUID);
  KALO_STATE_INIT_PARAMS params{0x30002, 1};
  KaloStateInit(&params);
  EXPECT_EQ(gKaloDllState.firmwareApiVersion, 0x30002u);
  EXPECT_EQ(gKaloDllState.lastErrorProcessId, 0xDEADBEEF)
      << "constructed in the copy of the program";
  auto* sink = new CountingSink;
  Logger::logBase.sinks.push_back(sink);
  KaloStateInit(nullptr);
  EXPECT_EQ(sink->lines, 2);
  gLastError = 7;
  EXPECT_EQ(GetLastError(), 7u);
}

TEST(CopiedTypes, are_caught) {
  const KALO_DLL_STATUS status = KALO_DLL_STATUS_FAILURE;
  EXPECT_THROW(throw KaloException(status, "here"), KaloException);
#ifndef _LIBCPP_VERSION  // libc++ compares types by address, and the library has its own types
  ClientSession session;
  EXPECT_THROW(session.IoControl(nullptr, 0, nullptr, 0), std::runtime_error);
  EXPECT_THROW(session.DisconnectClient(nullptr), std::logic_error);
  EXPECT_THROW(throw KaloException(status, ""), std::runtime_error);
#endif
}

}  // namespace
