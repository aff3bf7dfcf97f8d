#include "tools/call/status_text.h"

#include <cstring>
#include <regex>

#include "api/kalo_dll_state.h"
#include "common/number.h"
#include "transport/kalo_status.h"

namespace kaloctl {
namespace {

struct Name {
  std::uint32_t value;
  const char* name;
};

constexpr Name kStatuses[] = {
    {KALO_DLL_STATUS_SUCCESS, "KALO_DLL_STATUS_SUCCESS"},
    {KALO_DLL_STATUS_FAILURE, "KALO_DLL_STATUS_FAILURE"},
    {KALO_DLL_STATUS_INVALID_PARAMETER, "KALO_DLL_STATUS_INVALID_PARAMETER"},
    {KALO_DLL_STATUS_INPUT_BUFFER_TOO_SMALL, "KALO_DLL_STATUS_INPUT_BUFFER_TOO_SMALL"},
    {KALO_DLL_STATUS_OUTPUT_BUFFER_TOO_SMALL, "KALO_DLL_STATUS_OUTPUT_BUFFER_TOO_SMALL"},
    {KALO_DLL_STATUS_PROVISIONING_FAILED, "KALO_DLL_STATUS_PROVISIONING_FAILED"},
    {KALO_DLL_STATUS_NOT_INITIALIZED, "KALO_DLL_STATUS_NOT_INITIALIZED"},
};

constexpr Name kSources[] = {
    {KALO_ERROR_SOURCE_API3, "KALO_ERROR_SOURCE_API3"},
    {KALO_ERROR_SOURCE_KALO, "KALO_ERROR_SOURCE_KALO"},
    {KALO_ERROR_SOURCE_FENU, "KALO_ERROR_SOURCE_FENU"},
};

template <std::size_t count>
std::string NameIn(const Name (&names)[count], std::uint32_t value) {
  for (const Name& entry : names) {
    if (entry.value == value) return std::string(entry.name) + " (" + std::to_string(value) + ")";
  }
  return "unknown (" + common::Hex(value) + ")";
}

constexpr char kReadLog[] = "read the library's log: kaloctl log /data/Marvoleth.log";

struct Advice {
  std::uint32_t status;
  const char* text;  // a substring of the recorded text; empty matches every text
  const char* advice;
};

// The first matching row applies; without one, kReadLog.
constexpr Advice kAdvice[] = {
    {1, "Cannot open", "run 'kaloctl doctor'; close the handle and open a new one"},
    {1, "Cannot connect",
     "check that /dev/zuli is the engine and that its firmware has this client"},
    {1, "Error writing",
     "compare the request with the client's maximum length (kaloctl probe), or open a new handle"},
    {1, "Error reading",
     "open a new handle before the next command: a late reply would answer that one"},
    {2, "", "pass a handle from KaloInit3 or FenuInit3, a request and a reply buffer"},
    {3, "", "send at least the 16 bytes of the message header"},
    {4, "", "pass a reply buffer of at least 16 bytes"},
    {6, "",
     "call KaloInit first, or FenuInit for commands 0x30000 to 0x3ffff; if FenuInit opens nothing, "
     "call FenuCleanup3 until the count is 0, then FenuInit3"},
};

std::string AdviceFor(std::uint32_t status, std::string_view text) {
  for (const Advice& row : kAdvice) {
    if (row.status == status && text.find(row.text) != std::string_view::npos) return row.advice;
  }
  return kReadLog;
}

std::string CauseIn(const std::vector<std::string>& logLines) {
  static const std::regex kErrno("err(or)?no = (\\d+)");
  std::smatch match;
  for (auto line = logLines.rbegin(); line != logLines.rend(); ++line) {
    if (!std::regex_search(*line, match, kErrno)) continue;
    return *line + " (" + std::strerror(std::stoi(match[2])) + ")";
  }
  return "";
}

}  // namespace

std::string StatusText(std::uint32_t status) { return NameIn(kStatuses, status); }
std::string SourceText(std::uint32_t source) { return NameIn(kSources, source); }

Failure DescribeFailure(std::uint32_t status, const std::vector<std::string>& logLines) {
  const KaloDllState& state = gKaloDllState;
  Failure failure;
  failure.status = status;
  failure.source = state.lastErrorSource;
  if (failure.source == KALO_ERROR_SOURCE_API3) {
    failure.text = BoundedText(state.apiErrorText);
    failure.code = state.apiErrorCode;
  } else if (failure.source == KALO_ERROR_SOURCE_KALO) {
    failure.text = BoundedText(state.kaloErrorText);
    failure.code = state.kaloErrorCode;
  } else if (failure.source == KALO_ERROR_SOURCE_FENU) {
    failure.text = BoundedText(state.fenuErrorText);
    failure.code = state.fenuErrorCode;
  }
  failure.cause = CauseIn(logLines);
  failure.advice = AdviceFor(status, failure.text);
  return failure;
}

void PrintFailure(std::ostream& out, const common::Colours& colours, std::string_view indent,
                  const Failure& failure) {
  out << indent << "text    " << colours.bad << failure.text << colours.reset << '\n'
      << indent << "source  " << SourceText(failure.source) << ", code "
      << common::Hex(failure.code) << '\n';
  if (!failure.cause.empty()) out << indent << "cause   " << failure.cause << '\n';
  out << indent << "try     " << failure.advice << '\n';
}

}  // namespace kaloctl
