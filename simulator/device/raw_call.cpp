#include "simulator/device/raw_call.h"

namespace zulisim {
namespace {

RawOperation Call(Operation operation, std::uint64_t connection) {
  RawOperation raw;
  raw.operation = operation;
  raw.connection = connection;
  raw.start = Now();
  return raw;
}

}  // namespace

std::chrono::nanoseconds Now() { return std::chrono::steady_clock::now().time_since_epoch(); }

Bytes Copied(const void* buffer, std::size_t length) {
  const auto* bytes = static_cast<const std::uint8_t*>(buffer);
  return buffer == nullptr ? Bytes() : Bytes(bytes, bytes + length);
}

RawOperation OpenCall(int flags, unsigned mode) {
  RawOperation raw = Call(Operation::kOpen, 0);
  raw.flags = flags;
  raw.mode = OpenMode(flags, mode);
  return raw;
}

RawOperation IoctlCall(std::uint64_t connection, std::uint32_t request, const void* argument) {
  RawOperation raw = Call(Operation::kIoctl, connection);
  raw.request = request;
  raw.hasBuffer = argument != nullptr;
  raw.input = Copied(argument, InputSize(raw));
  return raw;
}

RawOperation ReadCall(std::uint64_t connection, const void* buffer, std::size_t length) {
  RawOperation raw = Call(Operation::kRead, connection);
  raw.length = length;
  raw.hasBuffer = buffer != nullptr;
  return raw;
}

RawOperation WriteCall(std::uint64_t connection, const void* buffer, std::size_t length) {
  RawOperation raw = Call(Operation::kWrite, connection);
  raw.length = length;
  raw.hasBuffer = buffer != nullptr;
  raw.input = Copied(buffer, InputSize(raw));
  return raw;
}

RawOperation CloseCall(std::uint64_t connection) { return Call(Operation::kClose, connection); }

RawOperation GoneCall(std::uint64_t connection) {
  RawOperation raw = CloseCall(connection);
  raw.gone = true;
  return raw;
}

}  // namespace zulisim
