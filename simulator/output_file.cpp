#include "simulator/output_file.h"

#include <cerrno>
#include <cstring>
#include <iostream>
#include <stdexcept>

namespace zulisim {

OutputFile::OutputFile(const std::string& what, const std::string& path)
    : name_("the " + what + " '" + path + "'"), file_(std::fopen(path.c_str(), "we")) {
  if (file_ == nullptr) {
    throw std::runtime_error(name_ + " cannot be written: " + std::strerror(errno));
  }
}

OutputFile::~OutputFile() {
  if (std::fclose(file_) != 0) failed_ = true;
  if (failed_) std::cerr << "zulisim: warning: " << name_ << " is not complete\n";
}

void OutputFile::Write(const std::string& text) {
  const bool written = std::fwrite(text.data(), 1, text.size(), file_) == text.size();
  if (!written || std::fflush(file_) != 0) failed_ = true;
}

}  // namespace zulisim
