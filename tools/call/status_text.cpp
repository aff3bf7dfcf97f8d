#include "tools/call/status_text.h"

#include <cstdlib>
#include <cstring>

#include "api/kalo_dll_state.h"
#include "common/number.h"
#include "transport/kalo_status.h"

namespace kaloctl {
namespace {

struct Name {
  uint32_t value;
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
std::string NameIn(const Name (&names)[count], uint32_t value) {
  for (const Name& entry : names) {
    if (entry.value == value) return std::string(entry.name) + " (" + std::to_string(value) + ")";
  }
  return "unknown (" + common::Hex(value) + ")";
}

struct Advice {
  uint32_t status;
  const char* text;  // what the recorded text contains; empty matches all
  const char* advice;
};

// The first row that fits is taken.
constexpr Advice kAdvice[] = {
    {1, "Cannot open ZULI device.",
     "check that /dev/zuli exists and may be opened for reading and writing (kaloctl doctor); a "
     "handle that was open has lost its connection: take a new handle"},
    {1, "Cannot connect to ZULI device.",
     "the device opens but refuses the client: look whether /dev/zuli is the engine's and its "
     "firmware holds the client (kaloctl doctor tries each)"},
    {1, "Error writing message to ZULI.",
     "the device failed, or the request is longer than the client takes (kaloctl probe); a lost "
     "device may be back: take a new handle and try again"},
    {1, "Error reading message from ZULI.",
     "the request was sent but no reply came; open a new session before the next command, a late "
     "reply would answer it"},
    {1, "Error reading TEV private data",
     "the reply came but its private data did not; open a new session before the next command"},
    {1, "Not connected to client of this command",
     "the command belongs to a client that this session has not connected"},
    {1, "No active DREM sessions", "the session has no connection: initialise again"},
    {1, "", "look at the library's log: kaloctl log /data/Marvoleth.log"},
    {2, "session handle", "pass a handle of KaloInit3 or FenuInit3"},
    {2, "", "pass a request and a reply buffer, neither of them null"},
    {3, "", "a request is at least the 16 bytes of the message header"},
    {4, "", "a reply buffer is at least the 16 bytes of the message header"},
    {5, "", "something outside the library wrote kaloInterfaceVersion: load the library anew"},
    {6, "",
     "call KaloInit, or FenuInit for commands 0x30000 to 0x3ffff, before the command; after a "
     "cleanup they may open nothing: then bring the count to 0 with FenuCleanup3 (KaloCleanup3), "
     "and call FenuInit3 (KaloInit3)"},
};

}  // namespace

std::string StatusText(uint32_t status) { return NameIn(kStatuses, status); }
std::string SourceText(uint32_t source) { return NameIn(kSources, source); }

std::string_view AdviceFor(uint32_t status, std::string_view text) {
  for (const Advice& row : kAdvice) {
    if (row.status == status && text.find(row.text) != std::string_view::npos) return row.advice;
  }
  return "look at the library's log: kaloctl log /data/Marvoleth.log";
}

ErrorRecord LastErrorRecord() {
  const KaloDllState& state = gKaloDllState;
  const uint32_t source = state.lastErrorSource;
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
                  uint32_t status, bool recorded, const std::vector<std::string>& logLines) {
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
