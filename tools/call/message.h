#pragma once

#include <cstddef>
#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include "transport/message_header.h"

namespace kaloctl {

constexpr std::size_t kHeaderSize = sizeof(KaloMessageHeader);
// Bytes of the private data that follow a reply with a negative status.
constexpr unsigned int kPrivateDataSize = 16;

// A message that is a header of zeros with the command identifier, in front of `body`.
std::vector<uint8_t> MakeMessage(uint32_t commandId, const std::vector<uint8_t>& body);

// `message` holds at least a header.
void SetCommand(std::vector<uint8_t>& message, uint32_t commandId);

// The header's words by name where there is a whole one, and a dump of everything.
void PrintMessage(std::ostream& out, const std::vector<uint8_t>& message);

// What was received, in a few words: its length and status.
std::string ReplyText(const std::vector<uint8_t>& reply);

// A buffer for a reply that tells afterwards how much of it was written: the library does not say.
// It is filled with a pattern; the end of the reply is the last byte that differs from it. A reply
// that ends in bytes equal to the pattern appears that much shorter; one byte does so by chance in
// 1 of 256 random replies.
class ReplyBuffer {
 public:
  // At least a header's room is kept, whatever size the library is told.
  explicit ReplyBuffer(std::size_t size);

  uint8_t* data() { return bytes_.data(); }
  uint32_t size() const { return static_cast<uint32_t>(size_); }

  // What was written, of what the library was told of; empty when it was nothing.
  std::vector<uint8_t> Received() const;

 private:
  static uint8_t FillAt(std::size_t index);

  std::size_t size_;
  std::vector<uint8_t> bytes_;
};

}  // namespace kaloctl
