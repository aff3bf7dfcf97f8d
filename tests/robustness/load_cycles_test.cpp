// Loads, uses and unloads the library a thousand times. No memory, descriptor or thread-local key
// may be left.
//
//   load_cycles_test LIBRARY

#include <dlfcn.h>
#include <malloc.h>
#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <vector>

#include "api/kalo_dll.h"
#include "simulator/in_process/in_process_device.h"
#include "tests/support/descriptors.h"

namespace {

using zulisim::Operation;

void Require(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "FAILED: %s\n", what);
  std::exit(1);
}

template <typename Function>
Function* Find(void* library, const char* name) {
  return reinterpret_cast<Function*>(dlsym(library, name));
}

void Cycle(const char* path, zulisim::Engine& engine) {
  void* library = dlopen(path, RTLD_NOW | RTLD_LOCAL);
  Require(library != nullptr, "the library can be loaded");
  const auto send = Find<decltype(StartIo3)>(library, "StartIo3");
  unsigned char message[64] = {};
  void* handles[2] = {};
  Require(Find<decltype(KaloInit3)>(library, "KaloInit3")(&handles[0]) == 0, "KaloInit3");
  Require(Find<decltype(FenuInit3)>(library, "FenuInit3")(&handles[1]) == 0, "FenuInit3");
  for (void* handle : handles) {
    Require(send(handle, message, 64, message, 64) == 0, "a command");
    engine.AddFault({Operation::kRead, zulisim::DeviceLoss{}});
    Require(send(handle, message, 64, message, 64) == 0, "a command that meets a loss");
    Require(send(handle, message, 8, message, 64) == 3, "a short request");
    engine.AddFault({Operation::kWrite, zulisim::ErrnoFault{EIO}});
    Require(send(handle, message, 64, message, 64) == 1, "a command that fails");
    engine.ClearFaults();
  }
  Require(Find<decltype(FenuCleanup3)>(library, "FenuCleanup3")(handles[1]) == 0, "FenuCleanup3");
  Require(Find<decltype(KaloCleanup3)>(library, "KaloCleanup3")(handles[0]) == 0, "KaloCleanup3");
  dlclose(library);
  Require(dlopen(path, RTLD_NOW | RTLD_NOLOAD) == nullptr, "the library is unloaded");
}

long FreeKeys() {
  std::vector<pthread_key_t> keys;
  for (pthread_key_t key; pthread_key_create(&key, nullptr) == 0;) keys.push_back(key);
  for (const pthread_key_t key : keys) pthread_key_delete(key);
  return static_cast<long>(keys.size());
}

}  // namespace

int main(int, char** arguments) {
  zulisim::Engine engine({zulisim::DefaultClients(), false});
  const zulisim::InProcessDevice attachment(engine, {{"/data/Marvoleth.log", "/dev/null"}});
  // The first cycles allocate what the process keeps, such as the loader's own data.
  for (int i = 0; i < 20; ++i) Cycle(arguments[1], engine);
  const long keys = FreeKeys(), descriptors = test::OpenDescriptors();
  const size_t bytes = mallinfo2().uordblks;
  for (int i = 0; i < 1000; ++i) Cycle(arguments[1], engine);
  const long lost = static_cast<long>(mallinfo2().uordblks - bytes);
  std::printf("%ld bytes more after 1000 cycles\n", lost);
  Require(lost < 1000 * 16, "no memory is left");
  Require(test::OpenDescriptors() == descriptors, "no descriptor is left");
  Require(FreeKeys() == keys, "no thread-local key is left");
  // The library must not leave a fork handler either.
  const pid_t child = fork();
  if (child == 0) _exit(0);
  int status = -1;
  Require(waitpid(child, &status, 0) == child && status == 0, "a fork works after the last unload");
}
