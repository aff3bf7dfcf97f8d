#pragma once

#include <cstddef>
#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include "transport/message_header.h"

namespace kaloctl {

constexpr std::size_t kHeaderSize = sizeof(KaloMessageHeader);
// Bytes of the private data that follows a reply with a negative status.
constexpr unsigned int kPrivateDataSize = 16;

// Returns a message: a header that is zero except for the command, and `body`.
std::vector<std::uint8_t> MakeMessage(std::uint32_t commandId,
                                      const std::vector<std::uint8_t>& body);

// Writes the command into `message`, which must hold at least a header.
void SetCommand(std::vector<std::uint8_t>& message, std::uint32_t commandId);

// Prints the words of the header, unless the message is shorter, and a dump of all bytes.
void PrintMessage(std::ostream& out, const std::vector<std::uint8_t>& message);

// Returns the length and status of a reply: "16 bytes, status 0".
std::string ReplyText(const std::vector<std::uint8_t>& reply);

// A reply buffer that detects the length of the reply, which the library does not report. The
// buffer holds a pattern; the reply ends at the last byte that differs from it. A reply whose last
// bytes equal the pattern appears shorter, which happens to 1 of 256 random replies.
class ReplyBuffer {
 public:
  // `size` is the size that the library gets. The buffer has room for at least a header.
  explicit ReplyBuffer(std::size_t size);

  std::uint8_t* data() { return bytes_.data(); }
  std::uint32_t size() const { return static_cast<std::uint32_t>(size_); }

  // Returns the received bytes within `size`; empty if no reply was written.
  std::vector<std::uint8_t> Received() const;

 private:
  static std::uint8_t FillAt(std::size_t index);

  std::size_t size_;
  std::vector<std::uint8_t> bytes_;
};

}  // namespace kaloctl
