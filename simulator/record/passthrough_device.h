#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "simulator/device/client.h"
#include "simulator/device/decoded_device.h"

namespace zulisim {

// A device of the kernel's: every operation is passed on to the file at `path`, as this process
// sees it at the beginning, before it may enter a file tree in which the path is the program's. An
// operation that the kernel lets wait blocks no other. A read that it never answers returns when
// its connection is closed; the thread that made it is left to the end of the process.
class PassthroughDevice : public DecodedDevice {
 public:
  // `clients` give names to GUIDs.
  PassthroughDevice(std::string path, std::vector<Client> clients);
  ~PassthroughDevice() override;
  Result Open(int flags, unsigned mode, int descriptor) override;
  Result Ioctl(std::uint64_t connection, std::uint32_t request, void* argument) override;
  Result Read(std::uint64_t connection, void* buffer, std::size_t length,
              bool nonBlocking) override;
  Result Write(std::uint64_t connection, const void* buffer, std::size_t length) override;
  Result Close(std::uint64_t connection, CloseReason reason) override;

 private:
  class File;

  // Null for a connection that is not open.
  std::shared_ptr<File> FileOf(std::uint64_t connection) const;
  int OpenFile(int flags, unsigned mode) const;
  Result Finish(OperationRecord* record, Result result);

  const std::string path_;
  const int folder_;          // that the file was in at the beginning
  mutable std::mutex mutex_;  // guards all that follows; never held during an operation
  std::map<std::uint64_t, std::shared_ptr<File>> files_;
  std::uint64_t next_ = 1;
};

}  // namespace zulisim
