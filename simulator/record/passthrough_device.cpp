#include "simulator/record/passthrough_device.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <utility>

#include "simulator/preload/protocol.h"
#include "simulator/device/raw_call.h"

namespace zulisim {
namespace {

int OpenFolder(const std::filesystem::path& path) {
  const std::string folder = path.has_parent_path() ? path.parent_path().string() : ".";
  return open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
}

bool SameFile(int one, int other) {
  struct stat a {
  }, b{};
  return fstat(one, &a) == 0 && fstat(other, &b) == 0 && a.st_dev == b.st_dev &&
         a.st_ino == b.st_ino;
}

Result Answer(std::int64_t value) { return {value, value == -1 ? errno : 0}; }

}  // namespace

// A descriptor that stays open while an operation on it is under way, so that its number cannot be
// another file's meanwhile.
class PassthroughDevice::File {
 public:
  explicit File(int descriptor) : descriptor_(descriptor) {}
  ~File() {
    if (descriptor_ >= 0) close(descriptor_);
  }
  File(const File&) = delete;
  File& operator=(const File&) = delete;

  int descriptor() const { return descriptor_; }
  Result Close() { return Answer(close(std::exchange(descriptor_, -1))); }

 private:
  int descriptor_;
};

PassthroughDevice::PassthroughDevice(std::string path, std::vector<Client> clients)
    : path_(std::move(path)), folder_(OpenFolder(path_)), narrator_(std::move(clients)) {}

PassthroughDevice::~PassthroughDevice() {
  if (folder_ >= 0) close(folder_);
}

std::shared_ptr<PassthroughDevice::File> PassthroughDevice::FileOf(std::uint64_t connection) const {
  std::lock_guard<std::mutex> lock(mutex_);
  const auto found = files_.find(connection);
  return found == files_.end() ? nullptr : found->second;
}

Result PassthroughDevice::Tell(RawOperation* raw, Result result) {
  raw->result = result;
  raw->took = Now() - raw->start;
  narrator_.Tell(*raw);
  return result;
}

int PassthroughDevice::OpenFile(int flags, unsigned mode) const {
  const int folder = OpenFolder(path_);
  const bool sameTree = folder < 0 || SameFile(folder, folder_);
  if (folder >= 0) close(folder);
  if (sameTree) return open(path_.c_str(), flags, mode);
  return openat(folder_, std::filesystem::path(path_).filename().c_str(), flags, mode);
}

Result PassthroughDevice::Open(int flags, unsigned mode, int descriptor) {
  RawOperation raw = OpenCall(flags, mode);
  // The program gets a descriptor of its own; this one is not for its children.
  const int opened = OpenFile(flags | O_CLOEXEC, mode);
  if (opened < 0) return Tell(&raw, Answer(-1));
  {
    std::lock_guard<std::mutex> lock(mutex_);
    raw.connection = next_++;
    files_[raw.connection] = std::make_shared<File>(opened);
  }
  raw.took = Now() - raw.start;
  narrator_.Tell(raw, descriptor);
  return {static_cast<std::int64_t>(raw.connection), 0};
}

Result PassthroughDevice::Ioctl(std::uint64_t connection, std::uint32_t request, void* argument) {
  RawOperation raw = IoctlCall(connection, request, argument);
  const auto file = FileOf(connection);
  if (file == nullptr) return Tell(&raw, {-1, EBADF});
  const Result result = Answer(ioctl(file->descriptor(), request, argument));
  raw.output = Copied(argument, OutputSize(raw));
  return Tell(&raw, result);
}

Result PassthroughDevice::Read(std::uint64_t connection, void* buffer, std::size_t length) {
  RawOperation raw = ReadCall(connection, buffer, length);
  const auto file = FileOf(connection);
  if (file == nullptr) return Tell(&raw, {-1, EBADF});
  raw.result = Answer(read(file->descriptor(), buffer, length));
  raw.output = Copied(buffer, OutputSize(raw));
  return Tell(&raw, raw.result);
}

Result PassthroughDevice::Write(std::uint64_t connection, const void* buffer, std::size_t length) {
  RawOperation raw = WriteCall(connection, buffer, length);
  const auto file = FileOf(connection);
  if (file == nullptr) return Tell(&raw, {-1, EBADF});
  if (length > protocol::kMaxPayload) {
    raw.note = "longer than the simulator can carry";
    return Tell(&raw, {-1, EMSGSIZE});
  }
  return Tell(&raw, Answer(write(file->descriptor(), buffer, length)));
}

Result PassthroughDevice::Close(std::uint64_t connection) { return Close(connection, false); }

void PassthroughDevice::Release(std::uint64_t connection) {
  if (FileOf(connection) != nullptr) Close(connection, true);
}

Result PassthroughDevice::Close(std::uint64_t connection, bool gone) {
  RawOperation raw = gone ? GoneCall(connection) : CloseCall(connection);
  std::shared_ptr<File> file;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    const auto found = files_.find(connection);
    if (found != files_.end()) {
      file = std::move(found->second);
      files_.erase(found);
    }
  }
  if (file == nullptr) return Tell(&raw, {-1, EBADF});
  if (gone) raw.note = "the program ended without a close";
  // Where an operation is under way, its end closes the file.
  return Tell(&raw, file.use_count() == 1 ? file->Close() : Result{});
}

}  // namespace zulisim
