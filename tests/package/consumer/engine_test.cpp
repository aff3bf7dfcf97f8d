// A driver's test that runs the engine in its own process. A client with static storage duration
// closes its handle: in a program when it exits, in a driver when it is unloaded. The driver is an
// argument: engine_test [STATIC_CLIENT_DRIVER]
#undef NDEBUG
#include <dlfcn.h>

#include <cassert>

#include "api/kalo_client.h"
#include "simulator/in_process/in_process_device.h"
#include "simulator/output/transcript.h"

namespace {

zulisim::Engine engine;
const zulisim::InProcessDevice device(engine, {{"/data/Marvoleth.log", "/dev/null"}});

struct AtEnd {
  ~AtEnd() { assert(engine.OpenDescriptors() == 0); }
} atEnd;  // destroyed after the client

kalo::Client client;

kalo::Outcome Send() {
  unsigned char request[64] = {0, 0, 0, 0, 0x10}, reply[64];
  return client.Send(request, 64, reply, 64).outcome;
}

}  // namespace

int main(int count, char** arguments) {
  assert(Send() == kalo::Outcome::kDone);
  engine.AddFault({zulisim::Operation::kRead, zulisim::DeviceLoss{}, {1, 5}});
  assert(Send() == kalo::Outcome::kUnknown);
  assert(Send() == kalo::Outcome::kDone);
  assert(engine.Requests("KALO").size() == 3);
  assert(zulisim::TranscriptLine(engine.Records().front()).find("open") != std::string::npos);
  if (count == 1) return 0;
  void* const driver = dlopen(arguments[1], RTLD_NOW | RTLD_LOCAL);
  assert(reinterpret_cast<int (*)()>(dlsym(driver, "Drive"))() == 0);
  assert(engine.OpenDescriptors() == 2);
  dlclose(driver);
#ifdef __clang__
  assert(engine.OpenDescriptors() == 1);
#else  // a driver built with g++ stays loaded
  assert(engine.OpenDescriptors() == 2);
#endif
}
