// Loads, uses and unloads the library a thousand times. No memory, descriptor or thread-local key
// may be left. If possible, another compiler builds this program, with a C++ runtime that is not
// the one in the library. Both runtimes throw and catch without affecting each other.
//
//   load_cycles_test LIBRARY

#include <dlfcn.h>
#include <malloc.h>
#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "api/kalo_dll.h"
#include "api/kalo_dll_state.h"
#include "tests/support/descriptors.h"

namespace {

// An exception ends the program, so the test fails.
void Require(bool holds, const std::string& what) {
  if (!holds) throw std::runtime_error(what);
}

template <typename Type>
Type* Find(void* library, const char* name) {
  return reinterpret_cast<Type*>(dlsym(library, name));
}

// Uses the program's own runtime.
void ThrowAndCatch(int number) {
  try {
    throw std::logic_error("number " + std::to_string(number));
  } catch (const std::exception& error) {
    Require(error.what() == "number " + std::to_string(number), "an exception lost its text");
  }
}

void Cycle(const char* path) {
  void* library = dlopen(path, RTLD_NOW | RTLD_LOCAL);
  Require(library != nullptr, "the library cannot be loaded");
  const auto send = Find<decltype(StartIo3)>(library, "StartIo3");
  unsigned char request[5000] = {}, reply[64] = {};
  void* handles[2] = {};
  Require(Find<decltype(KaloInit3)>(library, "KaloInit3")(&handles[0]) == 0, "KaloInit3 failed");
  Require(Find<decltype(FenuInit3)>(library, "FenuInit3")(&handles[1]) == 0, "FenuInit3 failed");
  for (void* handle : handles) {
    Require(send(handle, request, 64, reply, 64) == 0, "StartIo3 failed");
    // The library throws and catches its own exception, then one of its C++ runtime.
    Require(send(handle, request, 8, reply, 64) == 3, "a short request was accepted");
    ThrowAndCatch(0);
    Require(send(handle, request, sizeof request, reply, 64) == 1, "a long request was accepted");
    const auto* state = Find<KaloDllState>(library, "gKaloDllState");
    Require(std::strcmp(state->apiErrorText, "Error writing message to ZULI.") == 0,
            "the error has the wrong text");
  }
  Require(Find<decltype(FenuCleanup3)>(library, "FenuCleanup3")(handles[1]) == 0, "no cleanup");
  Require(Find<decltype(KaloCleanup3)>(library, "KaloCleanup3")(handles[0]) == 0, "no cleanup");
  dlclose(library);
  Require(dlopen(path, RTLD_NOW | RTLD_NOLOAD) == nullptr, "the library stays loaded");
}

long FreeKeys() {
  std::vector<pthread_key_t> keys;
  for (pthread_key_t key; pthread_key_create(&key, nullptr) == 0;) keys.push_back(key);
  for (const pthread_key_t key : keys) pthread_key_delete(key);
  return static_cast<long>(keys.size());
}

}  // namespace

int main(int, char** arguments) {
  // The first cycles allocate what the process keeps, such as the loader's own data.
  std::atomic<bool> done{false};
  std::thread host([&done] {
    for (int i = 0; !done; ++i) ThrowAndCatch(i);
  });
  for (int i = 0; i < 50; ++i) Cycle(arguments[1]);
  done = true;
  host.join();
  const long keys = FreeKeys(), descriptors = test::OpenDescriptors();
  const size_t bytes = mallinfo2().uordblks;
  for (int i = 0; i < 1000; ++i) Cycle(arguments[1]);
  const long lost = static_cast<long>(mallinfo2().uordblks - bytes);
  Require(lost < 1000 * 16, std::to_string(lost) + " bytes were lost in 1000 cycles");
  Require(test::OpenDescriptors() == descriptors, "a descriptor was lost");
  Require(FreeKeys() == keys, "a thread-local key was lost");
  // The library must not leave a fork handler either.
  const pid_t child = fork();
  if (child == 0) _exit(0);
  int status = -1;
  Require(waitpid(child, &status, 0) == child && status == 0, "a fork fails after the last unload");
}
