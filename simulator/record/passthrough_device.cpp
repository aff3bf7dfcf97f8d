#include "simulator/record/passthrough_device.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <optional>
#include <system_error>
#include <thread>
#include <utility>

namespace zulisim {
namespace {

// Sets O_NONBLOCK for the next read; the program may have changed its own flag since the open.
void SetNonBlocking(int descriptor, bool nonBlocking) {
  const int flags = fcntl(descriptor, F_GETFL);
  if (flags >= 0 && ((flags & O_NONBLOCK) != 0) != nonBlocking) {
    fcntl(descriptor, F_SETFL, flags ^ O_NONBLOCK);
  }
}

Result SystemResult(std::int64_t value) { return {value, value == -1 ? errno : 0}; }

}  // namespace

// Owns a descriptor. It stays open while an operation uses it, so that its number cannot become
// that of another file.
class PassthroughDevice::File : public std::enable_shared_from_this<File> {
 public:
  explicit File(int descriptor) : descriptor_(descriptor) {}
  ~File() {
    if (descriptor_ >= 0) close(descriptor_);
  }
  File(const File&) = delete;
  File& operator=(const File&) = delete;

  int descriptor() const { return descriptor_; }
  Result Close() { return SystemResult(close(std::exchange(descriptor_, -1))); }

  // Returns nothing if GiveUpReads was called before the kernel answered.
  std::optional<Result> Read(void* buffer, std::size_t length);
  void GiveUpReads();

 private:
  // A read that waits in the kernel. Shared with the thread that performs it.
  struct PendingRead {
    Bytes bytes;
    std::optional<Result> result;
    std::shared_ptr<File> file;  // set by GiveUpReads: keeps the descriptor open for the thread
  };
  // Shared with the threads, which can outlive the file.
  struct Reads {
    std::mutex mutex;  // guards the members below, and every PendingRead except for its bytes
    std::condition_variable changed;
    bool givenUp = false;
  };

  int descriptor_;
  const std::shared_ptr<Reads> reads_ = std::make_shared<Reads>();
};

// A driver may ignore signals during a read, so a detached thread performs the read.
std::optional<Result> PassthroughDevice::File::Read(void* buffer, std::size_t length) {
  const auto pending = std::make_shared<PendingRead>();
  pending->bytes.resize(length);
  void* const target = buffer == nullptr ? nullptr : pending->bytes.data();
  try {
    std::thread([reads = reads_, pending, target, length, descriptor = descriptor_] {
      const Result result = SystemResult(read(descriptor, target, length));
      const std::lock_guard<std::mutex> lock(reads->mutex);
      pending->result = result;
      reads->changed.notify_all();
    }).detach();
  } catch (const std::system_error&) {
    return Result{-1, EAGAIN};
  }
  std::unique_lock<std::mutex> lock(reads_->mutex);
  reads_->changed.wait(lock, [&] { return pending->result || reads_->givenUp; });
  if (!pending->result) pending->file = shared_from_this();
  if (pending->result && pending->result->value > 0) {
    std::copy_n(pending->bytes.begin(), pending->result->value, static_cast<std::uint8_t*>(buffer));
  }
  return pending->result;
}

void PassthroughDevice::File::GiveUpReads() {
  const std::lock_guard<std::mutex> lock(reads_->mutex);
  reads_->givenUp = true;
  reads_->changed.notify_all();
}

PassthroughDevice::PassthroughDevice(const std::string& path, std::vector<Client> clients)
    : DecodedDevice(std::move(clients)),
      path_(std::filesystem::absolute(path)),
      folder_(open(path_.parent_path().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)) {}

PassthroughDevice::~PassthroughDevice() {
  if (folder_ >= 0) close(folder_);
}

std::shared_ptr<PassthroughDevice::File> PassthroughDevice::FileOf(std::uint64_t connection) const {
  std::lock_guard<std::mutex> lock(mutex_);
  const auto found = files_.find(connection);
  return found == files_.end() ? nullptr : found->second;
}

bool PassthroughDevice::Execute(OperationRecord* record, void* target) {
  const auto file = FileOf(record->connection);
  Result result{-1, EBADF};
  if (record->operation == Operation::kOpen) {
    result = OpenFile(record);
  } else if (file == nullptr) {
    if (record->abandoned) return false;
  } else if (record->operation == Operation::kIoctl) {
    result = SystemResult(ioctl(file->descriptor(), record->request, target));
  } else if (record->operation == Operation::kRead) {
    SetNonBlocking(file->descriptor(), record->nonBlocking);
    const std::optional<Result> read = file->Read(target, record->length);
    if (!read) record->why = "closed while a read waited";
    result = read.value_or(result);
  } else if (record->operation == Operation::kClose) {
    result = {};
    // While another operation uses the file, the end of that operation closes it.
    if (file.use_count() == 2) result = file->Close();
  } else if (record->length > kLongestMessage) {
    record->why = "longer than the simulator can carry";
    result.error = EMSGSIZE;
  } else {
    const void* const input = record->hasBuffer ? record->input.data() : nullptr;
    result = SystemResult(write(file->descriptor(), input, record->length));
  }
  record->result = result.value;
  record->error = result.error;
  record->output = Copied(target, record->OutputSize());
  return true;
}

Result PassthroughDevice::OpenFile(OperationRecord* record) {
  // The program gets another descriptor; its child processes must not inherit this one.
  const int flags = record->openFlags | O_CLOEXEC;
  // Prefer the path, so that the device may also be one that a preload library serves.
  std::error_code error;
  const bool sameTree = std::filesystem::equivalent(
      path_.parent_path(), "/proc/self/fd/" + std::to_string(folder_), error);
  const int opened = sameTree ? open(path_.c_str(), flags, record->openMode)
                              : openat(folder_, path_.filename().c_str(), flags, record->openMode);
  if (opened < 0) return SystemResult(-1);
  std::lock_guard<std::mutex> lock(mutex_);
  record->connection = next_++;
  files_[record->connection] = std::make_shared<File>(opened);
  return {};
}

void PassthroughDevice::OnClosed(std::uint64_t connection) {
  const auto file = FileOf(connection);
  if (file == nullptr) return;
  file->GiveUpReads();
  std::lock_guard<std::mutex> lock(mutex_);
  files_.erase(connection);
}

}  // namespace zulisim
