#pragma once

#include <string>
#include <vector>

#include "simulator/device/device.h"
#include "simulator/program/child_process.h"

namespace zulisim {

// A new empty folder, removed with its contents at the end of the scope. SIGKILL leaves it behind.
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
  int parent_ = -1;  // a descriptor: the private file tree may hide the path
};

// A program that uses a device, and its folder for the log and the registry file. Construct it
// before the first thread starts.
class ServedProgram {
 public:
  virtual ~ServedProgram() = default;
  // Runs the program to its end and returns what RunChild returns. Prints a warning when nothing
  // reached the device, and when processes of the program are still running.
  int Run(Device& device);
  // The file that the program knows as "/data/Marvoleth.log".
  std::string LogFile() const { return root_ + "/data/Marvoleth.log"; }

 protected:
  virtual int Serve(Device& device) = 0;
  // What is known when no operation has reached the device, for the warning.
  virtual std::string WhyUnused() const;

  // `path` is the file of the program, `arguments` begin with its name. Without `root` the program
  // gets a temporary folder. Throws std::exception when the folder cannot be used.
  ServedProgram(std::string path, std::vector<std::string> arguments, const std::string& root);

  const std::string& path() const { return path_; }
  const std::vector<std::string>& arguments() const { return arguments_; }
  // An empty folder, and the folder with "data" and "etc" of the program.
  const std::string& folder() const { return folder_.path(); }
  const std::string& root() const { return root_; }

 private:
  const std::string path_;
  const std::vector<std::string> arguments_;
  const ChildSignals signals_;
  const TemporaryFolder folder_;
  const std::string root_;
};

}  // namespace zulisim
