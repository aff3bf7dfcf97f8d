#include "simulator/hooks/descriptors.h"

#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>

#include "simulator/hooks/libc.h"

namespace zulisim::hooks {
namespace {

struct Mark {
  std::atomic<std::uint64_t> inode;  // of the kernel object behind the descriptor; 0: not marked
  std::atomic<std::uint64_t> handle;
  std::atomic<int> flags;
};

Mark marks[kDescriptorLimit];
std::atomic<int> markedEnd{0};  // one more than the highest descriptor that was ever marked

// The process that owns this memory. The child of a fork gets a copy of the memory and becomes its
// owner. The child of a vfork runs no fork handler.
std::atomic<pid_t> owner{0};

void BecomeOwner() { owner.store(getpid()); }

__attribute__((constructor(103))) void BecomeOwnerAtStart() {
  BecomeOwner();
  pthread_atfork(nullptr, nullptr, BecomeOwner);
}

std::uint64_t Inode(int descriptor) {
  const int savedErrno = errno;
  struct stat status;
  const int result = Real_fstat(descriptor, &status);
  errno = savedErrno;
  return result == 0 ? status.st_ino : 0;
}

}  // namespace

bool SharesMemory() { return owner.load() != getpid(); }

bool MarkDescriptor(int descriptor, std::uint64_t handle, int flags) {
  if (descriptor < 0 || descriptor >= kDescriptorLimit) return false;
  const std::uint64_t inode = Inode(descriptor);
  if (inode == 0) return false;
  Mark& mark = marks[descriptor];
  mark.handle.store(handle, std::memory_order_relaxed);
  mark.flags.store(flags, std::memory_order_relaxed);
  mark.inode.store(inode, std::memory_order_release);
  int end = markedEnd.load();
  while (end <= descriptor && !markedEnd.compare_exchange_weak(end, descriptor + 1)) {
  }
  return true;
}

std::optional<std::uint64_t> DeviceHandle(int descriptor) {
  if (descriptor < 0 || descriptor >= kDescriptorLimit) return std::nullopt;
  Mark& mark = marks[descriptor];
  std::uint64_t inode = mark.inode.load(std::memory_order_acquire);
  if (inode == 0) return std::nullopt;
  const std::uint64_t handle = mark.handle.load(std::memory_order_relaxed);
  if (inode == Inode(descriptor)) return handle;
  mark.inode.compare_exchange_strong(inode, 0);
  return std::nullopt;
}

int DeviceFlags(int descriptor) { return marks[descriptor].flags.load(); }

bool UnmarkDescriptor(int descriptor, std::uint64_t handle) {
  if (SharesMemory()) return false;
  if (marks[descriptor].inode.exchange(0) == 0) return false;
  for (int other = 0; other < markedEnd.load(); ++other) {
    if (marks[other].inode.load() != 0 && marks[other].handle.load() == handle) return false;
  }
  return true;
}

}  // namespace zulisim::hooks
