#pragma once

#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "simulator/device/client.h"
#include "simulator/device/decoded_device.h"

namespace zulisim {

// Passes every operation on to a device of the kernel, the file at `path`. The constructor opens
// the folder of `path`: the process may later enter a file tree in which `path` is the device that
// zulisim itself serves. Operations do not block each other. A read that the kernel never answers
// returns when its connection is closed, but its thread runs until the process ends. Thread-safe.
class PassthroughDevice : public DecodedDevice {
 public:
  // `clients` contains the names that belong to the GUIDs.
  PassthroughDevice(const std::string& path, std::vector<Client> clients);
  ~PassthroughDevice() override;

 private:
  class File;

  // Returns null for a connection that is not open.
  std::shared_ptr<File> FileOf(std::uint64_t connection) const;
  bool Execute(OperationRecord* record, void* target) override;
  void OnClosed(std::uint64_t connection) override;
  Result OpenFile(OperationRecord* record);

  const std::filesystem::path path_;  // absolute
  const int folder_;                  // of the file
  mutable std::mutex mutex_;          // guards the members below; not held during an operation
  std::map<std::uint64_t, std::shared_ptr<File>> files_;
  std::uint64_t next_ = 1;
};

}  // namespace zulisim
