#include "tools/call/state_view.h"

#include "api/kalo_dll_state.h"
#include "common/format.h"
#include "common/number.h"
#include "tools/call/status_text.h"

namespace kaloctl {
namespace {

nlohmann::ordered_json SessionJson(const ClientSession* session,
                                   const DestroyedSessions& destroyed) {
  if (session == nullptr) return nullptr;
  return {{"address", common::Hex(reinterpret_cast<uintptr_t>(session))},
          {"destroyed", destroyed.Contains(session)}};
}

// A status or source by its name; addresses and versions as hexadecimal numbers.
std::string FieldText(const std::string& name, const nlohmann::ordered_json& value) {
  if (value.is_object()) {
    return value["address"].get<std::string>() + (value["destroyed"] ? " (destroyed)" : "");
  }
  const bool isStatus = name.size() > 9 && name.substr(name.size() - 9) == "ErrorCode";
  if (isStatus && value != 0xFFFFFFFF) return StatusText(value);
  if (name == "lastErrorSource") return SourceText(value);
  if (isStatus || value == 0xDEADBEEF || name == "firmwareApiVersion") {
    return common::Hex(value);
  }
  return name == "lastErrorContext"
             ? value.get<std::string>()
             : value.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

}  // namespace

std::string StateText(const DestroyedSessions& destroyed) {
  std::string text = "gKaloDllState\n";
  const nlohmann::ordered_json state = StateJson(destroyed);
  for (const auto& [name, value] : state.items()) {
    text += common::Format("  {:<22}{}\n", name, FieldText(name, value));
  }
  return text;
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
