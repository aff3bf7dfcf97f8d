#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "simulator/device/client.h"
#include "simulator/device/operation.h"

namespace zulisim {

// How values are written in instructions, on the command line and in files. Each function throws
// std::invalid_argument with a text that names the value and what would be right.

std::string Quoted(const std::string& text);

// Decimal, or hexadecimal behind "0x"; `what` begins the text of a failure, as in "a status".
std::uint64_t ParseNumber(const std::string& text, std::uint64_t highest, const std::string& what);
// A status: signed to the library, and written with its highest bit in most documents, so that -1
// and 0xffffffff are the same.
std::uint32_t ParseStatus(const std::string& text);
// "EIO" and its like, in either case of letters.
int ParseErrno(const std::string& text);
// "read" and its like.
Operation ParseOperation(const std::string& text);
// Digits in pairs, at least one; blanks and line ends between the pairs do not count.
Bytes ParseHex(const std::string& text, const std::string& what);
// "{FBF6FCF1-96CF-4E2E-A6A6-1BAB8CBE36B1}", with or without its marks.
Guid ParseGuid(const std::string& text);
// A number with "us", "ms" or "s" behind it, as in "1.5ms"; at most a minute.
std::chrono::microseconds ParseDuration(const std::string& text);

// Operations `first` to `first + times - 1` of a kind: "3", "3-5", or "3-" for all from there on.
struct Occurrences {
  std::uint64_t first = 1;
  std::uint64_t times = 1;
};
Occurrences ParseOccurrences(const std::string& text);

// ", did you mean 'EIO'?" for the candidate that is most like `text`, in either case of letters;
// empty when none is near.
std::string NearestHint(const std::string& text, const std::vector<std::string>& candidates);
// "KALO, FENU, SAB"
std::string Listed(const std::vector<std::string>& names);

}  // namespace zulisim
