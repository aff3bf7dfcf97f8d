#include "simulator/kernel/kernel_operations.h"

#include <fcntl.h>
#include <linux/fuse.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
#include <memory>
#include <string>

namespace zulisim {
namespace {

// The process of a thread, which the kernel names in its place; itself where that has ended.
pid_t ProcessOf(pid_t thread) {
  std::ifstream status("/proc/" + std::to_string(thread) + "/status");
  for (std::string word; status >> word;) {
    if (word == "Tgid:" && status >> thread) break;
  }
  return thread;
}

KernelOperations* Self(fuse_req_t request) {
  thread_local pid_t thread = 0;
  thread_local pid_t process = 0;
  const pid_t caller = fuse_req_ctx(request)->pid;
  if (caller != thread) process = caller == 0 ? 0 : ProcessOf(caller);
  thread = caller;
  SetCaller(process, thread);
  return static_cast<KernelOperations*>(fuse_req_userdata(request));
}

void Warn(const std::string& text) { std::cerr << "zulisim: warning: " + text + "\n"; }

}  // namespace

fuse_lowlevel_ops KernelOperations::ForFile() {
  fuse_lowlevel_ops operations{};
  operations.init = Init;
  operations.getattr = GetAttributes;
  operations.open = [](fuse_req_t request, fuse_ino_t, fuse_file_info* file) {
    Open(request, file);
  };
  operations.read = [](fuse_req_t request, fuse_ino_t, size_t length, off_t offset,
                       fuse_file_info* file) { Read(request, length, offset, file); };
  operations.write = [](fuse_req_t request, fuse_ino_t, const char* bytes, size_t length,
                        off_t offset,
                        fuse_file_info* file) { Write(request, bytes, length, offset, file); };
  operations.ioctl = [](fuse_req_t request, fuse_ino_t, unsigned number, void* argument,
                        fuse_file_info* file, unsigned, const void* in, size_t inSize,
                        size_t outSize) {
    Ioctl(request, number, argument, file, in, inSize, outSize);
  };
  operations.release = [](fuse_req_t request, fuse_ino_t, fuse_file_info* file) {
    Release(request, file);
  };
  return operations;
}

cuse_lowlevel_ops KernelOperations::ForCharacterDevice() {
  cuse_lowlevel_ops operations{};
  operations.init = Init;
  operations.init_done = InitDone;
  operations.open = Open;
  operations.read = Read;
  operations.write = Write;
  operations.ioctl = [](fuse_req_t request, int number, void* argument, fuse_file_info* file,
                        unsigned, const void* in, size_t inSize, size_t outSize) {
    Ioctl(request, static_cast<std::uint32_t>(number), argument, file, in, inSize, outSize);
  };
  operations.release = Release;
  return operations;
}

void KernelOperations::SetReady(bool ready) {
  std::call_once(readySet_, [=] { ready_.set_value(ready); });
}

void KernelOperations::Init(void* self, struct fuse_conn_info* connection) {
  // Each close is to arrive before whatever the program does next.
  connection->max_background = 65535;
  if (static_cast<KernelOperations*>(self)->isFile_) InitDone(self);
}

void KernelOperations::InitDone(void* self) {
  static_cast<KernelOperations*>(self)->SetReady(true);
}

void KernelOperations::Open(fuse_req_t request, struct fuse_file_info* file) {
  KernelOperations* self = Self(request);
  const Result result = self->device_.Open(file->flags, 0, -1);
  if (result.value == -1) {
    fuse_reply_err(request, result.error);
    return;
  }
  // As a stream, a file has no position: whatever has one is the rest of a transfer that the kernel
  // has split. libfuse has no name for that flag, so the answer is written out here.
  struct fuse_open_out answer {};
  answer.fh = static_cast<std::uint64_t>(result.value);
  answer.open_flags = FOPEN_DIRECT_IO | FOPEN_STREAM;
  {
    std::lock_guard<std::mutex> lock(self->mutex_);
    self->open_.insert(answer.fh);
  }
  // A program that was interrupted meanwhile will not close what it never got.
  if (fuse_reply_buf(request, reinterpret_cast<const char*>(&answer), sizeof(answer)) != 0) {
    self->Close(answer.fh);
  }
}

void KernelOperations::Close(std::uint64_t connection) {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (open_.erase(connection) == 0) return;
  }
  device_.Close(connection, CloseReason::kProgramClosed);
}

void KernelOperations::End() {
  ended_ = true;
  std::set<std::uint64_t> open;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    open.swap(open_);
  }
  for (const std::uint64_t connection : open) device_.Close(connection, CloseReason::kServiceEnded);
}

void KernelOperations::Read(fuse_req_t request, std::size_t length, off_t offset,
                            struct fuse_file_info* file) {
  if (offset > 0) {  // one read takes one message, however much room is left
    fuse_reply_buf(request, nullptr, 0);
    return;
  }
  KernelOperations* self = Self(request);
  const std::unique_ptr<char[]> buffer(new char[length]);
  const bool nonBlocking = (file->flags & O_NONBLOCK) != 0;
  const Result result = self->device_.Read(file->fh, buffer.get(), length, nonBlocking);
  if (result.value == -1) {
    fuse_reply_err(request, self->ended_ ? ENODEV : result.error);
  } else {
    fuse_reply_buf(request, buffer.get(), static_cast<std::size_t>(result.value));
  }
}

void KernelOperations::Write(fuse_req_t request, const char* bytes, std::size_t length,
                             off_t offset, struct fuse_file_info* file) {
  KernelOperations* self = Self(request);
  if (self->isFile_ && (file->flags & O_APPEND) != 0) {
    Warn("a write with O_APPEND was refused with EINVAL: where a message ends would be unknown");
    fuse_reply_err(request, EINVAL);
    return;
  }
  if (offset > 0) {
    Warn("the kernel has split a write; all but its first " + std::to_string(offset) +
         " bytes were refused with EIO");
    fuse_reply_err(request, EIO);
    return;
  }
  const Result result = self->device_.Write(file->fh, bytes, length);
  if (result.value == -1) {
    fuse_reply_err(request, result.error);
  } else {
    fuse_reply_write(request, static_cast<std::size_t>(result.value));
  }
}

// The kernel has taken as many bytes from the program as the request number says, and brings as
// many back.
void KernelOperations::Ioctl(fuse_req_t request, std::uint32_t number, void* argument,
                             struct fuse_file_info* file, const void* in, std::size_t inSize,
                             std::size_t outSize) {
  Bytes bytes(std::max<std::size_t>({inSize, outSize, _IOC_SIZE(number)}));
  if (inSize > 0) std::memcpy(bytes.data(), in, inSize);
  void* const target = argument != nullptr ? bytes.data() : nullptr;
  const Result result = Self(request)->device_.Ioctl(file->fh, number, target);
  if (result.value == -1) {
    fuse_reply_err(request, result.error);
  } else {
    fuse_reply_ioctl(request, static_cast<int>(result.value), bytes.data(), outSize);
  }
}

void KernelOperations::Release(fuse_req_t request, struct fuse_file_info* file) {
  Self(request)->Close(file->fh);
  fuse_reply_err(request, 0);
}

void KernelOperations::GetAttributes(fuse_req_t request, fuse_ino_t inode, struct fuse_file_info*) {
  struct stat status {};
  status.st_ino = inode;
  status.st_mode = S_IFREG | 0666;
  status.st_nlink = 1;
  status.st_uid = geteuid();  // nobody may write to a file whose owner a user namespace lacks
  status.st_gid = getegid();
  fuse_reply_attr(request, &status, 0);
}

}  // namespace zulisim
