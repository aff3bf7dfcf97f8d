#pragma once

#include <memory>
#include <string>
#include <vector>

#include "simulator/scenario/scenario.h"
#include "simulator/program/served_program.h"

namespace zulisim {

// How a program reaches its device: the values of the option --device.
inline constexpr const char* kPreloadAttachment = "preload";
inline constexpr const char* kFuseAttachment = "fuse";

// The program behind `arguments`, to be served in that way. Make it before the first thread. Throws
// ProgramError, or std::exception for what stands in the way of a start, such as a client of
// `scenario` that the way cannot carry.
std::unique_ptr<ServedProgram> MakeServedProgram(const std::string& attachment,
                                                 const std::vector<std::string>& arguments,
                                                 const std::string& root, const Scenario& scenario);

}  // namespace zulisim
