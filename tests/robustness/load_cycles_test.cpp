// Loads, uses and unloads the library a thousand times. No memory, descriptor or thread-local key
// may be left. If possible, another compiler builds this program, with a C++ runtime that is not
// the one in the library. Both runtimes throw and catch without affecting each other.
//
//   load_cycles_test LIBRARY

#undef NDEBUG
#include <dlfcn.h>
#include <malloc.h>
#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cassert>
#include <cstring>
#include <stdexcept>
#include <string>
#include <thread>

#include "api/kalo_dll.h"
#include "api/kalo_dll_state.h"
#include "tests/support/descriptors.h"

namespace {

// Uses the program's own runtime.
void ThrowAndCatch() {
  const std::string text = "an exception with a text on the heap";
  try {
    throw std::logic_error(text);
  } catch (const std::exception& error) {
    assert(error.what() == text);
  }
}

template <typename Type>
Type* Find(void* library, const std::string& name) {
  return reinterpret_cast<Type*>(dlsym(library, name.c_str()));
}

void Cycle(const char* path) {
  void* const library = dlopen(path, RTLD_NOW | RTLD_LOCAL);
  assert(library != nullptr);
  const auto send = Find<decltype(StartIo3)>(library, "StartIo3");
  const auto* const state = Find<KaloDllState>(library, "gKaloDllState");
  unsigned char request[5000] = {}, reply[64] = {};
  for (const std::string firmware : {"Kalo", "Fenu"}) {
    void* handle = nullptr;
    assert(Find<decltype(KaloInit3)>(library, firmware + "Init3")(&handle) == 0);
    assert(send(handle, request, 64, reply, 64) == 0);
    // The library throws and catches its own exception, then one of its C++ runtime.
    assert(send(handle, request, 8, reply, 64) == 3);
    ThrowAndCatch();
    assert(send(handle, request, sizeof request, reply, 64) == 1);
    assert(std::strcmp(state->apiErrorText, "Error writing message to ZULI.") == 0);
    assert(Find<decltype(KaloCleanup3)>(library, firmware + "Cleanup3")(handle) == 0);
  }
  dlclose(library);
  assert(dlopen(path, RTLD_NOW | RTLD_NOLOAD) == nullptr);
}

// Returns the first thread-local key that is not in use.
pthread_key_t FreeKey() {
  pthread_key_t key = 0;
  pthread_key_create(&key, nullptr);
  pthread_key_delete(key);
  return key;
}

}  // namespace

int main(int, char** arguments) {
  // The first cycles allocate what the process keeps, such as the loader's own data.
  std::atomic<bool> done{false};
  std::thread host([&done] {
    while (!done) ThrowAndCatch();
  });
  for (int i = 0; i < 50; ++i) Cycle(arguments[1]);
  done = true;
  host.join();
  const pthread_key_t key = FreeKey();
  const long descriptors = test::OpenDescriptors();
  const size_t bytes = mallinfo2().uordblks;
  for (int i = 0; i < 1000; ++i) Cycle(arguments[1]);
  assert(mallinfo2().uordblks < bytes + 1000 * 16);
  assert(test::OpenDescriptors() == descriptors);
  assert(FreeKey() == key);
  // The library must not leave a fork handler either.
  const pid_t child = fork();
  if (child == 0) _exit(0);
  int status = -1;
  assert(waitpid(child, &status, 0) == child && status == 0);
}
