#pragma once

#include <sys/types.h>

#include <string>

namespace zulisim {

// Removes what this process leaves behind, however it ends: a small process of its own waits for
// the end and does the work, so that not even SIGKILL leaves anything. What was named last goes
// first. Make it before the first thread.
class Cleaner {
 public:
  // Throws std::system_error.
  Cleaner();
  // Has all removed, and waits for it.
  ~Cleaner();
  Cleaner(const Cleaner&) = delete;
  Cleaner& operator=(const Cleaner&) = delete;

  // Each takes an absolute path. What is not there at the end is not an error.
  void RemoveFolder(const std::string& path) { Send('r', path); }  // with all that is in it
  void RemoveFile(const std::string& path) { Send('f', path); }
  void Unmount(const std::string& path) { Send('u', path); }

 private:
  void Send(char action, const std::string& path);

  int pipe_ = -1;
  pid_t process_ = -1;
};

}  // namespace zulisim
