// Checks that a client with static storage duration closes its handle: in a program when it exits,
// in a driver when it is unloaded. Usage: static_client_test DRIVER

#include <dlfcn.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "api/kalo_client.h"
#include "simulator/in_process/in_process_device.h"

namespace {

zulisim::Engine engine;
const zulisim::InProcessDevice device(engine, {{"/data/Marvoleth.log", "/dev/null"}});

void Require(uint64_t open, const char* when) {
  if (engine.OpenDescriptors() == open) return;
  std::printf("%s: %d descriptors are open\n", when, static_cast<int>(engine.OpenDescriptors()));
  std::fflush(stdout);
  _exit(1);
}

struct AtEnd {
  ~AtEnd() { Require(0, "at the end"); }
} atEnd;  // destroyed after all clients

kalo::Client client;

}  // namespace

int main(int, char** arguments) {
  unsigned char message[32] = {0, 0, 0, 0, 0x10};
  if (client.Send(message, 32, message, 32).outcome != kalo::Outcome::kDone) return 2;
  void* const driver = dlopen(arguments[1], RTLD_NOW | RTLD_LOCAL);
  int (*drive)() = nullptr;
  *reinterpret_cast<void**>(&drive) = dlsym(driver, "Drive");
  if (drive() != 0) return 3;
  Require(2, "with both clients");
  dlclose(driver);
#ifdef __clang__
  Require(1, "without the driver");
#else  // a driver built with g++ stays loaded
  Require(2, "with the driver closed");
#endif
  exit(0);
}
