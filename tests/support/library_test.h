#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "api/kalo_dll.h"
#include "api/kalo_dll_state.h"
#include "log/log_sink.h"
#include "log/logger.h"
#include "simulator/attachment.h"
#include "simulator/engine.h"
#include "transport/client_session.h"

namespace test {

using Lines = std::vector<std::string>;
using Bytes = std::vector<unsigned char>;

// A request or reply: the four header words, then a body of counting bytes.
Bytes Message(uint32_t command, size_t size = 32, uint32_t status = 0, uint32_t word0 = 0,
              uint32_t word3 = 0);

// As the log prints a pointer.
std::string Pointer(const void* pointer);

// As functions, since a macro takes no braced list.
template <typename... Text>
Lines List(const Text&... texts) {
  return {std::string(texts)...};
}

// "name: text" for each text.
Lines WithName(const std::string& name, Lines texts);
template <typename... Text>
Lines Of(const std::string& name, const Text&... texts) {
  return WithName(name, List(texts...));
}
Lines operator+(Lines left, const Lines& right);

// The global state at one moment.
class StateSnapshot {
 public:
  StateSnapshot();
  // Names of the fields that differ now, in order of declaration; the lock does not count.
  Lines Changed() const;

 private:
  std::string bytes_;
};

// Keeps what the log delivers.
class MemorySink : public LogSink {
 public:
  explicit MemorySink(Lines* lines) : lines_(lines) {}
  void logMessage(const char* message) override;

  std::function<void()> onLine;  // runs under the log's lock

 private:
  Lines* lines_;
};

// The library, its log, and the engine in this process. Log lines and device operations stand in
// one transcript, in the order in which they happened; a failing test prints it.
class LibraryTest : public ::testing::Test, protected zulisim::OperationObserver {
 protected:
  explicit LibraryTest(zulisim::EngineOptions options = {});
  ~LibraryTest() override;
  void TearDown() override;
  void OnOperation(const zulisim::OperationRecord& record) override;

  // Let trace messages through, also while KaloInit3, which lowers the threshold, is running.
  void Trace();

  // What has happened since the last Take: log lines as "function: text" and device operations as
  // "<write>" or "<write EIO>".
  Lines TakeTranscript();
  // Log lines alone, without and with the number that tags them.
  Lines TakeLog();
  Lines TakeTaggedLog();

  // Lets the failure report begin here.
  void Forget();

  std::string LogFile() const { return folder_ + "/Marvoleth.log"; }
  std::string LogFileText() const;

  uint64_t Count(zulisim::Operation operation) const { return engine.Count(operation); }

  KaloDllState& state = gKaloDllState;
  zulisim::Engine engine;
  MemorySink* sink;  // owned by the log

 private:
  Lines Take();

  const std::string folder_;
  zulisim::Attachment attachment_;
  Lines* lines_;
  Lines history_;
};

}  // namespace test
