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

#include "common/format.h"
#include "common/text.h"
#include "simulator/kernel/kernel_operations.h"

namespace zulisim {
namespace {

std::string libfuseMessage;  // libfuse's last message, quoted in our own messages

void KeepMessage(enum fuse_log_level, const char* format, va_list arguments) {
  char text[512];
  std::vsnprintf(text, sizeof(text), format, arguments);
  libfuseMessage = text;
  while (!libfuseMessage.empty() && libfuseMessage.back() == '\n') libfuseMessage.pop_back();
}

constexpr int kCheckMilliseconds = 100;

// Holds one request of the kernel. libfuse allocates its memory.
struct Request : fuse_buf {
  Request() : fuse_buf{} {}
  ~Request() { std::free(mem); }
  Request(const Request&) = delete;
  Request& operator=(const Request&) = delete;
  std::uint32_t opcode() const { return static_cast<const struct fuse_in_header*>(mem)->opcode; }
};

}  // namespace

bool KernelServer::Built() { return true; }

KernelServer::KernelServer(Device& device, Kind kind, const std::string& path, bool everyUser)
    : path_(path),
      operations_(std::make_unique<KernelOperations>(device, kind == Kind::kFile)),
      stop_(eventfd(0, EFD_CLOEXEC)) {
  fuse_set_log_func(KeepMessage);
  libfuseMessage.clear();
  try {
    Mount(kind, everyUser);
    const int descriptor = fuse_session_fd(session_);
    fcntl(descriptor, F_SETFD, FD_CLOEXEC);
    fcntl(descriptor, F_SETFL, fcntl(descriptor, F_GETFL) | O_NONBLOCK);
    AnswerInit();
    if (kind == Kind::kCharacterDevice && chmod(path_.c_str(), 0666) != 0) {
      throw std::runtime_error(
          common::Format("the kernel made the device, but {} is missing: /dev must be a devtmpfs",
                         common::Quoted(path_)));
    }
    const std::lock_guard<std::mutex> turn(turn_);
    if (!StartWorker()) throw std::runtime_error("cannot start a thread to serve the device");
  } catch (...) {
    Stop();
    throw;
  }
  WaitForCloses();  // so that the kernel reads the owner of the file
}

KernelServer::~KernelServer() { Stop(); }

void KernelServer::Mount(Kind kind, bool everyUser) {
  struct fuse_args arguments = FUSE_ARGS_INIT(0, nullptr);
  fuse_opt_add_arg(&arguments, "zulisim");
  std::string mountPoint = path_;
  if (kind == Kind::kFile) {
    fuse_opt_add_arg(&arguments, "-ofsname=zulisim,subtype=zulisim");
    if (everyUser) fuse_opt_add_arg(&arguments, "-oallow_other");
    const fuse_lowlevel_ops operations = KernelOperations::ForFile();
    session_ = fuse_session_new(&arguments, &operations, sizeof(operations), operations_.get());
  } else {
    const std::string variable = "DEVNAME=" + path_.substr(sizeof("/dev/") - 1);
    const char* variables[] = {variable.c_str()};
    struct cuse_info info {};
    info.dev_info_argc = 1;
    info.dev_info_argv = variables;
    const cuse_lowlevel_ops operations = KernelOperations::ForCharacterDevice();
    session_ = cuse_lowlevel_new(&arguments, &info, &operations, operations_.get());
    // The session owns this descriptor.
    mountPoint = "/dev/fd/" + std::to_string(open("/dev/cuse", O_RDWR | O_CLOEXEC));
  }
  fuse_opt_free_args(&arguments);
  if (session_ != nullptr && fuse_session_mount(session_, mountPoint.c_str()) == 0) return;
  throw std::runtime_error(common::Format("cannot serve {}: {}", common::Quoted(path_),
                                          libfuseMessage.empty() ? "refused" : libfuseMessage));
}

// Answers the kernel's first request, which offers a protocol. For a character device, the answer
// also creates the node.
void KernelServer::AnswerInit() {
  Request request;
  if (Receive(&request)) fuse_session_process_buf(session_, &request);
  if (request.mem != nullptr && !fuse_session_exited(session_)) return;
  throw std::runtime_error(
      common::Format("the kernel does not serve {}: {}", common::Quoted(path_), libfuseMessage));
}

// The caller holds `turn_`. Returns false when the system allows no more threads.
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
  Request request;
  while (true) {
    std::unique_lock<std::mutex> turn(turn_);
    if (!Receive(&request)) break;
    // The worker that holds the turn performs quick requests itself, in the kernel's order.
    const bool mayWait = request.opcode() == FUSE_READ || request.opcode() == FUSE_WRITE;
    const bool releasesTurn = mayWait && (idle_ > 1 || StartWorker());
    if (releasesTurn) {
      --idle_;
      turn.unlock();
    }
    fuse_session_process_buf(session_, &request);
    if (request.opcode() == FUSE_INTERRUPT) operations_->AnswerKilledReads();
    if (releasesTurn) ++idle_;
  }
  serving_ = false;
}

// Returns false when the service ends.
bool KernelServer::Receive(struct fuse_buf* buffer) {
  while (true) {
    struct pollfd entries[] = {{fuse_session_fd(session_), POLLIN, 0}, {stop_, POLLIN, 0}};
    // The kernel reports only the first signal that a program gets during a read, so check
    // regularly.
    const bool busy = idle_ < static_cast<int>(workers_.size());
    const int ready = poll(entries, 2, busy ? kCheckMilliseconds : -1);
    if (ready < 0 && errno != EINTR) return false;
    if (entries[1].revents != 0) return false;
    if (ready == 0) operations_->AnswerKilledReads();
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
  // After this, every poll returns at once. Reads that wait in the device return because their
  // connections are closed.
  eventfd_write(stop_, 1);
  operations_->End();
  while (true) {
    std::thread worker;
    {
      // A running worker may start another one.
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
  operations_->End();  // closes connections that were opened meanwhile
  close(stop_);
}

}  // namespace zulisim
