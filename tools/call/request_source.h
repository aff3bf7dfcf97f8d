#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kaloctl {

// Where a request comes from.
struct RequestSource {
  std::string file;                // "-" for standard input; empty when not given
  std::optional<std::string> hex;  // on the command line
  bool bodyOnly = false;
  std::optional<std::uint32_t> command;
};

// Returns the request: the bytes of the file or hex text, with a header in front of a body, and
// with the command identifier if one was given. Without input, the header of the command only.
// Throws common::InputError.
std::vector<std::uint8_t> ReadRequest(const RequestSource& source);

}  // namespace kaloctl
