#include "tools/call/request_source.h"

#include "common/hex.h"
#include "common/input.h"
#include "common/input_error.h"
#include "tools/call/message.h"

namespace kaloctl {
namespace {

std::vector<uint8_t> BytesOf(const std::string& content, RequestFormat format,
                             const std::string& name) {
  const bool hex = format == RequestFormat::kHex ||
                   (format == RequestFormat::kAuto && common::LooksLikeText(content));
  if (!hex) return std::vector<uint8_t>(content.begin(), content.end());
  try {
    return common::ParseHex(content);
  } catch (const common::InputError& error) {
    throw common::InputError(name + ": " + error.what() +
                             (format == RequestFormat::kAuto
                                  ? " (it was taken for hex text: --binary sends it as it is)"
                                  : ""));
  }
}

}  // namespace

std::vector<uint8_t> ReadRequest(const RequestSource& source) {
  if (source.bodyOnly && !source.command) {
    throw common::InputError(
        "--body: a header is to be made, but for which command? Add --command N");
  }
  if (source.file.empty() && !source.hex) {
    if (source.command) return MakeMessage(*source.command, {});
    throw common::InputError(
        "no request: give FILE, - for standard input, --data HEX, or --command N");
  }
  const std::string name = source.hex ? "--data" : common::InputName(source.file);
  std::vector<uint8_t> bytes = source.hex
                                   ? BytesOf(*source.hex, RequestFormat::kHex, name)
                                   : BytesOf(common::ReadInput(source.file), source.format, name);
  if (source.bodyOnly) return MakeMessage(*source.command, bytes);
  if (bytes.empty()) {
    throw common::InputError(name + ": holds no byte: a request begins with a header of 16 bytes");
  }
  if (source.command) {
    if (bytes.size() < kHeaderSize) {
      throw common::InputError(
          name + ": holds " + std::to_string(bytes.size()) +
          " bytes, so there is no header for --command to change: 16 or more are "
          "expected, or --body to put a header in front");
    }
    SetCommand(bytes, *source.command);
  }
  return bytes;
}

}  // namespace kaloctl
