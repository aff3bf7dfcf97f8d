#pragma once

#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "common/colours.h"

namespace kaloctl {

// Return texts such as "KALO_DLL_STATUS_FAILURE (1)" and "KALO_ERROR_SOURCE_API3 (1)".
std::string StatusText(std::uint32_t status);
std::string SourceText(std::uint32_t source);

// Returns the remedy for a failure. `text` is the text that the library recorded, or empty.
std::string AdviceFor(std::uint32_t status, std::string_view text);

// The last error that the library recorded.
struct ErrorRecord {
  std::uint32_t source;
  std::string_view text;
  std::uint32_t code;
};
ErrorRecord LastErrorRecord();

// Returns the text in a buffer of `size` bytes. The text may lack a terminator.
std::string_view BoundedText(const char* text, std::size_t size);

// Returns the last log line that contains an errno, followed by the description of that errno;
// empty if there is none.
std::string CauseIn(const std::vector<std::string>& logLines);

// Prints the recorded text and source, the cause and the remedy, one per line, each after `indent`.
// `recorded` is false for calls that do not write the error record.
void PrintFailure(std::ostream& out, const common::Colours& colours, std::string_view indent,
                  std::uint32_t status, bool recorded, const std::vector<std::string>& logLines);

}  // namespace kaloctl
