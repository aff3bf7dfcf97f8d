#include "simulator/device/raw_operation.h"

#include <fcntl.h>

#include <algorithm>
#include <cstdio>

#include "simulator/device/client.h"
#include "simulator/device/open_flags.h"
#include "simulator/preload/protocol.h"

namespace zulisim {
namespace {

// What an open asks of a device. The rest is for the process and its file table, and a kernel keeps
// some of it to itself, so that it depends on how the program is attached.
constexpr int kDeviceFlags = O_ACCMODE | O_APPEND | O_NONBLOCK | O_SYNC | O_DSYNC;

std::string Hex(std::uint32_t value) {
  char text[16];
  std::snprintf(text, sizeof(text), "0x%x", value);
  return text;
}

bool IsTransfer(const RawOperation& operation) {
  return operation.operation == Operation::kRead || operation.operation == Operation::kWrite;
}

}  // namespace

unsigned OpenMode(int flags, unsigned mode) {
  const bool counts = (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE;
  return counts ? mode : 0;
}

std::size_t InputSize(const RawOperation& operation) {
  if (!operation.hasBuffer) return 0;
  if (operation.operation == Operation::kIoctl) return protocol::IoctlSize(operation.request);
  if (operation.operation != Operation::kWrite) return 0;
  return std::min<std::uint64_t>(operation.length, protocol::kMaxPayload);
}

std::size_t OutputSize(const RawOperation& operation) {
  if (!operation.hasBuffer) return 0;
  if (operation.operation == Operation::kIoctl) return protocol::IoctlSize(operation.request);
  const bool delivered = operation.operation == Operation::kRead && operation.result.value > 0;
  return delivered ? static_cast<std::size_t>(operation.result.value) : 0;
}

bool SameCall(const RawOperation& a, const RawOperation& b) {
  if (a.operation != b.operation || a.gone != b.gone) return false;
  if (a.operation == Operation::kOpen) return ((a.flags ^ b.flags) & kDeviceFlags) == 0;
  return a.request == b.request && a.length == b.length && a.hasBuffer == b.hasBuffer &&
         a.input == b.input;
}

std::string CallText(const RawOperation& operation) {
  if (operation.gone) return "the end of the program without a close";
  std::string text = OperationName(operation.operation);
  if (operation.operation == Operation::kOpen) {
    text += " " + OpenFlagsText(operation.flags);
    if (operation.mode != 0) text += ", mode " + Hex(operation.mode);
  }
  if (operation.operation == Operation::kIoctl) text += " " + Hex(operation.request);
  if (IsTransfer(operation)) text += " " + std::to_string(operation.length) + " bytes";
  if (!operation.hasBuffer) text += ", no buffer";
  const auto command = operation.operation == Operation::kWrite
                           ? WordAt(operation.input, kCommandIdOffset)
                           : std::nullopt;
  if (command) text += ", command " + Hex(*command);
  return text;
}

std::string ResultText(const RawOperation& operation) {
  if (operation.result.value < 0) {
    const std::string name = ErrnoName(operation.result.error);
    return name[0] == 'E' ? name : "E" + name;  // a bare number would be a count
  }
  const bool counts = IsTransfer(operation) ||
                      (operation.operation == Operation::kIoctl && operation.result.value > 0);
  return counts ? std::to_string(operation.result.value) : "ok";
}

std::string OpenFlagsText(int flags) {
  std::string text;
  for (const OpenFlag& flag : kOpenFlags) {
    if ((flags & flag.mask) != flag.value) continue;
    text += (text.empty() ? "" : "|") + std::string(flag.name);
    flags &= ~flag.mask;
  }
  if (flags != 0) text += (text.empty() ? "" : "|") + Hex(static_cast<std::uint32_t>(flags));
  return text;
}

}  // namespace zulisim
