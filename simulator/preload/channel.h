#pragma once

#include <cstddef>

#include "simulator/device/device_abi.h"
#include "simulator/preload/protocol.h"

// The program's end of channels. protocol.h describes them. Any thread.
namespace zulisim::hooks {

// Sets the path of the server's socket, before any other call. False when it is null or too long.
bool SetServer(const char* path);

// Whether the descriptor is a socket that is connected to the server.
bool IsConnected(int descriptor);

// Connects to the server. Returns a socket that exec closes, or -1 with errno: ENODEV when the
// server is gone.
int Connect();

// Sends a request with the payload `in` and receives its response, whose payload goes to `out` and
// its `room` bytes. Returns the device's result, or -1 with ENODEV when the server is gone, EFAULT
// for a bad address, and EMFILE when this process or the server has no descriptor left.
Result Exchange(protocol::Message message, const void* in = nullptr, void* out = nullptr,
                std::size_t room = 0);

}  // namespace zulisim::hooks
