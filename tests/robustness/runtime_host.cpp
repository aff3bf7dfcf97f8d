// A driver with one C++ runtime loads the library, which contains another. Both throw and catch at
// the same time, without affecting each other.
//
//   runtime_host LIBRARY

#include <dlfcn.h>

#include <cstring>
#include <stdexcept>
#include <string>
#include <thread>

#include "api/kalo_dll.h"
#include "api/kalo_dll_state.h"

namespace {

// An exception ends the program, so the test fails.
void Require(bool condition, const std::string& what) {
  if (!condition) throw std::runtime_error(what);
}

template <typename Type>
Type* Find(void* library, const char* name) {
  return reinterpret_cast<Type*>(dlsym(library, name));
}

// Uses the host's own runtime.
void ThrowAndCatch(int number) {
  try {
    throw std::logic_error("number " + std::to_string(number));
  } catch (const std::exception& error) {
    Require(error.what() == "number " + std::to_string(number), "an exception lost its text");
  }
}

}  // namespace

int main(int, char** arguments) {
  void* library = dlopen(arguments[1], RTLD_NOW | RTLD_LOCAL);
  Require(library != nullptr, "the library cannot be loaded");
  const auto send = Find<decltype(StartIo3)>(library, "StartIo3");
  std::thread host([] {
    for (int i = 0; i < 5000; ++i) ThrowAndCatch(i);
  });
  unsigned char request[5000] = {}, reply[64] = {};
  for (int i = 0; i < 50; ++i) {
    void* handle = nullptr;
    Require(Find<decltype(KaloInit3)>(library, "KaloInit3")(&handle) == 0, "KaloInit3 failed");
    Require(send(handle, request, 64, reply, 64) == 0, "StartIo3 failed");
    // The library throws and catches its own exception, then one of its C++ runtime.
    Require(send(handle, request, 8, reply, 64) == 3, "a short request was accepted");
    ThrowAndCatch(i);
    Require(send(handle, request, sizeof request, reply, 64) == 1, "a long request was accepted");
    const auto* state = Find<KaloDllState>(library, "gKaloDllState");
    Require(std::strcmp(state->apiErrorText, "Error writing message to ZULI.") == 0,
            "the error has the wrong text");
    Require(Find<decltype(KaloCleanup3)>(library, "KaloCleanup3")(handle) == 0, "no cleanup");
  }
  host.join();
  dlclose(library);
  ThrowAndCatch(0);
}
