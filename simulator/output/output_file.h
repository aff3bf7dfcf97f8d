#pragma once

#include <cstdio>
#include <functional>
#include <string>
#include <vector>

namespace zulisim {

// Takes a text piece by piece.
using TextSink = std::function<void(const std::string& text)>;

// A file of the command line.
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

  // Throws std::runtime_error when the file cannot be written; `what` names its kind in the text:
  // "report". Does not wait for the reader of a FIFO. Until the first Write, an existing file keeps
  // its content; a new file without a Write is removed. "-", "/dev/stdout", "/dev/fd/3" and the
  // like are open descriptors, which keep their content.
  OutputFile(const std::string& what, const std::string& path,
             Existing existing = Existing::kReplace);
  ~OutputFile() { Close(); }
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  // Not after Close.
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
