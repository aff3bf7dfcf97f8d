#pragma once

#include <cstddef>
#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include "transport/message_header.h"

namespace kaloctl {

constexpr std::size_t kHeaderSize = sizeof(KaloMessageHeader);
// The number of bytes of private data that follow a reply with a negative status.
constexpr unsigned int kPrivateDataSize = 16;

// Returns a message with `body`. The header is zero except for the command.
std::vector<std::uint8_t> MakeMessage(std::uint32_t commandId,
                                      const std::vector<std::uint8_t>& body);

// Writes the command into `message`, which must hold at least a header.
void SetCommand(std::vector<std::uint8_t>& message, std::uint32_t commandId);

// Prints a dump of all bytes, after the words of the header if the message has a complete one.
void PrintMessage(std::ostream& out, const std::vector<std::uint8_t>& message);

// Returns the length and status of a reply as text: "16 bytes, status 0".
std::string ReplyText(const std::vector<std::uint8_t>& reply);

// A reply buffer that detects the length of the reply, which the library does not report. It is
// filled with a pattern, and the reply ends at the last byte that differs from the pattern. About 1
// in 256 random replies ends with bytes of the pattern and appears shorter.
class ReplyBuffer {
 public:
  // `size` is the buffer size to pass to the library. The buffer always has room for a header.
  explicit ReplyBuffer(std::size_t size);

  std::uint8_t* data() { return bytes_.data(); }
  std::uint32_t size() const { return static_cast<std::uint32_t>(size_); }

  // Returns the received bytes, at most `size`; empty if no reply was written.
  std::vector<std::uint8_t> Received() const;

 private:
  static std::uint8_t FillAt(std::size_t index);

  std::size_t size_;
  std::vector<std::uint8_t> bytes_;
};

}  // namespace kaloctl
