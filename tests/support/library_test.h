#pragma once

#include <cxxabi.h>
#include <gmock/gmock.h>

#include <cstddef>
#include <exception>

#include "api/kalo_dll.h"
#include "api/kalo_dll_state.h"
#include "log/log_sink.h"
#include "log/logger.h"
#include "simulator/in_process/in_process_device.h"
#include "simulator/engine/engine.h"
#include "tests/support/standard_headers.h"
#include "transport/client_session.h"

namespace test {

using Lines = std::vector<std::string>;
using Bytes = std::vector<unsigned char>;

// Returns a request or reply: four header words, then a body of consecutive byte values.
inline Bytes Message(uint32_t command, size_t size = 32, uint32_t status = 0, uint32_t word0 = 0,
                     uint32_t word3 = 0) {
  Bytes bytes(size);
  for (size_t i = 0; i < size; ++i) bytes[i] = static_cast<unsigned char>(i);
  const uint32_t words[] = {word0, command, status, word3};
  std::memcpy(bytes.data(), words, std::min(size, sizeof words));
  return bytes;
}

// Returns "type: text" of the exception that a call throws. Uses the type's name, because the
// program cannot catch the library's types by type if the C++ runtime compares them by address.
inline std::string Thrown(const std::function<void()>& call) {
  try {
    call();
    return "nothing";
  } catch (...) {
    // The pointer points to the thrown object, which begins with a std::exception.
    const std::exception_ptr pointer = std::current_exception();
    const std::exception* exception;
    std::memcpy(&exception, &pointer, sizeof exception);
    return std::string(abi::__cxa_current_exception_type()->name()) + ": " + exception->what();
  }
}
inline std::string RuntimeError(const std::string& text) { return "St13runtime_error: " + text; }
inline std::string LogicError(const std::string& text) { return "St11logic_error: " + text; }

// A copy of the global state.
class StateSnapshot {
 public:
  StateSnapshot() { std::memcpy(bytes_, &gKaloDllState, sizeof bytes_); }

  // Returns the names of the fields that have changed, in order of declaration, without the lock.
  Lines Changed() const {
    Lines names;
    for (const auto& [name, offset, size] : kFields) {
      if (std::memcmp(bytes_ + offset, State() + offset, size) != 0) names.push_back(name);
    }
    return names;
  }

  void Restore() const {
    for (const auto& field : kFields) {
      std::memcpy(State() + field.offset, bytes_ + field.offset, field.size);
    }
  }

  const KaloDllState& operator*() const { return *reinterpret_cast<const KaloDllState*>(bytes_); }

 private:
#define FIELD(name) \
  { #name, offsetof(KaloDllState, name), sizeof(KaloDllState::name) }
  static constexpr struct {
    const char* name;
    size_t offset, size;
  } kFields[] = {
      FIELD(kaloInterfaceVersion), FIELD(fenuInterfaceVersion), FIELD(provisioningSession),
      FIELD(kaloSessionA),         FIELD(kaloSessionB),         FIELD(fenuSession),
      FIELD(apiErrorText),         FIELD(apiErrorCode),         FIELD(kaloErrorText),
      FIELD(kaloErrorCode),        FIELD(fenuErrorText),        FIELD(fenuErrorCode),
      FIELD(lastErrorSource),      FIELD(lastErrorContext),     FIELD(lastErrorProcessId),
      FIELD(firmwareApiVersion),   FIELD(stateInitFlag),        FIELD(kaloRefCountA),
      FIELD(kaloRefCountB),        FIELD(fenuRefCount),         FIELD(sessionBShared)};
#undef FIELD

  static char* State() { return reinterpret_cast<char*>(&gKaloDllState); }

  alignas(KaloDllState) char bytes_[sizeof(KaloDllState)];
};

// Runs the library, its log and the engine in this process.
class LibraryTest : public ::testing::Test {
 protected:
  // Keeps the lines that the log delivers.
  struct Sink : LogSink {
    explicit Sink(LibraryTest* test) : owner(test) {}
    void logMessage(const char* message) override {
      owner->Add(message);
      if (onLine) onLine();
    }

    LibraryTest* const owner;
    std::function<void()> onLine;  // runs under the log's lock
  };

  explicit LibraryTest(zulisim::EngineOptions options = {}) : engine(std::move(options)) {
    // An earlier process with the same number may have left the file.
    std::filesystem::remove_all(logFile);
    Logger::logBase.sinks.push_back(sink);
  }
  ~LibraryTest() override {
    auto& sinks = Logger::logBase.sinks;
    sinks.erase(std::remove(sinks.begin(), sinks.end(), sink), sinks.end());
    delete sink;
    std::filesystem::remove_all(logFile);
  }

  void Add(std::string line) { lines_.push_back(std::move(line)); }
  // Returns the lines since the last call, as "function:12: text".
  Lines TakeRaw() { return std::exchange(lines_, {}); }

  // Lets KALO answer with this status and private data from now on.
  void Answer(uint32_t status, const std::optional<Bytes>& privateData = {}) {
    engine.SetResponder("KALO", [=](const Bytes& request) {
      return zulisim::EchoReply(request, status, privateData);
    });
  }

  const std::string logFile = testing::TempDir() + "kalodll_log." + std::to_string(getpid());
  KaloDllState& state = gKaloDllState;
  zulisim::Engine engine;
  Sink* const sink = new Sink(this);  // owned by the log

 private:
  zulisim::InProcessDevice attachment_{engine, {{"/data/Marvoleth.log", logFile}}};
  // Not locked: outside the log's lock, only one thread at a time may log, use the device or take
  // the lines.
  Lines lines_;
};

}  // namespace test
