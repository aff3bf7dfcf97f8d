#include "tools/call/status_text.h"

#include <cstdlib>
#include <cstring>

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
    {0, "none"},
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

// The first matching row applies.
constexpr Advice kAdvice[] = {
    {1, "Cannot open", "run 'kaloctl doctor'; close the handle and open a new one"},
    {1, "Cannot connect",
     "check that /dev/zuli is the engine and that its firmware has this client"},
    {1, "Error writing",
     "compare the request with the client's maximum length (kaloctl probe), or open a new handle"},
    {1, "Error reading",
     "open a new handle before the next command: a late reply would answer that one"},
    {1, "Not connected", "use a session of the client that serves this command"},
    {1, "", kReadLog},
    {2, "", "pass a handle from KaloInit3 or FenuInit3, a request and a reply buffer"},
    {3, "", "send at least the 16 bytes of the message header"},
    {4, "", "pass a reply buffer of at least 16 bytes"},
    {5, "", "reload the library: something overwrote kaloInterfaceVersion"},
    {6, "",
     "call KaloInit first, or FenuInit for commands 0x30000 to 0x3ffff; if FenuInit opens nothing, "
     "call FenuCleanup3 until the count is 0, then FenuInit3"},
};

}  // namespace

std::string StatusText(std::uint32_t status) { return NameIn(kStatuses, status); }
std::string SourceText(std::uint32_t source) { return NameIn(kSources, source); }

std::string AdviceFor(std::uint32_t status, std::string_view text) {
  for (const Advice& row : kAdvice) {
    if (row.status == status && text.find(row.text) != std::string_view::npos) return row.advice;
  }
  return kReadLog;
}

ErrorRecord LastErrorRecord() {
  const KaloDllState& state = gKaloDllState;
  const std::uint32_t source = state.lastErrorSource;
  switch (source) {
    case KALO_ERROR_SOURCE_API3:
      return {source, BoundedText(state.apiErrorText, sizeof(state.apiErrorText)),
              state.apiErrorCode};
    case KALO_ERROR_SOURCE_KALO:
      return {source, BoundedText(state.kaloErrorText, sizeof(state.kaloErrorText)),
              state.kaloErrorCode};
    case KALO_ERROR_SOURCE_FENU:
      return {source, BoundedText(state.fenuErrorText, sizeof(state.fenuErrorText)),
              state.fenuErrorCode};
    default:
      return {source, "", 0};
  }
}

std::string_view BoundedText(const char* text, std::size_t size) {
  return std::string_view(text, strnlen(text, size));
}

std::string CauseIn(const std::vector<std::string>& logLines) {
  constexpr const char* kMarks[] = {"errno = ", "errorno = "};
  for (auto line = logLines.rbegin(); line != logLines.rend(); ++line) {
    for (const char* mark : kMarks) {
      const std::size_t at = line->find(mark);
      if (at == std::string::npos) continue;
      const int error = std::atoi(line->c_str() + at + std::strlen(mark));
      return *line + " (" + std::strerror(error) + ")";
    }
  }
  return "";
}

void PrintFailure(std::ostream& out, const common::Colours& colours, std::string_view indent,
                  std::uint32_t status, bool recorded, const std::vector<std::string>& logLines) {
  const ErrorRecord record = recorded ? LastErrorRecord() : ErrorRecord{0, "", 0};
  if (recorded) {
    out << indent << "text    " << colours.bad << record.text << colours.reset << '\n'
        << indent << "source  " << SourceText(record.source) << ", code "
        << common::Hex(record.code) << '\n';
  }
  const std::string cause = CauseIn(logLines);
  if (!cause.empty()) out << indent << "cause   " << cause << '\n';
  out << indent << "try     " << AdviceFor(status, record.text) << '\n';
}

}  // namespace kaloctl
