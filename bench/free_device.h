#pragma once

#include <string>

// A device that costs nothing. A program that links free_device.cpp defines the system's open,
// read, write, ioctl, close, poll and fopen itself, so that the calls of its shared libraries
// arrive there: "/dev/zuli" and "/dev/tpm0" are then answered from memory within a few
// instructions, and everything else goes to the kernel.
namespace bench {

constexpr unsigned int kMessageLength = 64;

// While false, "/dev/zuli" is the kernel's. Not beside other calls.
void ServeZuli(bool served);

// A folder of this run, made at the first call and removed at exit. The log file and the registry
// file of the library are opened in it.
const std::string& Scratch();

std::string ScratchPath(const std::string& name);

}  // namespace bench
