#pragma once

#include <cstdint>
#include <cstring>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "common/colours.h"

namespace kaloctl {

// Return texts such as "KALO_DLL_STATUS_FAILURE (1)" and "KALO_ERROR_SOURCE_API3 (1)".
std::string StatusText(std::uint32_t status);
std::string SourceText(std::uint32_t source);

// Returns the text in a buffer of the library. The text may lack a terminator.
template <std::size_t size>
std::string_view BoundedText(const char (&text)[size]) {
  return std::string_view(text, strnlen(text, size));
}

// A failed call, and the error that the library recorded.
struct Failure {
  std::uint32_t status = 0;
  std::string_view text;  // of the record
  std::uint32_t source = 0;
  std::uint32_t code = 0;
  std::string cause;  // the last log line with an errno, and the text of that errno; may be empty
  std::string advice;
};

// `logLines` are the log lines of the call.
Failure DescribeFailure(std::uint32_t status, const std::vector<std::string>& logLines);

// Prints the record, the cause and the remedy, one per line, each after `indent`.
void PrintFailure(std::ostream& out, const common::Colours& colours, std::string_view indent,
                  const Failure& failure);

}  // namespace kaloctl
