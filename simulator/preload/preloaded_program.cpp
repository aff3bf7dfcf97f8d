#include "simulator/preload/preloaded_program.h"

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <stdexcept>

#include "common/format.h"
#include "common/text.h"
#include "simulator/preload/device_server.h"
#include "simulator/preload/protocol.h"
#include "simulator/program/program.h"

namespace zulisim {
namespace {

constexpr const char* kPreloadLibrary = "libzulisim_preload.so";

std::string FindPreloadLibrary() {
  const std::filesystem::path here = std::filesystem::read_symlink("/proc/self/exe").parent_path();
  for (const auto& folder : {here, here.parent_path() / ZULISIM_LIBRARY_FOLDER}) {
    const std::string candidate = (folder / kPreloadLibrary).string();
    if (access(candidate.c_str(), R_OK) != 0) continue;
    if (candidate.find_first_of(" :") == std::string::npos) return candidate;
    throw std::runtime_error("the dynamic linker cannot preload '" + candidate +
                             "': install it at a path without blanks and colons");
  }
  throw std::runtime_error(std::string(kPreloadLibrary) + " is neither beside zulisim in '" +
                           here.string() + "' nor in '../" + ZULISIM_LIBRARY_FOLDER + "'");
}

std::string Extended(const char* variable, const std::string& addition, bool inFront) {
  const char* present = getenv(variable);
  if (present == nullptr || *present == '\0') return addition;
  return inFront ? addition + ":" + present : present + (":" + addition);
}

// Sets variables in this process's environment, which the program inherits.
void SetEnvironment(const std::string& socket, const std::string& root) {
  setenv(protocol::kSocketVariable, socket.c_str(), 1);
  setenv(protocol::kLogVariable, (root + "/data/Marvoleth.log").c_str(), 1);
  setenv(protocol::kRegistryVariable, (root + "/etc/vrel_registry.txt").c_str(), 1);
  setenv("LD_PRELOAD", Extended("LD_PRELOAD", FindPreloadLibrary(), true).c_str(), 1);
  // Without this option, a program that was built with the address sanitizer refuses to start when
  // another library is loaded before the sanitizer's runtime.
  setenv("ASAN_OPTIONS", Extended("ASAN_OPTIONS", "verify_asan_link_order=0", false).c_str(), 1);
}

}  // namespace

PreloadedProgram::PreloadedProgram(const std::vector<std::string>& arguments,
                                   const std::string& root)
    : ServedProgram(FindPreloadable(arguments.front()), arguments, root) {
  SetEnvironment(folder() + "/engine", this->root());
}

int PreloadedProgram::Serve(Device& device) {
  DeviceServer server(device, getenv(protocol::kSocketVariable));
  const int status = RunChild(path(), arguments());
  server.CloseAbandoned();
  set_why_unused(server.Loaded()
                     ? "the preload library was loaded, but nothing opened '/dev/zuli' through it"
                     : common::Format("{} did not load the preload library{}",
                                      common::Quoted(path()), kUseFuse));
  if (server.Bypassed()) {
    std::cerr << common::Format(
        "zulisim: warning: the program uses system calls that the preload library cannot see{}\n",
        kUseFuse);
  }
  return status;
}

}  // namespace zulisim
