#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "simulator/device/client.h"
#include "simulator/device/decoded_device.h"

namespace zulisim {

// Passes every operation on to a device of the kernel, the file at `path`. The file is found in the
// file tree that this process sees when the object is made; later the process may enter a tree in
// which the path is the program's. Operations do not block each other. A read that the kernel never
// answers returns when its connection is closed; the thread that made it runs until the process
// ends. Thread-safe.
class PassthroughDevice : public DecodedDevice {
 public:
  // `clients` give the names of GUIDs.
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

  // Returns null for a connection that is not open.
  std::shared_ptr<File> FileOf(std::uint64_t connection) const;
  int OpenFile(int flags, unsigned mode) const;
  Result Finish(OperationRecord* record, Result result);

  const std::string path_;
  const int folder_;          // of the file, opened by the constructor
  mutable std::mutex mutex_;  // guards what follows; not held during an operation
  std::map<std::uint64_t, std::shared_ptr<File>> files_;
  std::uint64_t next_ = 1;
};

}  // namespace zulisim
