#pragma once

#include <cstdint>
#include <optional>

namespace zulisim::hooks {

// Records which descriptors of this process belong to the device. Lock-free; any thread may call
// these functions.

inline constexpr int kDescriptorLimit = 65536;

// Returns true in the child of a vfork, which uses the memory of its parent, and while the process
// starts.
bool SharesMemory();

// Marks `descriptor`, opened with `flags`, as one of the device. Returns false if the descriptor's
// number is kDescriptorLimit or higher.
bool MarkDescriptor(int descriptor, std::uint64_t handle, int flags);

// Returns the handle of a marked descriptor. For an unmarked descriptor, the call costs a single
// load. If the program closed the descriptor without the hooks, removes the mark.
std::optional<std::uint64_t> DeviceHandle(int descriptor);

// Returns the flags with which a marked descriptor was opened.
int DeviceFlags(int descriptor);

// Removes the mark. Returns true if this call removed the last mark of the handle. Does nothing
// when the process shares its memory.
bool UnmarkDescriptor(int descriptor, std::uint64_t handle);

}  // namespace zulisim::hooks
