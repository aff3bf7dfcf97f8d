#pragma once

#include <string>

namespace kaloctl {

// The whole content of a file, or of standard input for "-". Throws InputError.
std::string ReadInput(const std::string& path);

// How messages name an input.
std::string InputName(const std::string& path);

}  // namespace kaloctl
