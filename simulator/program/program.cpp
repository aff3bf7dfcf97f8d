#include "simulator/program/program.h"

#include <elf.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <vector>

#include "common/format.h"
#include "common/text.h"

namespace zulisim {
namespace {

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

// Returns the dynamic linker that the program names, or "" for a statically linked program.
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

[[noreturn]] void Refuse(int status, const std::string& path, const std::string& why) {
  throw ProgramError(status, common::Format("cannot run {}: {}", common::Quoted(path), why));
}

std::string OwnDynamicLinker() {
  std::ifstream self("/proc/self/exe", std::ios::binary);
  Elf64_Ehdr header;
  return ReadAt(&self, 0, &header) ? DynamicLinker(&self, header) : "";
}

void CheckElf(const std::string& path, std::ifstream* file, const Elf64_Ehdr& header) {
  if (header.e_ident[EI_CLASS] != ELFCLASS64) {
    Refuse(kCannotRun, path, "it is a 32-bit program; use a 64-bit build");
  }
  const std::string linker = DynamicLinker(file, header);
  if (linker.empty()) {
    Refuse(kCannotRun, path,
           std::string("it is statically linked and cannot load a preload library") + kUseFuse);
  }
  const std::string own = OwnDynamicLinker();
  if (FileName(linker) != FileName(own)) {
    Refuse(kCannotRun, path,
           common::Format("it needs the dynamic linker {}, but the preload library needs {}{}",
                          common::Printable(linker), own, kUseFuse));
  }
}

}  // namespace

std::string FindProgram(const std::string& name) {
  if (name.find('/') != std::string::npos) {
    if (access(name.c_str(), F_OK) != 0) Refuse(kNotFound, name, std::strerror(errno));
    if (!IsRunnable(name)) Refuse(kCannotRun, name, "it is not an executable file");
    return name;
  }
  const char* path = getenv("PATH");
  std::istringstream folders(path != nullptr ? path : "/usr/bin:/bin");
  for (std::string folder; std::getline(folders, folder, ':');) {
    const std::string candidate = (folder.empty() ? "." : folder) + "/" + name;
    if (IsRunnable(candidate)) return candidate;
  }
  Refuse(kNotFound, name,
         common::Format("it was not found in PATH; write {} for a file in the current folder",
                        common::Quoted("./" + name)));
}

std::string FindPreloadable(const std::string& name) {
  std::string path = FindProgram(name);
  std::ifstream file(path, std::ios::binary);
  Elf64_Ehdr header{};
  if (ReadAt(&file, 0, &header) && std::memcmp(header.e_ident, ELFMAG, SELFMAG) == 0) {
    CheckElf(path, &file, header);
  }
  return path;
}

}  // namespace zulisim
