#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace kaloctl {

// Hands the content of a file, or of standard input for "-", out in pieces. Throws InputError.
void ReadBlocks(const std::string& path, const std::function<void(std::string_view)>& consumer);

// The whole content of it.
std::string ReadInput(const std::string& path);

// How messages name an input.
std::string InputName(const std::string& path);

}  // namespace kaloctl
