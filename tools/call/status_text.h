#pragma once

#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "common/colours.h"

namespace kaloctl {

// "KALO_DLL_STATUS_FAILURE (1)", "KALO_ERROR_SOURCE_API3 (1)".
std::string StatusText(uint32_t status);
std::string SourceText(uint32_t source);

// What the user can do about a failure; `text` is what the library recorded, or empty.
std::string_view AdviceFor(uint32_t status, std::string_view text);

// The library's record of its last error.
struct ErrorRecord {
  uint32_t source;
  std::string_view text;
  uint32_t code;
};
ErrorRecord LastErrorRecord();

// The text of at most `size` bytes that need not be terminated.
std::string_view BoundedText(const char* text, std::size_t size);

// The last log line with an errno, and the name of that errno; empty when there is none.
std::string CauseIn(const std::vector<std::string>& logLines);

// Recorded text and source, cause and advice, each on a line after `indent`. `recorded` is false
// for calls that leave the error record alone.
void PrintFailure(std::ostream& out, const common::Colours& colours, std::string_view indent,
                  uint32_t status, bool recorded, const std::vector<std::string>& logLines);

}  // namespace kaloctl
