#pragma once

#include <cstdio>
#include <functional>
#include <string>
#include <vector>

namespace zulisim {

// Receives a text piece by piece.
using TextSink = std::function<void(const std::string& text)>;

// A file that the command line names.
struct NamedFile {
  std::string name;  // the option, "--report", or "the program"
  std::string path;  // empty for an option that was not given
};

// Throws common::InputError when an output is the same regular file as an input or another output;
// links are followed. Call it before opening any output.
void CheckOutputs(const std::vector<NamedFile>& outputs, std::vector<NamedFile> inputs);

// Writes a file during a run. Each piece reaches the file at once, so that a crash loses nothing.
// The program does not inherit the descriptor. Only the owner can read the file, because it may
// hold messages. Not thread-safe.
class OutputFile {
 public:
  enum class Existing { kReplace, kRefuse };

  // Throws std::runtime_error if the file cannot be written. The text names its kind `what`, such
  // as "report". Does not wait for a process that reads a FIFO. An existing file keeps its content
  // until the first Write. A new file without a Write is removed. Paths such as "-", "/dev/stdout"
  // and "/dev/fd/3" name open descriptors: these are not truncated.
  OutputFile(const std::string& what, const std::string& path,
             Existing existing = Existing::kReplace);
  ~OutputFile() { Close(); }
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  // Do not call it after Close.
  void Write(const std::string& text);
  // Returns true after the first Write.
  bool Written() const { return written_; }
  // Returns false when a write failed. The first call then prints a message.
  bool Close();

 private:
  void KeepError(bool done);
  void Empty();

  const std::string name_;
  const std::string path_;
  bool isNew_ = false;
  bool written_ = false;
  std::FILE* file_ = nullptr;
  int error_ = 0;  // the first
};

}  // namespace zulisim
