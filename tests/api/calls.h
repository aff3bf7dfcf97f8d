#pragma once

#include <algorithm>
#include <cstring>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "tests/api/injected_failure.h"
#include "tests/support/library_test.h"

namespace test {

// Defects of a request, as bits that can be combined.
enum Shape : unsigned {
  kNullInput = 1,
  kNullOutput = 2,
  kShortInput = 4,
  kShortOutput = 8,
  kNullPrivateData = 16,
  kNullPrivateLength = 32
};

// The private-data arguments: content before the call, length, and whether they contain the tag of
// an ioctl wrapper.
inline constexpr struct {
  const char* data;
  unsigned int length;
  bool wrapper;
} kTags[] = {{"", 16, false},         {"IOCTLHND", 9, true},  {"IOCTLFRE", 9, true},
             {"IOCTLHNDx", 9, true},  {"IOCTLHNX", 9, false}, {"IOCTLHND", 8, false},
             {"IOCTLFRE", 10, false}, {"IOCTLFR", 9, false}};

// The arguments of a call. Each buffer has exactly the size that the call announces.
struct Arguments {
  explicit Arguments(unsigned theShape = 0, unsigned theTag = 0, uint32_t theCommand = 0x10)
      : shape(theShape), tag(theTag), command(theCommand), input(Message(theCommand)) {
    if (shape & kNullInput) in = nullptr;
    if (shape & kNullOutput) out = nullptr;
    if (shape & kShortInput) inLength = 15;
    if (shape & kShortOutput) outLength = 15;
    std::strcpy(reinterpret_cast<char*>(privateData.data()), kTags[tag].data);
    if (shape & kNullPrivateData) data = nullptr;
    if (shape & kNullPrivateLength) length = nullptr;
  }
  Arguments(const Arguments&) = delete;

  bool AsksForWrapper() const {
    return kTags[tag].wrapper && (shape & (kNullPrivateData | kNullPrivateLength)) == 0;
  }

  static inline void* const kUnwritten = reinterpret_cast<void*>(0x5A5A);
  const unsigned shape, tag;
  const uint32_t command;
  KALO_STATE_INIT_PARAMS values = {0x30002, 0}, *params = &values;
  Bytes input, output = Bytes(32), privateData = Bytes(16);
  unsigned char *in = input.data(), *out = output.data(), *data = privateData.data();
  unsigned inLength = 32, outLength = 32, privateLength = kTags[tag].length,
           *length = &privateLength;
  ClientSession* used = nullptr;  // the handle that the call gets
  void* handle = kUnwritten;
};

inline const struct Call {
  const char* name;
  uint32_t (*make)(Arguments& a);
} kCalls[] = {
    {"KaloStateInit", [](auto& a) -> uint32_t { return KaloStateInit(a.params); }},
    {"KaloInit3", [](auto& a) -> uint32_t { return KaloInit3(&a.handle); }},
    {"StartIoEx3",
     [](auto& a) -> uint32_t {
       return StartIoEx3(a.used, a.in, a.inLength, a.out, a.outLength, a.data, a.length);
     }},
    {"StartIo3",
     [](auto& a) -> uint32_t { return StartIo3(a.used, a.in, a.inLength, a.out, a.outLength); }},
    {"KaloCleanup3", [](auto& a) -> uint32_t { return KaloCleanup3(a.used); }},
    {"KaloInit", [](auto&) -> uint32_t { return KaloInit(); }},
    {"KaloCleanup", [](auto&) -> uint32_t { return KaloCleanup(); }},
    {"StartIoEx",
     [](auto& a) -> uint32_t {
       return StartIoEx(a.in, a.inLength, a.out, a.outLength, a.data, a.length);
     }},
    {"StartIo", [](auto& a) -> uint32_t { return StartIo(a.in, a.inLength, a.out, a.outLength); }},
    {"FenuInit3", [](auto& a) -> uint32_t { return FenuInit3(&a.handle); }},
    {"FenuCleanup3", [](auto& a) -> uint32_t { return FenuCleanup3(a.used); }},
    {"FenuInit", [](auto&) -> uint32_t { return FenuInit(); }},
    {"FenuCleanup", [](auto&) -> uint32_t { return FenuCleanup(); }},
    {"ProvisioningStartIo", [](auto& a) -> uint32_t {
       return ProvisioningStartIo(a.in, a.inLength, a.out, a.outLength);
     }}};

inline zulisim::EngineOptions CallsOptions() {
  zulisim::EngineOptions options;
  options.keepRecords = false;
  for (zulisim::Client& client : options.clients) {
    client.maxMessageLength = 0x1ab;
    client.protocolVersion = 'A';  // the log must print it as a number
  }
  return options;
}

// Calls entry points. Records the log and the device operations in one transcript.
class CallsTest : public LibraryTest, protected zulisim::OperationObserver {
 protected:
  CallsTest() : LibraryTest(CallsOptions()) {
    engine.AddObserver(this);
    for (const char* client : {"KALO", "FENU"}) {
      // The engine sends a full reply even to a truncated request.
      engine.SetResponder(client, [this](const Bytes&) {
        return negative
                   ? zulisim::Reply{Message(0x10, 32, 0x80000001, 0xfedc1, 0xabc), Bytes(16, 'p')}
                   : zulisim::Reply{Message(0x10), {}};
      });
    }
    // Makes the device's descriptors 20 or higher, because decimal and hexadecimal print these
    // differently.
    while (dup(STDERR_FILENO) < 20) {
    }
    sink->onLine = [this] {
      Logger::logBase.level = traced ? 100 : 0;
      errno = 7777;  // the errno of a sink must not affect the library
    };
  }

  ~CallsTest() override { engine.RemoveObserver(this); }

  // `operations` has one letter for each operation (open, ioctl, close, write, read), a capital for
  // a failed one other than a close. X and Z are a write and a read that failed without a loss.
  void OnOperation(const zulisim::OperationRecord& record) override {
    Add("<" + std::string(OperationName(record.operation)) +
        (record.client.empty() ? "" : " " + record.client) +
        (record.result != -1 ? "" : " " + zulisim::ErrnoName(record.error)) + ">");
    const std::string name = OperationName(record.operation);
    const bool failed = record.result == -1, lost = record.error == ENODEV;
    operations += failed && !lost && name == "write"  ? 'X'
                  : failed && !lost && name == "read" ? 'Z'
                  : failed && name != "close"         ? static_cast<char>(std::toupper(name[0]))
                                                      : name[0];
    if (name == "open" && !failed) open_.insert(opened = record.descriptor);
    if (name == "close") open_.erase(record.descriptor);
  }

  // Removes the sinks of the log file. Otherwise their number would grow with every step.
  static void TrimSinks() {
    for (auto& all = Logger::logBase.sinks; all.size() > 1;) {
      delete all.back();
      all.pop_back();
      all.shrink_to_fit();  // so that the next sink allocates memory
    }
  }

  bool traced = false;
  bool negative = false;  // true if the replies have a negative status
  std::string operations;
  int opened = -1;  // the last descriptor of the device
  std::set<int> open_;
};

}  // namespace test
