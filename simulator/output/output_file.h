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

// Throws common::InputError when an output is the same regular file as an input or another output,
// by whatever name. Call it before any output is opened.
void CheckOutputs(const std::vector<NamedFile>& outputs, std::vector<NamedFile> inputs);

// A file that a run writes as it goes. Each piece reaches the file at once, so that a crash loses
// nothing, and the program does not inherit the descriptor. Only the owner can read the file,
// because it may hold messages. Not thread-safe.
class OutputFile {
 public:
  enum class Existing { kReplace, kRefuse };

  // `what` names the file's kind in the text of the std::runtime_error for one that cannot be
  // written, such as a FIFO without a reader, for which this does not wait. An existing file keeps
  // its content, and a new one exists, only from the first Write on. "-", "/dev/stdout" and their
  // like stand for descriptors that are open already and are not emptied.
  OutputFile(const std::string& what, const std::string& path,
             Existing existing = Existing::kReplace);
  ~OutputFile() { Close(); }
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  // Not after Close.
  void Write(const std::string& text);
  // Whether there was a Write.
  bool Written() const { return written_; }
  // False when anything written was lost; the first call then says so on standard error.
  bool Close();

 private:
  void Note(bool done);
  void Empty();

  const std::string name_;
  const std::string path_;
  bool isNew_ = false;
  bool written_ = false;
  std::FILE* file_ = nullptr;
  int error_ = 0;  // the first
};

}  // namespace zulisim
