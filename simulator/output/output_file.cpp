#include "simulator/output/output_file.h"

#include <cerrno>
#include <cstring>
#include <iostream>
#include <stdexcept>
#include <utility>

namespace zulisim {

OutputFile::OutputFile(const std::string& what, const std::string& path)
    : name_("the " + what + " '" + path + "'"), file_(std::fopen(path.c_str(), "we")) {
  if (file_ == nullptr) {
    throw std::runtime_error(name_ + " cannot be written: " + std::strerror(errno));
  }
}

bool OutputFile::Close() {
  if (file_ == nullptr) return error_ == 0;
  Note(std::fclose(std::exchange(file_, nullptr)) == 0);
  if (error_ == 0) return true;
  std::cerr << "zulisim: warning: " << name_ << " is not complete: " << std::strerror(error_)
            << "\n";
  return false;
}

void OutputFile::Write(const std::string& text) {
  Note(std::fwrite(text.data(), 1, text.size(), file_) == text.size());
  Note(std::fflush(file_) == 0);
}

void OutputFile::Note(bool done) {
  if (!done && error_ == 0) error_ = errno;
}

}  // namespace zulisim
