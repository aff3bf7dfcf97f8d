#pragma once

#include <cerrno>

// How the transport reacts to an errno of the device. The code, its tests and docs/errors.md all
// use this table.
namespace transport {

// The calls that the transport makes on the device.
enum class DeviceCall { kOpen, kConnect, kClose, kWrite, kRead, kReadPrivateData, kIoctl };

enum class Remedy {
  // Reconnect up to kMaxRecoveries times and retry after each but the last; then throw.
  kReconnect,
  // Throw std::runtime_error.
  kThrow,
  // Log it and continue.
  kIgnore,
};

constexpr int kMaxRecoveries = 5;

// Matches every errno without a row of its own.
constexpr int kAnyErrno = 0;

struct ErrnoPolicy {
  DeviceCall call;
  int error;
  Remedy remedy;
  // The text of the exception, or null if none is thrown.
  const char* thrown;
  // The lines that the log adds for this errno; null for no line.
  const char* explanation[2];
};

// clang-format off
inline constexpr ErrnoPolicy kErrnoPolicies[] = {
    {DeviceCall::kOpen, kAnyErrno, Remedy::kThrow, "Cannot open ZULI device.", {}},
    {DeviceCall::kConnect, kAnyErrno, Remedy::kThrow, "Cannot connect to ZULI device.", {}},
    {DeviceCall::kClose, kAnyErrno, Remedy::kIgnore, nullptr, {}},
    {DeviceCall::kWrite, ENODEV, Remedy::kReconnect, "Error writing message to ZULI.", {}},
    {DeviceCall::kWrite, kAnyErrno, Remedy::kThrow, "Error writing message to ZULI.", {}},
    {DeviceCall::kRead, ENODEV, Remedy::kReconnect, "Error reading message from ZULI.", {}},
    {DeviceCall::kRead, kAnyErrno, Remedy::kThrow, "Error reading message from ZULI.", {}},
    // Contract: unlike the log line, these two texts have no full stop.
    {DeviceCall::kReadPrivateData, ENODEV, Remedy::kReconnect, "Error reading TEV private data", {}},
    {DeviceCall::kReadPrivateData, kAnyErrno, Remedy::kThrow, "Error reading TEV private data", {}},
    {DeviceCall::kIoctl, ENODEV, Remedy::kReconnect, "Error sending IOCTL to ZULI.", {}},
    {DeviceCall::kIoctl, EBADF, Remedy::kThrow, "Error sending IOCTL to ZULI.",
     {"d is not a valid descriptor."}},
    {DeviceCall::kIoctl, EFAULT, Remedy::kThrow, "Error sending IOCTL to ZULI.",
     {"argp references an inaccessible memory area."}},
    {DeviceCall::kIoctl, EINVAL, Remedy::kThrow, "Error sending IOCTL to ZULI.",
     {"Request or argp is not valid."}},
    {DeviceCall::kIoctl, ENOTTY, Remedy::kThrow, "Error sending IOCTL to ZULI.",
     {"d is not associated with a character special device.",
      "The specified request does not apply to the kind of object that the descriptor d references."}},
    {DeviceCall::kIoctl, kAnyErrno, Remedy::kThrow, "Error sending IOCTL to ZULI.", {}},
};
// clang-format on

// Returns the first row for the call with this errno, or the call's row for any errno.
constexpr const ErrnoPolicy& PolicyFor(DeviceCall call, int error) {
  for (const ErrnoPolicy& policy : kErrnoPolicies) {
    if (policy.call == call && (policy.error == error || policy.error == kAnyErrno)) return policy;
  }
  return kErrnoPolicies[0];
}

static_assert(PolicyFor(DeviceCall::kIoctl, EIO).call == DeviceCall::kIoctl,
              "every call has a row for any errno, the last call's included");

}  // namespace transport
