// A driver with one C++ runtime loads the library, which contains another. Both log, throw and
// catch, in turn and at the same time, without affecting each other.
//
//   runtime_host LIBRARY

#include <dlfcn.h>

#include <cstring>
#include <sstream>
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

template <typename Function>
Function* Find(void* library, const char* name) {
  void* address = dlsym(library, name);
  Require(address != nullptr, std::string("not found: ") + name);
  return reinterpret_cast<Function*>(address);
}

// Uses the host's own runtime.
void ThrowAndCatch(int number) {
  std::ostringstream text;
  text << "number " << number;
  try {
    throw std::logic_error(text.str());
  } catch (const std::exception& error) {
    Require(error.what() == "number " + std::to_string(number), "an exception lost its text");
  }
}

void Drive(void* library) {
  const auto init = Find<decltype(KaloInit3)>(library, "KaloInit3");
  const auto send = Find<decltype(StartIo3)>(library, "StartIo3");
  const auto clean = Find<decltype(KaloCleanup3)>(library, "KaloCleanup3");
  const auto* state = Find<KaloDllState>(library, "gKaloDllState");
  unsigned char request[5000] = {}, reply[64] = {};
  for (int i = 0; i < 50; ++i) {
    void* handle = nullptr;
    Require(init(&handle) == 0, "KaloInit3 failed");
    ThrowAndCatch(i);
    Require(send(handle, request, 64, reply, 64) == 0, "StartIo3 failed");
    // The library throws and catches its own exception; meanwhile it catches one of its C++
    // runtime.
    Require(send(handle, request, 8, reply, 64) == 3, "a short request was accepted");
    ThrowAndCatch(i);
    Require(send(handle, request, sizeof request, reply, 64) == 1, "a long request was accepted");
    Require(std::strcmp(state->apiErrorText, "Error writing message to ZULI.") == 0,
            "the error has the wrong text");
    Require(clean(handle) == 0, "KaloCleanup3 failed");
  }
}

}  // namespace

int main(int, char** arguments) {
  void* library = dlopen(arguments[1], RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) throw std::runtime_error(dlerror());
  std::thread driver(Drive, library);
  for (int i = 0; i < 5000; ++i) ThrowAndCatch(i);
  driver.join();
  dlclose(library);
  ThrowAndCatch(0);
}
