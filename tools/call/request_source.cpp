#include "tools/call/request_source.h"

#include "common/format.h"
#include "common/hex.h"
#include "common/input.h"
#include "tools/call/message.h"

namespace kaloctl {

std::vector<std::uint8_t> ReadRequest(const RequestSource& source) {
  if (source.bodyOnly && !source.command) throw common::InputError("--body requires --command");
  if (source.file.empty() && !source.hex) {
    if (source.command) return MakeMessage(*source.command, {});
    throw common::InputError("no request given; add FILE, --data or --command");
  }
  const std::string content = source.hex ? *source.hex : common::ReadInput(source.file);
  const std::string name = source.hex ? "--data" : common::InputName(source.file);
  std::vector<std::uint8_t> bytes(content.begin(), content.end());
  try {
    if (source.hex || common::LooksLikeText(content)) bytes = common::ParseHex(content);
  } catch (const common::InputError& error) {
    throw common::InputError(name + ": " + error.what());
  }
  if (source.bodyOnly) return MakeMessage(*source.command, bytes);
  if (bytes.empty()) throw common::InputError(name + ": the request is empty");
  if (!source.command) return bytes;
  if (bytes.size() < kHeaderSize) {
    throw common::InputError(common::Format(
        "{}: {} bytes, but --command needs a header of 16; add --body to put one in front", name,
        bytes.size()));
  }
  SetCommand(bytes, *source.command);
  return bytes;
}

}  // namespace kaloctl
