#include "tools/call/state_view.h"

#include "api/kalo_dll_state.h"
#include "common/format.h"
#include "common/number.h"
#include "tools/call/status_text.h"

namespace kaloctl {
namespace {

using Json = nlohmann::ordered_json;

// An address as text, or null.
Json AddressJson(const void* address) {
  return address == nullptr ? Json() : Json(common::Format("{}", address));
}

// Returns a status or source with its name, and a large number in hexadecimal.
std::string FieldText(const std::string& name, const Json& value) {
  if (value.is_string() && name.find("Text") == std::string::npos) return value.get<std::string>();
  if (value.is_number() && value > 0xFFFF) return common::Hex(value);
  if (name.find("ErrorCode") != std::string::npos) return StatusText(value);
  if (name == "lastErrorSource") return SourceText(value);
  return value.dump(-1, ' ', false, Json::error_handler_t::replace);
}

}  // namespace

std::string StateText() {
  std::string text = "gKaloDllState\n";
  const Json state = StateJson();
  for (const auto& [name, value] : state.items()) {
    text += common::Format("  {:<22}{}\n", name, FieldText(name, value));
  }
  return text;
}

nlohmann::ordered_json StateJson() {
  const KaloDllState& state = gKaloDllState;
  return {
      {"kaloInterfaceVersion", state.kaloInterfaceVersion},
      {"fenuInterfaceVersion", state.fenuInterfaceVersion},
      {"provisioningSession", AddressJson(state.provisioningSession)},
      {"kaloSessionA", AddressJson(state.kaloSessionA)},
      {"kaloSessionB", AddressJson(state.kaloSessionB)},
      {"fenuSession", AddressJson(state.fenuSession)},
      {"apiErrorText", BoundedText(state.apiErrorText, sizeof(state.apiErrorText))},
      {"apiErrorCode", state.apiErrorCode},
      {"kaloErrorText", BoundedText(state.kaloErrorText, sizeof(state.kaloErrorText))},
      {"kaloErrorCode", state.kaloErrorCode},
      {"fenuErrorText", BoundedText(state.fenuErrorText, sizeof(state.fenuErrorText))},
      {"fenuErrorCode", state.fenuErrorCode},
      {"lastErrorSource", state.lastErrorSource},
      {"lastErrorContext", AddressJson(state.lastErrorContext)},
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
