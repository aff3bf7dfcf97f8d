#include "tests/support/library_test.h"

#include <cxxabi.h>
#include <stdlib.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <exception>
#include <filesystem>
#include <utility>

namespace test {

namespace {

#define FIELD(name) \
  { #name, offsetof(KaloDllState, name), sizeof(KaloDllState::name) }
constexpr struct {
  const char* name;
  size_t offset, size;
} kFields[] = {FIELD(kaloInterfaceVersion), FIELD(fenuInterfaceVersion), FIELD(provisioningSession),
               FIELD(kaloSessionA),         FIELD(kaloSessionB),         FIELD(fenuSession),
               FIELD(apiErrorText),         FIELD(apiErrorCode),         FIELD(kaloErrorText),
               FIELD(kaloErrorCode),        FIELD(fenuErrorText),        FIELD(fenuErrorCode),
               FIELD(lastErrorSource),      FIELD(lastErrorContext),     FIELD(lastErrorProcessId),
               FIELD(firmwareApiVersion),   FIELD(stateInitFlag),        FIELD(kaloRefCountA),
               FIELD(kaloRefCountB),        FIELD(fenuRefCount),         FIELD(sessionBShared)};
#undef FIELD

char* StateBytes() { return reinterpret_cast<char*>(&gKaloDllState); }

std::string MakeFolder() {
  std::string pattern = (std::filesystem::temp_directory_path() / "kalodll.XXXXXX").string();
  return mkdtemp(pattern.data());
}

}  // namespace

Bytes Message(uint32_t command, size_t size, uint32_t status, uint32_t word0, uint32_t word3) {
  Bytes bytes(size);
  for (size_t i = 0; i < size; ++i) bytes[i] = static_cast<unsigned char>(i);
  const uint32_t words[] = {word0, command, status, word3};
  std::memcpy(bytes.data(), words, std::min(size, sizeof words));
  return bytes;
}

StateSnapshot::StateSnapshot() { std::memcpy(bytes_, &gKaloDllState, sizeof bytes_); }

Lines StateSnapshot::Changed() const {
  Lines names;
  for (const auto& [name, offset, size] : kFields) {
    if (std::memcmp(bytes_ + offset, StateBytes() + offset, size) != 0) names.push_back(name);
  }
  return names;
}

void StateSnapshot::Restore() const {
  for (const auto& [name, offset, size] : kFields) {
    std::memcpy(StateBytes() + offset, bytes_ + offset, size);
  }
}

std::string Thrown(const std::function<void()>& call) {
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

void LibraryTest::Sink::logMessage(const char* message) {
  owner->Add(message);
  if (onLine) onLine();
}

LibraryTest::LibraryTest(zulisim::EngineOptions options)
    : engine(std::move(options)),
      folder_(MakeFolder()),
      attachment_(engine, {{"/data/Marvoleth.log", LogFile()}}) {
  sink = new Sink(this);
  Logger::logBase.sinks.push_back(sink);
}

LibraryTest::~LibraryTest() {
  auto& sinks = Logger::logBase.sinks;
  sinks.erase(std::remove(sinks.begin(), sinks.end(), sink), sinks.end());
  delete sink;
  std::filesystem::remove_all(folder_);
}

void LibraryTest::Add(std::string line) {
  const std::lock_guard<std::mutex> lock(mutex_);
  lines_.push_back(std::move(line));
}

Lines LibraryTest::TakeRaw() {
  const std::lock_guard<std::mutex> lock(mutex_);
  return std::exchange(lines_, {});
}

}  // namespace test
