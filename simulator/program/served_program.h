#pragma once

#include <string>
#include <vector>

#include "simulator/device/device.h"
#include "simulator/program/child_process.h"
#include "simulator/program/cleaner.h"

namespace zulisim {

// A folder of this process alone, removed with all that is in it at the end of the scope, and when
// the process ends before that. Make it before the first thread.
class TemporaryFolder {
 public:
  // Throws std::system_error.
  TemporaryFolder();
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;
  const std::string& path() const { return path_; }

 private:
  std::string path_;
  Cleaner cleaner_;
};

// A program that is to be served a device, in a folder of its own. Make it before the first thread.
class ServedProgram {
 public:
  virtual ~ServedProgram() = default;
  // Runs the program to its end and returns what RunChild returns. Warns of a run in which nothing
  // reached the device.
  int Run(Device& device);
  // What stands for "/data/Marvoleth.log".
  std::string LogFile() const { return root_ + "/data/Marvoleth.log"; }

 protected:
  virtual int Serve(Device& device) = 0;
  // Why nothing may have reached the device, for the warning.
  virtual std::string UnusedBecause() const = 0;

  // `path` is the file of the program, `arguments` begin with its name; an empty `root` stands for
  // a temporary folder. Throws std::exception for what stands in the way of a start.
  ServedProgram(std::string path, std::vector<std::string> arguments, const std::string& root);

  const std::string& path() const { return path_; }
  const std::vector<std::string>& arguments() const { return arguments_; }
  // An empty folder, and the one with "data" and "etc" of the program.
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
