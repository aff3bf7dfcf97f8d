#include "simulator/kernel/kernel_operations.h"

#include <fcntl.h>
#include <linux/fuse.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <memory>
#include <string>

#include "common/format.h"

namespace zulisim {
namespace {

// Signals that do not end a process by default: SIGCHLD, SIGCONT, SIGURG, SIGWINCH and the stop
// signals.
constexpr std::uint64_t kNotFatal = 0x87F0000;

// Returns the word after `field` in /proc/THREAD/status, or "" if the thread has ended.
std::string ThreadStatus(pid_t thread, const char* field) {
  std::ifstream status("/proc/" + std::to_string(thread) + "/status");
  for (std::string word; status >> word;) {
    if (word == field && status >> word) return word;
  }
  return "";
}

bool IsBeingKilled(pid_t thread) {
  const auto set = [thread](const char* field) {
    return std::strtoull(ThreadStatus(thread, field).c_str(), nullptr, 16);
  };
  const std::uint64_t pending = set("SigPnd:") | set("ShdPnd:");
  return (pending & ~set("SigBlk:") & ~set("SigCgt:") & ~kNotFatal) != 0;
}

KernelOperations* FromRequest(fuse_req_t request) {
  thread_local pid_t thread = 0;
  thread_local pid_t process = 0;
  const pid_t caller = fuse_req_ctx(request)->pid;  // the id of a thread
  if (caller != thread) process = std::atoi(ThreadStatus(caller, "Tgid:").c_str());
  thread = caller;
  SetCaller(process, thread);
  return static_cast<KernelOperations*>(fuse_req_userdata(request));
}

void Warn(const std::string& text) { std::cerr << "zulisim: warning: " + text + "\n"; }

// Sends the errno of an operation that failed to the program. Returns false for one that did not.
bool ReplyFailure(fuse_req_t request, const Result& result) {
  if (result.value != -1) return false;
  fuse_reply_err(request, result.error);
  return true;
}

// Adapts an operation on a character device to a file. For a file, the kernel also passes the
// inode.
template <auto operation>
struct FileOperation;
template <typename... Arguments, void (*operation)(fuse_req_t, Arguments...)>
struct FileOperation<operation> {
  static void Call(fuse_req_t request, fuse_ino_t, Arguments... arguments) {
    operation(request, arguments...);
  }
};

}  // namespace

fuse_lowlevel_ops KernelOperations::ForFile() {
  fuse_lowlevel_ops operations{};
  operations.init = Init;
  operations.getattr = GetAttributes;
  operations.open = FileOperation<Open>::Call;
  operations.read = FileOperation<Read>::Call;
  operations.write = FileOperation<Write>::Call;
  operations.ioctl = FileOperation<Ioctl>::Call;
  operations.release = FileOperation<Release>::Call;
  return operations;
}

cuse_lowlevel_ops KernelOperations::ForCharacterDevice() {
  cuse_lowlevel_ops operations{};
  operations.init = Init;
  operations.open = Open;
  operations.read = Read;
  operations.write = Write;
  operations.ioctl = Ioctl;
  operations.release = Release;
  return operations;
}

void KernelOperations::AnswerKilledReads() {
  std::lock_guard<std::mutex> lock(mutex_);
  for (PendingRead* read : reads_) {
    if (read->answered || !IsBeingKilled(read->thread)) continue;
    fuse_reply_err(read->request, EINTR);
    read->answered = true;
  }
}

void KernelOperations::Init(void*, struct fuse_conn_info* connection) {
  // Without a limit, the kernel sends each close before the program's next operation.
  connection->max_background = 65535;
}

void KernelOperations::Open(fuse_req_t request, struct fuse_file_info* file) {
  KernelOperations* self = FromRequest(request);
  const Result result = self->device_.Open(file->flags, 0, -1);
  if (ReplyFailure(request, result)) return;
  // A stream has no position. If the kernel passes an offset, the transfer is the rest of one that
  // the kernel has split. libfuse has no name for this flag, so the reply is built here.
  struct fuse_open_out answer {};
  answer.fh = static_cast<std::uint64_t>(result.value);
  answer.open_flags = FOPEN_DIRECT_IO | FOPEN_STREAM;
  {
    std::lock_guard<std::mutex> lock(self->mutex_);
    self->open_.insert(answer.fh);
  }
  // If a signal interrupted the program meanwhile, it has no descriptor to close.
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
  if (offset > 0) {  // the rest of a split read; each read returns one message
    fuse_reply_buf(request, nullptr, 0);
    return;
  }
  KernelOperations* self = FromRequest(request);
  PendingRead read{request, fuse_req_ctx(request)->pid};
  {
    std::lock_guard<std::mutex> lock(self->mutex_);
    self->reads_.insert(&read);
  }
  const std::unique_ptr<char[]> buffer(new char[length]);
  const bool nonBlocking = (file->flags & O_NONBLOCK) != 0;
  const Result result = self->device_.Read(file->fh, buffer.get(), length, nonBlocking);
  {
    std::lock_guard<std::mutex> lock(self->mutex_);
    self->reads_.erase(&read);
    if (read.answered) return;
  }
  if (result.value == -1) {
    fuse_reply_err(request, self->ended_ ? ENODEV : result.error);
  } else {
    fuse_reply_buf(request, buffer.get(), static_cast<std::size_t>(result.value));
  }
}

void KernelOperations::Write(fuse_req_t request, const char* bytes, std::size_t length,
                             off_t offset, struct fuse_file_info* file) {
  KernelOperations* self = FromRequest(request);
  if (self->isFile_ && (file->flags & O_APPEND) != 0) {
    Warn("refused a write with O_APPEND (EINVAL): the end of the message would be unknown");
    fuse_reply_err(request, EINVAL);
    return;
  }
  if (offset > 0) {
    Warn(common::Format("the kernel has split a write; refused all but its first {} bytes (EIO)",
                        offset));
    fuse_reply_err(request, EIO);
    return;
  }
  const Result result = self->device_.Write(file->fh, bytes, length);
  if (ReplyFailure(request, result)) return;
  fuse_reply_write(request, static_cast<std::size_t>(result.value));
}

// The kernel copies the number of bytes that the request number encodes, from and to the program.
void KernelOperations::Ioctl(fuse_req_t request, int number, void* argument,
                             struct fuse_file_info* file, unsigned, const void* in,
                             std::size_t inSize, std::size_t outSize) {
  Bytes bytes(
      std::max<std::size_t>({inSize, outSize, _IOC_SIZE(static_cast<std::uint32_t>(number))}));
  if (inSize > 0) std::memcpy(bytes.data(), in, inSize);
  void* const target = argument != nullptr ? bytes.data() : nullptr;
  const Result result =
      FromRequest(request)->device_.Ioctl(file->fh, static_cast<std::uint32_t>(number), target);
  if (ReplyFailure(request, result)) return;
  fuse_reply_ioctl(request, static_cast<int>(result.value), bytes.data(), outSize);
}

void KernelOperations::Release(fuse_req_t request, struct fuse_file_info* file) {
  FromRequest(request)->Close(file->fh);
  fuse_reply_err(request, 0);
}

void KernelOperations::GetAttributes(fuse_req_t request, fuse_ino_t inode, struct fuse_file_info*) {
  struct stat status {};
  status.st_ino = inode;
  status.st_mode = S_IFREG | 0666;
  status.st_nlink = 1;
  status.st_uid = geteuid();  // otherwise the kernel refuses writes in a user namespace
  status.st_gid = getegid();
  fuse_reply_attr(request, &status, 0);
}

}  // namespace zulisim
