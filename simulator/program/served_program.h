#pragma once

#include <string>
#include <vector>

#include "simulator/device/device.h"
#include "simulator/program/child_process.h"

namespace zulisim {

// Creates an empty folder, and removes it with its contents when the object is destroyed. SIGKILL
// leaves the folder behind.
class TemporaryFolder {
 public:
  // Throws std::system_error.
  TemporaryFolder();
  ~TemporaryFolder();
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;
  const std::string& path() const { return path_; }

 private:
  std::string path_;
  int parent_ = -1;  // open, because the private file tree may hide the path
};

// Runs a program that uses a device, and provides the folder for its log and registry file.
// Construct it before the first thread starts.
class ServedProgram {
 public:
  virtual ~ServedProgram() = default;
  // Runs the program until it ends and returns the result of RunChild. Prints a warning if no
  // operation reached the device, or if processes of the program are still running.
  int Run(Device& device);
  // The path of the file that the program sees as "/data/Marvoleth.log".
  std::string LogFile() const { return root_ + "/data/Marvoleth.log"; }

 protected:
  virtual int Serve(Device& device) = 0;

  // `path` is the program's file; the first of `arguments` is its name. Without `root`, the program
  // gets a temporary folder. Throws std::exception if the folder cannot be used.
  ServedProgram(std::string path, std::vector<std::string> arguments, const std::string& root);

  const std::string& path() const { return path_; }
  const std::vector<std::string>& arguments() const { return arguments_; }
  // folder() is an empty folder; root() contains the program's "data" and "etc".
  const std::string& folder() const { return folder_.path(); }
  const std::string& root() const { return root_; }
  // Says why no operation reached the device.
  void set_why_unused(const std::string& why) { whyUnused_ = why; }

 private:
  const std::string path_;
  const std::vector<std::string> arguments_;
  const ChildSignals signals_;
  const TemporaryFolder folder_;
  const std::string root_;
  std::string whyUnused_ = "nothing opened '/dev/zuli'";
};

}  // namespace zulisim
