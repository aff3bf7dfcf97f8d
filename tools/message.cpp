#include "tools/message.h"

#include <algorithm>
#include <cstring>

#include "tools/hex_dump.h"
#include "tools/number.h"

namespace kaloctl {

std::vector<uint8_t> MakeMessage(uint32_t commandId, const std::vector<uint8_t>& body) {
  std::vector<uint8_t> message(kHeaderSize);
  SetCommand(message, commandId);
  message.insert(message.end(), body.begin(), body.end());
  return message;
}

void SetCommand(std::vector<uint8_t>& message, uint32_t commandId) {
  std::memcpy(message.data() + offsetof(KaloMessageHeader, commandId), &commandId,
              sizeof(commandId));
}

void PrintMessage(std::ostream& out, const std::vector<uint8_t>& message) {
  constexpr char kIndent[] = "  ";
  if (message.size() >= kHeaderSize) {
    const KaloMessageHeader header = transport::HeaderOf(message.data());
    out << kIndent << "word0 " << Hex(header.word0, 8) << "  command " << Hex(header.commandId, 8)
        << "  status " << header.status;
    if (header.status < 0) {
      out << " (" << Hex(static_cast<uint32_t>(header.status), 8) << ")";
    }
    out << "  word3 " << Hex(header.word3, 8) << '\n';
  }
  PrintHexDump(out, message.data(), message.size(), kIndent);
}

ReplyBuffer::ReplyBuffer(std::size_t size) : size_(size), bytes_(std::max(size, kHeaderSize)) {
  // The header stays zero: the library looks at its status word even after a shorter reply.
  for (std::size_t i = kHeaderSize; i < bytes_.size(); ++i) bytes_[i] = FillAt(i);
}

std::vector<uint8_t> ReplyBuffer::Received() const {
  std::size_t end = size_;
  while (end > kHeaderSize && bytes_[end - 1] == FillAt(end - 1)) --end;
  return std::vector<uint8_t>(bytes_.begin(), bytes_.begin() + static_cast<std::ptrdiff_t>(end));
}

// Never 0 nor ASCII, and no two neighbours alike, so that usual replies do not end like it.
uint8_t ReplyBuffer::FillAt(std::size_t index) {
  return static_cast<uint8_t>(0x80 | ((index * 37 + 11) & 0x7f));
}

}  // namespace kaloctl
