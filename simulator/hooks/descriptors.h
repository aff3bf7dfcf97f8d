#pragma once

#include <cstdint>
#include <optional>

namespace zulisim::hooks {

// Which descriptors of this process are the device's. Lock-free; any thread.

inline constexpr int kDescriptorLimit = 65536;

// Serves `descriptor`, opened with `flags`, as the device from here on. False when its number is at
// or above the limit.
bool MarkDescriptor(int descriptor, std::uint64_t handle, int flags);

// Says no after one load when the descriptor is not marked. A mark that is out of
// date, because the descriptor was closed without the hooks, is noticed and removed.
std::optional<std::uint64_t> DeviceHandle(int descriptor);

// What a descriptor that has a handle was opened with.
int DeviceFlags(int descriptor);

// Takes the mark away; true when this call did it and no other mark for the handle is left. The
// child of a vfork shares the marks with its parent, whose descriptors stay: there it does nothing.
bool UnmarkDescriptor(int descriptor, std::uint64_t handle);

// One above the highest number that was ever marked.
int MarkedEnd();

}  // namespace zulisim::hooks
