#pragma once

#include <cstdio>
#include <functional>
#include <string>

namespace zulisim {

// Takes a text piece by piece.
using TextSink = std::function<void(const std::string& text)>;

// A file that a run writes as it goes: each piece reaches the file at once, so that a crash loses
// nothing, and the program does not inherit the descriptor. Not thread-safe.
class OutputFile {
 public:
  // kShared: what is there is written over. The others make a file that its owner alone can read,
  // and leave what is there, or nothing, as it was until the first Write; kPrivateNew refuses a
  // file that is there already.
  enum class Access { kShared, kPrivate, kPrivateNew };

  // `what` names the file's kind in the text of the std::runtime_error for one that cannot be
  // written. "-" and the names in "/dev" of what is open already are written on from where they
  // are.
  OutputFile(const std::string& what, const std::string& path, Access access = Access::kShared);
  ~OutputFile() { Close(); }
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  // Not after Close.
  void Write(const std::string& text);
  // Whether there was a Write.
  bool Written() const { return written_; }
  // False, with a complaint on standard error the first time, when anything written was lost.
  bool Close();

 private:
  void Note(bool done);
  void Empty();

  const std::string name_;
  const std::string path_;
  const bool isPrivate_;
  bool isNew_ = false;
  bool written_ = false;
  std::FILE* file_ = nullptr;
  int error_ = 0;  // the first
};

}  // namespace zulisim
