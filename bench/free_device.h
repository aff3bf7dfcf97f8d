#pragma once

#include <string>

// A device that costs almost nothing. A program that links free_device.cpp defines the functions
// open, read, write, ioctl, close, poll and fopen itself, so calls of its shared libraries arrive
// there. They answer "/dev/zuli" and "/dev/tpm0" from memory within a few instructions and pass all
// other files to the kernel.
namespace bench {

constexpr unsigned int kMessageLength = 64;

// While `served` is false, "/dev/zuli" is the kernel's device. Not thread-safe.
void ServeZuli(bool served);

// The temporary folder of this run, created at the first call and removed at exit. The library
// opens its log file and registry file there.
const std::string& Scratch();

std::string ScratchPath(const std::string& name);

}  // namespace bench
