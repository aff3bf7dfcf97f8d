#pragma once

#include "tests/api/interposed_session.h"
#include "tests/support/library_test.h"

namespace test {

// The private-data arguments: content before the call, length, and whether they contain the tag of
// an ioctl wrapper.
inline constexpr struct Tag {
  const char* data;
  unsigned int length;
  bool wrapper;
} kTags[] = {{"", 16, false},         {"IOCTLHND", 9, true},  {"IOCTLFRE", 9, true},
             {"IOCTLHNDx", 9, true},  {"IOCTLHNX", 9, false}, {"IOCTLHND", 8, false},
             {"IOCTLFRE", 10, false}, {"IOCTLFR", 9, false}};

// The arguments of a call. Every buffer has 32 bytes, except 16 for private data.
struct Arguments {
  explicit Arguments(uint32_t theCommand) : command(theCommand) {}
  Arguments(const Arguments&) = delete;

  void Set(const Tag& tag) {
    std::strcpy(reinterpret_cast<char*>(privateData.data()), tag.data);
    privateLength = tag.length;
    wrapper = tag.wrapper;
  }

  bool AsksForWrapper() const { return wrapper && data != nullptr && length != nullptr; }

  static inline void* const kUnwritten = reinterpret_cast<void*>(0x5A5A);
  const uint32_t command;
  Bytes input = Message(command, 32, 2, 0xfedc1, 0xabc);
  Bytes output = Message(0xffffffff, 32, 0x7001, 0x1234abcd), privateData = Bytes(16);
  KALO_STATE_INIT_PARAMS values = {command, 0}, *params = &values;
  unsigned char *in = input.data(), *out = output.data(), *data = privateData.data();
  unsigned inLength = 32, outLength = 32, privateLength = 16, *length = &privateLength;
  bool wrapper = false;
  ClientSession* used = nullptr;  // the session that the call uses, if it uses one
  void* handle = kUnwritten;
};

// The random sequences draw the first kDrawnDefects.
inline constexpr unsigned kDrawnDefects = 6;
inline const struct Defect {
  const char* name;
  void (*apply)(Arguments& a);
} kDefects[] = {{"null-input", [](auto& a) { a.in = nullptr; }},
                {"null-output", [](auto& a) { a.out = nullptr; }},
                {"short-input", [](auto& a) { a.inLength = 15; }},
                {"short-output", [](auto& a) { a.outLength = 15; }},
                {"null-data", [](auto& a) { a.data = nullptr; }},
                {"null-length", [](auto& a) { a.length = nullptr; }},
                {"null-handle", [](auto& a) { a.used = nullptr; }},
                {"long", [](auto& a) { a.inLength = a.outLength = 0xFFFFFFFF; }},
                {"shared", [](auto& a) { a.values.stateInitOption = 1; }},
                {"tag-alloc", [](auto& a) { a.Set(kTags[1]); }},
                {"tag-free", [](auto& a) { a.Set(kTags[2]); }},
                {"bad-state", [](auto&) { gKaloDllState.kaloInterfaceVersion = 1; }},
                {"bad-connect", [](auto&) { connectFailure = "refused"; }},
                {"bad-close", [](auto&) { disconnectFails = true; }}};

// What a call does: changes the announced version, opens a session, closes one, or sends on a
// handle or on the session of the command.
enum class Kind { kAnnounce, kOpen, kClose, kSend, kRoute };

// The state that successful calls of one firmware may change, as a regular expression of names.
inline constexpr char kKaloFields[] = "kalo[IRS].*|sessionBShared", kFenuFields[] = "fenu[IRS].*";

inline const struct Call {
  std::string name;
  Kind kind;
  const char* fields;  // what the call may change if it succeeds
  KALO_DLL_STATUS (*make)(Arguments& a);
} kCalls[] = {
    {"KaloStateInit", Kind::kAnnounce, "firmwareApiVersion|stateInitFlag",
     [](auto& a) { return KaloStateInit(a.params); }},
    {"KaloInit3", Kind::kOpen, kKaloFields, [](auto& a) { return KaloInit3(&a.handle); }},
    {"StartIoEx3", Kind::kSend, "",
     [](auto& a) {
       return StartIoEx3(a.used, a.in, a.inLength, a.out, a.outLength, a.data, a.length);
     }},
    {"StartIo3", Kind::kSend, "",
     [](auto& a) { return StartIo3(a.used, a.in, a.inLength, a.out, a.outLength); }},
    {"KaloCleanup3", Kind::kClose, kKaloFields, [](auto& a) { return KaloCleanup3(a.used); }},
    {"KaloInit", Kind::kOpen, kKaloFields, [](auto&) { return KaloInit(); }},
    {"KaloCleanup", Kind::kClose, kKaloFields, [](auto&) { return KaloCleanup(); }},
    {"StartIoEx", Kind::kRoute, "",
     [](auto& a) { return StartIoEx(a.in, a.inLength, a.out, a.outLength, a.data, a.length); }},
    {"StartIo", Kind::kRoute, "",
     [](auto& a) { return StartIo(a.in, a.inLength, a.out, a.outLength); }},
    {"FenuInit3", Kind::kOpen, kFenuFields, [](auto& a) { return FenuInit3(&a.handle); }},
    {"FenuCleanup3", Kind::kClose, kFenuFields, [](auto& a) { return FenuCleanup3(a.used); }},
    {"FenuInit", Kind::kOpen, kFenuFields, [](auto&) { return FenuInit(); }},
    {"FenuCleanup", Kind::kClose, kFenuFields, [](auto&) { return FenuCleanup(); }},
    {"ProvisioningStartIo", Kind::kSend, "",
     [](auto& a) { return ProvisioningStartIo(a.in, a.inLength, a.out, a.outLength); }}};

inline zulisim::EngineOptions CallsOptions() {
  zulisim::EngineOptions options{zulisim::DefaultClients(), false};
  // The log prints these as a decimal and a hexadecimal number.
  options.clients[0].protocolVersion = 'A';
  options.clients[0].maxMessageLength = 0x1ab;
  return options;
}

// Calls entry points. Records the log and the device operations in one transcript.
class CallsTest : public LibraryTest, protected zulisim::OperationObserver {
 protected:
  CallsTest() : LibraryTest(CallsOptions()) {
    engine.AddObserver(this);
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
    const std::string name = OperationName(record.operation);
    const bool failed = record.result == -1, lost = record.error == ENODEV;
    Add("<" + name + (name == "ioctl" && !record.client.empty() ? " " + record.client : "") +
        (failed ? " " + zulisim::ErrnoName(record.error) : "") + ">");
    operations += failed && !lost && name == "write"  ? 'X'
                  : failed && !lost && name == "read" ? 'Z'
                  : failed && name != "close"         ? static_cast<char>(std::toupper(name[0]))
                                                      : name[0];
    if (name == "open" && !failed) descriptors.insert(opened = record.descriptor);
    if (name == "close") descriptors.erase(record.descriptor);
  }

  uint32_t LastErrorCode() const {
    const uint32_t codes[] = {0, state.apiErrorCode, state.kaloErrorCode, state.fenuErrorCode};
    return codes[state.lastErrorSource];
  }

  bool traced = false;
  std::string operations;
  int opened = -1;            // the last descriptor of the device
  std::set<int> descriptors;  // the open descriptors of the device
};

}  // namespace test
