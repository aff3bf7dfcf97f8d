#include "simulator/kernel/kernel_server.h"

#include <fcntl.h>
#include <linux/fuse.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <system_error>

#include "simulator/kernel/kernel_support.h"
#include "simulator/kernel/kernel_operations.h"

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

bool MayTakeLong(const struct fuse_buf& buffer) {
  const auto opcode = static_cast<const struct fuse_in_header*>(buffer.mem)->opcode;
  return opcode == FUSE_READ || opcode == FUSE_WRITE;
}

}  // namespace

bool KernelServer::Built() { return true; }

KernelServer::KernelServer(Device& device, Kind kind, const std::string& path, bool everyUser)
    : kind_(kind),
      path_(path),
      operations_(std::make_unique<KernelOperations>(device, kind == Kind::kFile)),
      stop_(eventfd(0, EFD_CLOEXEC)) {
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
    {
      std::lock_guard<std::mutex> turn(turn_);
      if (!StartWorker()) throw std::runtime_error("no thread can be started to serve the device");
    }
    if (!operations_->Ready()) {
      throw std::runtime_error("the kernel refused to serve '" + path_ + "'" +
                               (libraryText.empty() ? "" : ": " + libraryText));
    }
    WaitForCloses();  // the kernel learns the owner of the file
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
  const fuse_lowlevel_ops operations = KernelOperations::ForFile();
  session_ = fuse_session_new(&arguments, &operations, sizeof(operations), operations_.get());
  fuse_opt_free_args(&arguments);
  if (session_ == nullptr || fuse_session_mount(session_, path_.c_str()) != 0) {
    throw std::runtime_error("the kernel does not let '" + path_ + "' be served as a file" +
                             (libraryText.empty() ? "" : " (" + libraryText + ")") + "; " +
                             OtherWays(Kind::kFile));
  }
}

void KernelServer::MakeNode() {
  const int control = open("/dev/cuse", O_RDWR | O_CLOEXEC);
  if (control < 0) throw std::runtime_error(MissingSupport(kind_));
  const std::string variable = "DEVNAME=" + path_.substr(sizeof("/dev/") - 1);
  const char* variables[] = {variable.c_str()};
  struct cuse_info info {};
  info.dev_info_argc = 1;
  info.dev_info_argv = variables;
  char name[] = "zulisim";
  char* texts[] = {name, nullptr};
  struct fuse_args arguments = FUSE_ARGS_INIT(1, texts);
  const cuse_lowlevel_ops operations = KernelOperations::ForCharacterDevice();
  session_ = cuse_lowlevel_new(&arguments, &info, &operations, operations_.get());
  fuse_opt_free_args(&arguments);
  // The session owns the descriptor when it has taken it by this name.
  const std::string taken = "/dev/fd/" + std::to_string(control);
  if (session_ == nullptr || fuse_session_mount(session_, taken.c_str()) != 0) {
    close(control);
    throw std::runtime_error("the character device cannot be set up: " + libraryText);
  }
}

// With the turn. False when there can be no more threads.
bool KernelServer::StartWorker() {
  try {
    workers_.emplace_back([this] { Work(); });
  } catch (const std::system_error&) {
    return false;
  }
  ++idle_;
  return true;
}

void KernelServer::Work() {
  struct fuse_buf buffer {};
  while (true) {
    std::unique_lock<std::mutex> turn(turn_);
    if (!Receive(&buffer)) break;
    // Anything else is quick, and is done in the order in which the kernel has it.
    const bool alone = MayTakeLong(buffer) && (idle_ > 1 || StartWorker());
    if (alone) {
      --idle_;
      turn.unlock();
    }
    fuse_session_process_buf(session_, &buffer);
    if (alone) ++idle_;
  }
  std::free(buffer.mem);
  serving_ = false;
  // Whoever still waits for the first agreement learns that it will not come.
  operations_->SetReady(false);
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

void KernelServer::WaitForCloses() {
  struct stat ignored {};
  stat(path_.c_str(), &ignored);
}

void KernelServer::Stop() {
  // The event ends every poll for good. A worker that waits in the device returns because its
  // connection is closed.
  eventfd_write(stop_, 1);
  operations_->End();
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
  operations_->End();  // of what was opened meanwhile
  close(stop_);
}

}  // namespace zulisim
