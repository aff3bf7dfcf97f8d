#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kaloctl {

enum class RequestFormat { kAuto, kHex, kBinary };

// Where a request comes from, as the user said.
struct RequestSource {
  std::string file;                // "-" for standard input; empty when not given
  std::optional<std::string> hex;  // on the command line
  RequestFormat format = RequestFormat::kAuto;
  bool bodyOnly = false;
  std::optional<uint32_t> command;
};

// The request: the bytes of file or hex text, with a header in front when they are a body, and with
// the command identifier when one was given. A command alone makes a header alone. Throws
// common::InputError.
std::vector<uint8_t> ReadRequest(const RequestSource& source);

}  // namespace kaloctl
