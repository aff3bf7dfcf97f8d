#include "tools/cli/json.h"

#include "common/hex.h"
#include "tools/call/status_text.h"

namespace kaloctl {

Json FailureJson(const char* call, std::uint32_t status, const std::vector<std::string>& logLines) {
  const ErrorRecord record = LastErrorRecord();
  const std::string cause = CauseIn(logLines);
  const std::string name = StatusText(status);  // the number follows in parentheses
  return {{"call", call},
          {"status", status},
          {"statusName", name.substr(0, name.find(' '))},
          {"text", record.text},
          {"source", record.source},
          {"code", record.code},
          {"cause", cause.empty() ? Json() : Json(cause)},
          {"try", AdviceFor(status, record.text)}};
}

Json BytesJson(const std::vector<std::uint8_t>& bytes) {
  return bytes.empty() ? Json() : Json(common::HexDigits(bytes));
}

}  // namespace kaloctl
