#include "simulator/device/operation.h"

#include <strings.h>

#include <array>
#include <cstring>

namespace zulisim {
namespace {

constexpr std::array<const char*, kOperationCount> kNames = {"open", "ioctl", "read", "write",
                                                             "close"};
constexpr int kLastErrno = 133;

}  // namespace

const char* OperationName(Operation operation) {
  return kNames[static_cast<std::size_t>(operation)];
}

std::optional<Operation> OperationFromName(const std::string& name) {
  for (std::size_t i = 0; i < kNames.size(); ++i) {
    if (name == kNames[i]) return static_cast<Operation>(i);
  }
  return std::nullopt;
}

std::string ErrnoName(int error) {
  const char* name = error > 0 ? strerrorname_np(error) : nullptr;
  return name != nullptr ? name : std::to_string(error);
}

std::optional<int> ErrnoFromName(const std::string& name) {
  for (int error = 1; error <= kLastErrno; ++error) {
    const char* candidate = strerrorname_np(error);
    if (candidate != nullptr && strcasecmp(candidate, name.c_str()) == 0) return error;
  }
  return std::nullopt;
}

}  // namespace zulisim
