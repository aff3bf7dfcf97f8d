#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "simulator/engine/fault.h"

namespace zulisim {

// How values are written in instructions, on the command line and in files. Each function throws
// InputError.

// A status: signed to the library, and written with its highest bit in most documents, so that -1
// and 0xffffffff are the same.
std::uint32_t ParseStatus(const std::string& text);
// A number with "us", "ms" or "s" after it, as in "1.5ms"; at most a minute.
std::chrono::microseconds ParseDuration(const std::string& text);

// A command's 32-bit number.
std::uint32_t ParseCommand(const std::string& text);
// The number of a connection, from 1 on.
std::uint64_t ParseConnection(const std::string& text);
// Above 0 and at most 1.
double ParseProbability(const std::string& text);
// What random choices follow from: a number of 63 bits.
std::uint64_t ParseSeed(const std::string& text);

// "3", "3-5", or "3-" for all from there on.
Occurrences ParseOccurrences(const std::string& text);

}  // namespace zulisim
