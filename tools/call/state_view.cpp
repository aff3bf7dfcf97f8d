#include "tools/call/state_view.h"

#include <iomanip>
#include <string>
#include <string_view>

#include "api/kalo_dll.h"
#include "api/kalo_dll_state.h"
#include "common/number.h"
#include "tools/call/status_text.h"

namespace kaloctl {
namespace {

constexpr uint32_t kEmptyRecord = 0xDEADBEEF;
constexpr uint32_t kNoStatus = 0xFFFFFFFF;

template <typename Value>
void Field(std::ostream& out, const char* name, const Value& value) {
  out << "  " << std::left << std::setw(22) << name << std::right << value << '\n';
}

std::string SessionText(const ClientSession* session, const DestroyedSessions& destroyed) {
  if (session == nullptr) return "null";
  return common::Hex(reinterpret_cast<uintptr_t>(session)) +
         (destroyed.Contains(session) ? " (destroyed)" : "");
}

std::string TextField(const char* text, std::size_t size) {
  return "\"" + std::string(BoundedText(text, size)) + "\"";
}

std::string CodeText(uint32_t code) {
  return code == kNoStatus ? common::Hex(code) + " (no status)" : StatusText(code);
}

std::string ApiVersionText(uint32_t version) {
  switch (version) {
    case KALO_FIRMWARE_API_30:
      return "3.0 (" + common::Hex(version) + ")";
    case KALO_FIRMWARE_API_32:
      return "3.2 (" + common::Hex(version) + ")";
    default:
      return common::Hex(version) + " (not set)";
  }
}

std::string ContextText(const void* context) {
  const auto value = reinterpret_cast<uintptr_t>(context);
  return common::Hex(value) + (value == kEmptyRecord ? " (no handle)" : "");
}

std::string ProcessText(uint32_t processId) {
  return processId == kEmptyRecord ? common::Hex(processId) + " (nothing recorded)"
                                   : std::to_string(processId);
}

nlohmann::ordered_json SessionJson(const ClientSession* session,
                                   const DestroyedSessions& destroyed) {
  if (session == nullptr) return nullptr;
  return {{"address", common::Hex(reinterpret_cast<uintptr_t>(session))},
          {"destroyed", destroyed.Contains(session)}};
}

const char* BoolText(bool value) { return value ? "true" : "false"; }

}  // namespace

void PrintState(std::ostream& out, const DestroyedSessions& destroyed) {
  const KaloDllState& state = gKaloDllState;
  out << "gKaloDllState\n";
  Field(out, "kaloInterfaceVersion", state.kaloInterfaceVersion);
  Field(out, "fenuInterfaceVersion", state.fenuInterfaceVersion);
  Field(out, "stateLock", std::to_string(sizeof(state.stateLock)) + " bytes, held by calls only");
  Field(out, "provisioningSession", SessionText(state.provisioningSession, destroyed));
  Field(out, "kaloSessionA", SessionText(state.kaloSessionA, destroyed));
  Field(out, "kaloSessionB", SessionText(state.kaloSessionB, destroyed));
  Field(out, "fenuSession", SessionText(state.fenuSession, destroyed));
  Field(out, "apiErrorText", TextField(state.apiErrorText, sizeof(state.apiErrorText)));
  Field(out, "apiErrorCode", CodeText(state.apiErrorCode));
  Field(out, "kaloErrorText", TextField(state.kaloErrorText, sizeof(state.kaloErrorText)));
  Field(out, "kaloErrorCode", CodeText(state.kaloErrorCode));
  Field(out, "fenuErrorText", TextField(state.fenuErrorText, sizeof(state.fenuErrorText)));
  Field(out, "fenuErrorCode", CodeText(state.fenuErrorCode));
  Field(out, "lastErrorSource", SourceText(state.lastErrorSource));
  Field(out, "lastErrorContext", ContextText(state.lastErrorContext));
  Field(out, "lastErrorProcessId", ProcessText(state.lastErrorProcessId));
  Field(out, "firmwareApiVersion", ApiVersionText(state.firmwareApiVersion));
  Field(out, "stateInitFlag", BoolText(state.stateInitFlag));
  Field(out, "kaloRefCountA", state.kaloRefCountA);
  Field(out, "kaloRefCountB", state.kaloRefCountB);
  Field(out, "fenuRefCount", state.fenuRefCount);
  Field(out, "sessionBShared", BoolText(state.sessionBShared));
}

nlohmann::ordered_json StateJson(const DestroyedSessions& destroyed) {
  const KaloDllState& state = gKaloDllState;
  return {
      {"kaloInterfaceVersion", state.kaloInterfaceVersion},
      {"fenuInterfaceVersion", state.fenuInterfaceVersion},
      {"provisioningSession", SessionJson(state.provisioningSession, destroyed)},
      {"kaloSessionA", SessionJson(state.kaloSessionA, destroyed)},
      {"kaloSessionB", SessionJson(state.kaloSessionB, destroyed)},
      {"fenuSession", SessionJson(state.fenuSession, destroyed)},
      {"apiErrorText", BoundedText(state.apiErrorText, sizeof(state.apiErrorText))},
      {"apiErrorCode", state.apiErrorCode},
      {"kaloErrorText", BoundedText(state.kaloErrorText, sizeof(state.kaloErrorText))},
      {"kaloErrorCode", state.kaloErrorCode},
      {"fenuErrorText", BoundedText(state.fenuErrorText, sizeof(state.fenuErrorText))},
      {"fenuErrorCode", state.fenuErrorCode},
      {"lastErrorSource", state.lastErrorSource},
      {"lastErrorContext", common::Hex(reinterpret_cast<uintptr_t>(state.lastErrorContext))},
      {"lastErrorProcessId", state.lastErrorProcessId},
      {"firmwareApiVersion", state.firmwareApiVersion},
      {"stateInitFlag", state.stateInitFlag},
      {"kaloRefCountA", state.kaloRefCountA},
      {"kaloRefCountB", state.kaloRefCountB},
      {"fenuRefCount", state.fenuRefCount},
      {"sessionBShared", state.sessionBShared},
  };
}

}  // namespace kaloctl
