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
  // `what` names the file's kind in the text of the std::runtime_error for one that cannot be
  // written.
  OutputFile(const std::string& what, const std::string& path);
  ~OutputFile() { Close(); }
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  // Not after Close.
  void Write(const std::string& text);
  // False, with a complaint on standard error the first time, when anything written was lost.
  bool Close();

 private:
  void Note(bool done);

  const std::string name_;
  std::FILE* file_;
  int error_ = 0;  // the first
};

}  // namespace zulisim
