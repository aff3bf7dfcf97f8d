#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "simulator/engine/fault.h"

namespace zulisim {

// Parse the values of instructions, on the command line and in files. All throw InputError.

// A status. -1 and 0xffffffff are the same: the library has it signed, most documents do not.
std::uint32_t ParseStatus(const std::string& text);
// A number with "us", "ms" or "s" after it, as in "1.5ms"; at most a minute.
std::chrono::microseconds ParseDuration(const std::string& text);

// A command's 32-bit number.
std::uint32_t ParseCommand(const std::string& text);
// The number of a connection, from 1 on.
std::uint64_t ParseConnection(const std::string& text);
// Above 0 and at most 1.
double ParseProbability(const std::string& text);
// The seed of random choices, a 63-bit number.
std::uint64_t ParseSeed(const std::string& text);

// "3", "3-5", or "3-" for all from there on.
Occurrences ParseOccurrences(const std::string& text);

}  // namespace zulisim
