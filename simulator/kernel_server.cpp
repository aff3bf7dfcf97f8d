#define FUSE_USE_VERSION 35

#include "simulator/kernel_server.h"

#include <cuse_lowlevel.h>
#include <fcntl.h>
#include <fuse_lowlevel.h>
#include <linux/fuse.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <stdexcept>

#include "simulator/kernel_modes.h"

namespace zulisim {
namespace {

// What libfuse says of a failure is kept for the message of ours.
std::string libraryText;

void KeepText(enum fuse_log_level, const char* format, va_list arguments) {
  char text[512];
  std::vsnprintf(text, sizeof(text), format, arguments);
  libraryText = text;
  while (!libraryText.empty() && libraryText.back() == '\n') libraryText.pop_back();
}

void Warn(const std::string& text) { std::cerr << "zulisim: warning: " + text + "\n"; }

}  // namespace

// The requests of the kernel. A file and a character device are asked the same, but for the inode.
struct KernelOperations {
  static KernelServer* Server(fuse_req_t request) {
    return static_cast<KernelServer*>(fuse_req_userdata(request));
  }

  static void Init(void* server, struct fuse_conn_info* connection) {
    // Each close is to arrive before whatever the program does next.
    connection->max_background = 65535;
    if (static_cast<KernelServer*>(server)->kind_ == KernelServer::Kind::kFile) Ready(server);
  }

  static void Ready(void* server) { Decide(static_cast<KernelServer*>(server), true); }

  static void Decide(KernelServer* server, bool ready) {
    std::call_once(server->decided_, [=] { server->ready_.set_value(ready); });
  }

  static void Open(fuse_req_t request, struct fuse_file_info* file) {
    KernelServer* server = Server(request);
    const Result result = server->device_.Open(file->flags, 0, -1);
    if (result.value == -1) {
      fuse_reply_err(request, result.error);
      return;
    }
    // As a stream, a file has no position: whatever has one is the rest of a transfer that the
    // kernel has split. libfuse knows no name for that flag, so the answer is written out here.
    struct fuse_open_out answer {};
    answer.fh = static_cast<std::uint64_t>(result.value);
    answer.open_flags = FOPEN_DIRECT_IO | FOPEN_STREAM;
    {
      std::lock_guard<std::mutex> lock(server->mutex_);
      server->open_.insert(answer.fh);
    }
    // A program that was interrupted meanwhile will not close what it never got.
    if (fuse_reply_buf(request, reinterpret_cast<const char*>(&answer), sizeof(answer)) != 0) {
      Close(server, answer.fh);
    }
  }

  static void Close(KernelServer* server, std::uint64_t connection) {
    {
      std::lock_guard<std::mutex> lock(server->mutex_);
      if (server->open_.erase(connection) == 0) return;
    }
    server->device_.Close(connection);
  }

  static void Read(fuse_req_t request, std::size_t length, off_t offset,
                   struct fuse_file_info* file) {
    if (offset > 0) {  // one read takes one message, however much room is left
      fuse_reply_buf(request, nullptr, 0);
      return;
    }
    const std::unique_ptr<char[]> buffer(new char[length]);
    const Result result = Server(request)->device_.Read(file->fh, buffer.get(), length);
    if (result.value == -1) {
      fuse_reply_err(request, result.error);
    } else {
      fuse_reply_buf(request, buffer.get(), static_cast<std::size_t>(result.value));
    }
  }

  static void Write(fuse_req_t request, const char* bytes, std::size_t length, off_t offset,
                    struct fuse_file_info* file) {
    KernelServer* server = Server(request);
    const bool isFile = server->kind_ == KernelServer::Kind::kFile;
    if (isFile && (file->flags & O_APPEND) != 0) {
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
    const Result result = server->device_.Write(file->fh, bytes, length);
    if (result.value == -1) {
      fuse_reply_err(request, result.error);
    } else {
      fuse_reply_write(request, static_cast<std::size_t>(result.value));
    }
  }

  // The kernel has taken as many bytes from the program as the request number says, and brings as
  // many back.
  static void Ioctl(fuse_req_t request, std::uint32_t number, void* argument,
                    struct fuse_file_info* file, const void* in, std::size_t inSize,
                    std::size_t outSize) {
    Bytes bytes(std::max<std::size_t>({inSize, outSize, _IOC_SIZE(number)}));
    if (inSize > 0) std::memcpy(bytes.data(), in, inSize);
    const Result result = Server(request)->device_.Ioctl(
        file->fh, number, argument != nullptr ? bytes.data() : nullptr);
    if (result.value == -1) {
      fuse_reply_err(request, result.error);
    } else {
      fuse_reply_ioctl(request, static_cast<int>(result.value), bytes.data(), outSize);
    }
  }

  static void Release(fuse_req_t request, struct fuse_file_info* file) {
    Close(Server(request), file->fh);
    fuse_reply_err(request, 0);
  }

  static void GetAttributes(fuse_req_t request, fuse_ino_t inode, struct fuse_file_info*) {
    struct stat status {};
    status.st_ino = inode;
    status.st_mode = S_IFREG | 0666;
    status.st_nlink = 1;
    status.st_uid = geteuid();  // nobody may write to a file whose owner a user namespace lacks
    status.st_gid = getegid();
    fuse_reply_attr(request, &status, 0);
  }
};

namespace {

using Operations = KernelOperations;

fuse_lowlevel_ops FileOperations() {
  fuse_lowlevel_ops operations{};
  operations.init = Operations::Init;
  operations.getattr = Operations::GetAttributes;
  operations.open = [](fuse_req_t request, fuse_ino_t, fuse_file_info* file) {
    Operations::Open(request, file);
  };
  operations.read = [](fuse_req_t request, fuse_ino_t, size_t length, off_t offset,
                       fuse_file_info* file) { Operations::Read(request, length, offset, file); };
  operations.write = [](fuse_req_t request, fuse_ino_t, const char* bytes, size_t length,
                        off_t offset, fuse_file_info* file) {
    Operations::Write(request, bytes, length, offset, file);
  };
  operations.ioctl = [](fuse_req_t request, fuse_ino_t, unsigned number, void* argument,
                        fuse_file_info* file, unsigned, const void* in, size_t inSize,
                        size_t outSize) {
    Operations::Ioctl(request, number, argument, file, in, inSize, outSize);
  };
  operations.release = [](fuse_req_t request, fuse_ino_t, fuse_file_info* file) {
    Operations::Release(request, file);
  };
  return operations;
}

cuse_lowlevel_ops NodeOperations() {
  cuse_lowlevel_ops operations{};
  operations.init = Operations::Init;
  operations.init_done = Operations::Ready;
  operations.open = Operations::Open;
  operations.read = Operations::Read;
  operations.write = Operations::Write;
  operations.ioctl = [](fuse_req_t request, int number, void* argument, fuse_file_info* file,
                        unsigned, const void* in, size_t inSize, size_t outSize) {
    Operations::Ioctl(request, static_cast<std::uint32_t>(number), argument, file, in, inSize,
                      outSize);
  };
  operations.release = Operations::Release;
  return operations;
}

bool MayTakeLong(const struct fuse_buf& buffer) {
  return static_cast<const struct fuse_in_header*>(buffer.mem)->opcode == FUSE_WRITE;
}

}  // namespace

KernelServer::KernelServer(Device& device, Kind kind, const std::string& path, bool everyUser)
    : device_(device), kind_(kind), path_(path), stop_(eventfd(0, EFD_CLOEXEC)) {
  fuse_set_log_func(KeepText);
  libraryText.clear();
  try {
    if (kind == Kind::kFile) {
      Mount(everyUser);
    } else {
      MakeNode();
    }
    const int descriptor = fuse_session_fd(session_);
    fcntl(descriptor, F_SETFD, FD_CLOEXEC);
    fcntl(descriptor, F_SETFL, fcntl(descriptor, F_GETFL) | O_NONBLOCK);
    StartWorker();
    if (!ready_.get_future().get()) {
      throw std::runtime_error("the kernel refused to serve '" + path_ + "'" +
                               (libraryText.empty() ? "" : ": " + libraryText));
    }
    Settle();  // the kernel learns the owner of the file
    if (kind == Kind::kCharacterDevice && chmod(path_.c_str(), 0666) != 0) {
      throw std::runtime_error("the kernel made the device, but '" + path_ +
                               "' did not appear: /dev must be a devtmpfs");
    }
  } catch (...) {
    Stop();
    throw;
  }
}

KernelServer::~KernelServer() { Stop(); }

void KernelServer::Mount(bool everyUser) {
  char name[] = "zulisim";
  char option[] = "-o";
  char own[] = "fsname=zulisim,subtype=zulisim";
  char shared[] = "fsname=zulisim,subtype=zulisim,allow_other";
  char* texts[] = {name, option, everyUser ? shared : own, nullptr};
  struct fuse_args arguments = FUSE_ARGS_INIT(3, texts);
  const fuse_lowlevel_ops operations = FileOperations();
  session_ = fuse_session_new(&arguments, &operations, sizeof(operations), this);
  fuse_opt_free_args(&arguments);
  if (session_ == nullptr || fuse_session_mount(session_, path_.c_str()) != 0) {
    throw std::runtime_error("the kernel does not let '" + path_ + "' be served as a file" +
                             (libraryText.empty() ? "" : " (" + libraryText + ")") + "; " +
                             OtherModes(Kind::kFile));
  }
}

void KernelServer::MakeNode() {
  const int control = open("/dev/cuse", O_RDWR | O_CLOEXEC);
  if (control < 0) throw std::runtime_error(MissingMode(kind_));
  const std::string variable = "DEVNAME=" + path_.substr(sizeof("/dev/") - 1);
  const char* variables[] = {variable.c_str()};
  struct cuse_info info {};
  info.dev_info_argc = 1;
  info.dev_info_argv = variables;
  char name[] = "zulisim";
  char* texts[] = {name, nullptr};
  struct fuse_args arguments = FUSE_ARGS_INIT(1, texts);
  const cuse_lowlevel_ops operations = NodeOperations();
  session_ = cuse_lowlevel_new(&arguments, &info, &operations, this);
  fuse_opt_free_args(&arguments);
  // The session owns the descriptor when it has taken it by this name.
  const std::string taken = "/dev/fd/" + std::to_string(control);
  if (session_ == nullptr || fuse_session_mount(session_, taken.c_str()) != 0) {
    close(control);
    throw std::runtime_error("the character device cannot be set up: " + libraryText);
  }
}

void KernelServer::StartWorker() {
  ++idle_;
  workers_.emplace_back([this] { Work(); });
}

void KernelServer::Work() {
  struct fuse_buf buffer {};
  while (true) {
    std::unique_lock<std::mutex> turn(turn_);
    if (!Receive(&buffer)) break;
    // A client may take its time over a request, and is not to hold up other programs. All else is
    // quick, and is done in the order in which the kernel has it.
    const bool alone = MayTakeLong(buffer);
    if (alone) {
      if (--idle_ == 0) StartWorker();
      turn.unlock();
    }
    fuse_session_process_buf(session_, &buffer);
    if (alone) ++idle_;
  }
  std::free(buffer.mem);
  serving_ = false;
  KernelOperations::Decide(this, false);
}

// False at the end of the service.
bool KernelServer::Receive(struct fuse_buf* buffer) {
  while (true) {
    struct pollfd entries[] = {{fuse_session_fd(session_), POLLIN, 0}, {stop_, POLLIN, 0}};
    if (poll(entries, 2, -1) < 0 && errno != EINTR) return false;
    if (entries[1].revents != 0) return false;
    if (entries[0].revents == 0) continue;
    const int received = fuse_session_receive_buf(session_, buffer);
    if (received > 0) return true;
    if (received != -EINTR && received != -EAGAIN) return false;
  }
}

void KernelServer::Settle() {
  struct stat ignored {};
  stat(path_.c_str(), &ignored);
}

void KernelServer::Stop() {
  eventfd_write(stop_, 1);
  while (true) {
    std::thread worker;
    {
      // A worker that still runs may start another.
      std::lock_guard<std::mutex> turn(turn_);
      if (workers_.empty()) break;
      worker = std::move(workers_.back());
      workers_.pop_back();
    }
    worker.join();
  }
  if (session_ != nullptr) {
    fuse_session_unmount(session_);
    fuse_session_destroy(session_);
  }
  for (const std::uint64_t connection : open_) device_.Release(connection);
  close(stop_);
}

}  // namespace zulisim
