#include "tools/call/message.h"

#include <algorithm>
#include <cstring>

#include "common/hex.h"
#include "common/number.h"
#include "common/text.h"

namespace kaloctl {

std::vector<std::uint8_t> MakeMessage(std::uint32_t commandId,
                                      const std::vector<std::uint8_t>& body) {
  std::vector<std::uint8_t> message(kHeaderSize);
  SetCommand(message, commandId);
  message.insert(message.end(), body.begin(), body.end());
  return message;
}

void SetCommand(std::vector<std::uint8_t>& message, std::uint32_t commandId) {
  std::memcpy(message.data() + offsetof(KaloMessageHeader, commandId), &commandId,
              sizeof(commandId));
}

void PrintMessage(std::ostream& out, const std::vector<std::uint8_t>& message) {
  constexpr char kIndent[] = "  ";
  if (message.size() >= kHeaderSize) {
    const KaloMessageHeader header = transport::HeaderOf(message.data());
    out << kIndent << "word0 " << common::Hex(header.word0, 8) << "  command "
        << common::Hex(header.commandId, 8) << "  status " << header.status;
    if (header.status < 0) {
      out << " (" << common::Hex(static_cast<std::uint32_t>(header.status), 8) << ")";
    }
    out << "  word3 " << common::Hex(header.word3, 8) << '\n';
  }
  out << common::HexDump(message, kIndent);
}

std::string ReplyText(const std::vector<std::uint8_t>& reply) {
  if (reply.empty()) return "untouched: nothing was received";
  const std::string size = common::Counted(reply.size(), "byte") + ", ";
  if (reply.size() < kHeaderSize) return size + "less than a header";
  return size + "status " + std::to_string(transport::HeaderOf(reply.data()).status);
}

ReplyBuffer::ReplyBuffer(std::size_t size) : size_(size), bytes_(std::max(size, kHeaderSize)) {
  for (std::size_t i = 0; i < bytes_.size(); ++i) bytes_[i] = FillAt(i);
}

std::vector<std::uint8_t> ReplyBuffer::Received() const {
  std::size_t end = size_;
  while (end > 0 && bytes_[end - 1] == FillAt(end - 1)) --end;
  return std::vector<std::uint8_t>(bytes_.begin(),
                                   bytes_.begin() + static_cast<std::ptrdiff_t>(end));
}

// Typical replies do not end with bytes of the pattern: it has no zeros, no two equal neighbours,
// and no ASCII after the header. The status in the header is positive. The library reads the status
// even if the reply is shorter, and a negative status would announce private data.
std::uint8_t ReplyBuffer::FillAt(std::size_t index) {
  const std::size_t mixed = index * 37 + 11;
  return static_cast<std::uint8_t>(index < kHeaderSize ? 0x40 | (mixed & 0x3f)
                                                       : 0x80 | (mixed & 0x7f));
}

}  // namespace kaloctl
