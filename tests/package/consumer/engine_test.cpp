// A driver's test that runs the engine in its own process.
#undef NDEBUG
#include <cassert>

#include "api/kalo_client.h"
#include "simulator/in_process/in_process_device.h"
#include "simulator/output/transcript.h"

int main() {
  zulisim::Engine engine;
  const zulisim::InProcessDevice device(engine, {{"/data/Marvoleth.log", "/dev/null"}});
  kalo::Client client;
  unsigned char request[64] = {0, 0, 0, 0, 0x10}, reply[64];
  assert(client.Send(request, 64, reply, 64).outcome == kalo::Outcome::kDone);
  engine.AddFault({zulisim::Operation::kRead, zulisim::DeviceLoss{}, {1, 5}});
  assert(client.Send(request, 64, reply, 64).outcome == kalo::Outcome::kUnknown);
  assert(client.Send(request, 64, reply, 64).outcome == kalo::Outcome::kDone);
  assert(engine.Requests("KALO").size() == 3);
  assert(zulisim::TranscriptLine(engine.Records().front()).find("open") != std::string::npos);
}
