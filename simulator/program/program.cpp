#include "simulator/program/program.h"

#include <elf.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <vector>

#include "common/text.h"

namespace zulisim {
namespace {

constexpr int kMostInterpreters = 4;

bool IsRunnable(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
         access(path.c_str(), X_OK) == 0;
}

std::string FileName(const std::string& path) { return path.substr(path.rfind('/') + 1); }

template <typename T>
bool ReadAt(std::ifstream* file, std::uint64_t offset, T* value) {
  file->clear();
  file->seekg(static_cast<std::streamoff>(offset));
  return static_cast<bool>(file->read(reinterpret_cast<char*>(value), sizeof(T)));
}

// The dynamic linker that the program asks for; empty for a statically linked one.
std::string DynamicLinker(std::ifstream* file, const Elf64_Ehdr& header) {
  for (unsigned i = 0; i < header.e_phnum; ++i) {
    Elf64_Phdr segment;
    if (!ReadAt(file, header.e_phoff + std::uint64_t{i} * header.e_phentsize, &segment)) break;
    if (segment.p_type != PT_INTERP || segment.p_filesz > 4096) continue;
    std::string linker(segment.p_filesz, '\0');
    file->clear();
    file->seekg(static_cast<std::streamoff>(segment.p_offset));
    file->read(linker.data(), static_cast<std::streamsize>(linker.size()));
    return linker.c_str();
  }
  return "";
}

void CheckPrivileges(const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) return;
  const bool gainsUser = (status.st_mode & S_ISUID) != 0 && status.st_uid != geteuid();
  const bool gainsGroup = (status.st_mode & S_ISGID) != 0 && status.st_gid != getegid();
  if (gainsUser || gainsGroup) {
    throw ProgramError(kCannotRun, "'" + path +
                                       "' is set-user-ID or set-group-ID: the dynamic linker "
                                       "preloads nothing into it. Run a copy without that bit, or "
                                       "run zulisim as the file's owner");
  }
  if (geteuid() != 0 && getxattr(path.c_str(), "security.capability", nullptr, 0) > 0) {
    throw ProgramError(kCannotRun, "'" + path +
                                       "' has file capabilities: the dynamic linker preloads "
                                       "nothing into it. Run a copy without them");
  }
}

// The interpreter that the first line of a script names; empty when the file is not a script.
std::string Interpreter(std::ifstream* file) {
  file->clear();
  file->seekg(0);
  std::string line;
  std::getline(*file, line);
  if (line.compare(0, 2, "#!") != 0) return "";
  std::istringstream words(line.substr(2));
  std::string interpreter;
  words >> interpreter;
  return interpreter;
}

std::string OwnDynamicLinker() {
  std::ifstream self("/proc/self/exe", std::ios::binary);
  Elf64_Ehdr header;
  return ReadAt(&self, 0, &header) ? DynamicLinker(&self, header) : "";
}

void CheckElf(const std::string& path, std::ifstream* file, const Elf64_Ehdr& header) {
  if (header.e_ident[EI_CLASS] != ELFCLASS64) {
    throw ProgramError(kCannotRun, "'" + path + "' is a 32-bit program; a 64-bit one is expected");
  }
  const std::string linker = DynamicLinker(file, header);
  if (linker.empty()) {
    throw ProgramError(kCannotRun, "'" + path +
                                       "' is statically linked: a preloaded library cannot serve "
                                       "it" +
                                       kUseFuse);
  }
  const std::string own = OwnDynamicLinker();
  if (!own.empty() && FileName(linker) != FileName(own)) {
    throw ProgramError(kCannotRun, "'" + path + "' runs under the dynamic linker " +
                                       common::Printable(linker) +
                                       ", but the preload library needs " + own);
  }
  CheckPrivileges(path);
}

}  // namespace

std::string FindProgram(const std::string& name) {
  if (name.find('/') != std::string::npos) {
    if (access(name.c_str(), F_OK) != 0) {
      throw ProgramError(kNotFound, "the program '" + name + "' does not exist");
    }
    if (!IsRunnable(name)) {
      throw ProgramError(kCannotRun, "'" + name + "' is not a file that may be executed");
    }
    return name;
  }
  const char* path = getenv("PATH");
  std::istringstream folders(path != nullptr ? path : "/usr/bin:/bin");
  for (std::string folder; std::getline(folders, folder, ':');) {
    const std::string candidate = (folder.empty() ? "." : folder) + "/" + name;
    if (IsRunnable(candidate)) return candidate;
  }
  throw ProgramError(kNotFound, "the program '" + name +
                                    "' is not in any folder of PATH; write ./" + name +
                                    " for one in the current folder");
}

void CheckPreloadable(const std::string& path) {
  std::string current = path;
  for (int depth = 0; depth < kMostInterpreters; ++depth) {
    std::ifstream file(current, std::ios::binary);
    // What may be executed but not read cannot be judged; the run will show.
    if (!file) return CheckPrivileges(current);
    Elf64_Ehdr header{};
    if (ReadAt(&file, 0, &header) && std::memcmp(header.e_ident, ELFMAG, SELFMAG) == 0) {
      return CheckElf(current, &file, header);
    }
    const std::string interpreter = Interpreter(&file);
    if (interpreter.empty()) {
      throw ProgramError(kCannotRun, "'" + current +
                                         "' is neither a program nor a script whose first line "
                                         "names its interpreter");
    }
    if (!IsRunnable(interpreter)) {
      throw ProgramError(kNotFound, "the interpreter " + common::Quoted(interpreter) + " that '" +
                                        current + "' names cannot be executed");
    }
    current = interpreter;
  }
}

}  // namespace zulisim
