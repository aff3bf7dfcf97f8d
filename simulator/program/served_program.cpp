#include "simulator/program/served_program.h"

#include <utility>

namespace zulisim {

ServedProgram::ServedProgram(std::string path, std::vector<std::string> arguments,
                             const std::string& root)
    : path_(std::move(path)),
      arguments_(std::move(arguments)),
      root_(PrepareRoot(root.empty() ? folder_.path() + "/root" : root)) {}

}  // namespace zulisim
