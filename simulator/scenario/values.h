#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "simulator/engine/fault.h"

namespace zulisim {

// Parsers for values in options and scenario files. Each throws InputError.

// Parses a status, signed or unsigned: -1 and 0xffffffff are the same.
std::uint32_t ParseStatus(const std::string& text);
// Parses a number with the unit "us", "ms" or "s", as in "1.5ms"; at most a minute.
std::chrono::microseconds ParseDuration(const std::string& text);

// Parses a command's 32-bit number.
std::uint32_t ParseCommand(const std::string& text);
// Parses the number of a connection, which is at least 1.
std::uint64_t ParseConnection(const std::string& text);
// Parses a number above 0 and at most 1.
double ParseProbability(const std::string& text);
// Parses the seed of random choices, a number of up to 63 bits.
std::uint64_t ParseSeed(const std::string& text);

// Parses "3", "3-5", or "3-" for the third and all later ones.
Occurrences ParseOccurrences(const std::string& text);

}  // namespace zulisim
