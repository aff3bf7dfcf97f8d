#pragma once

#include <cstddef>

#include "simulator/device/device_abi.h"
#include "simulator/preload/protocol.h"

// The program's end of channels. protocol.h describes them. Any thread.
namespace zulisim::hooks {

// Sets the path of the server's socket. Call it before the other functions. Returns false if the
// path is null or too long.
bool SetServer(const char* path);

// Returns true if the descriptor is a socket that is connected to the server.
bool IsConnected(int descriptor);

// Connects to the server. Returns a close-on-exec socket, or -1 with errno: ENODEV if the server
// has ended.
int Connect();

// Sends a request with the payload `in`, and receives its response with a payload of up to `room`
// bytes into `out`. Returns the device's result, or -1 with ENODEV if the server has ended, EFAULT
// for a bad address, and EMFILE if this process or the server has no free descriptor.
Result Exchange(protocol::Message message, const void* in = nullptr, void* out = nullptr,
                std::size_t room = 0);

}  // namespace zulisim::hooks
