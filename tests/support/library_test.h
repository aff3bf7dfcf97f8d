#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "api/kalo_dll.h"
#include "api/kalo_dll_state.h"
#include "log/log_sink.h"
#include "log/logger.h"
#include "simulator/in_process/in_process_device.h"
#include "simulator/engine/engine.h"
#include "transport/client_session.h"

namespace test {

using Lines = std::vector<std::string>;
using Bytes = std::vector<unsigned char>;

// Returns a request or reply: four header words, then a body of consecutive byte values.
Bytes Message(uint32_t command, size_t size = 32, uint32_t status = 0, uint32_t word0 = 0,
              uint32_t word3 = 0);

// A function, because macros do not accept braced lists.
template <typename... Text>
Lines List(const Text&... texts) {
  return {std::string(texts)...};
}

// Returns "type: text" of the exception that a call throws. Uses the type's name, because the
// program cannot catch the library's types by type if the C++ runtime compares them by address.
std::string Thrown(const std::function<void()>& call);
inline std::string RuntimeError(const std::string& text) { return "St13runtime_error: " + text; }
inline std::string LogicError(const std::string& text) { return "St11logic_error: " + text; }

// A copy of the global state.
class StateSnapshot {
 public:
  StateSnapshot();
  // Returns the names of the fields that have changed, in order of declaration, without the lock.
  Lines Changed() const;
  void Restore() const;
  const KaloDllState& operator*() const { return *reinterpret_cast<const KaloDllState*>(bytes_); }

 private:
  alignas(KaloDllState) char bytes_[sizeof(KaloDllState)];
};

// Runs the library, its log and the engine in this process.
class LibraryTest : public ::testing::Test {
 protected:
  // Keeps the lines that the log delivers.
  struct Sink : LogSink {
    explicit Sink(LibraryTest* test) : owner(test) {}
    void logMessage(const char* message) override;

    LibraryTest* const owner;
    std::function<void()> onLine;  // runs under the log's lock
  };

  explicit LibraryTest(zulisim::EngineOptions options = {});
  ~LibraryTest() override;

  // Returns the lines since the last call, as "function:12: text".
  Lines TakeRaw();
  void Add(std::string line);

  std::string LogFile() const { return folder_ + "/Marvoleth.log"; }

  uint64_t Count(zulisim::Operation operation) const { return engine.Count(operation); }

  KaloDllState& state = gKaloDllState;
  zulisim::Engine engine;
  Sink* sink;  // owned by the log

 private:
  const std::string folder_;
  zulisim::InProcessDevice attachment_;
  std::mutex mutex_;
  Lines lines_;
};

}  // namespace test
