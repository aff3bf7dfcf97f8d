// Runs a driver with each installed scenario and checks that the comments of the scenario are true.

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <sstream>
#include <string>

#include "api/kalo_client.h"
#include "common/input.h"
#include "simulator/in_process/in_process_device.h"
#include "simulator/scenario/scenario_file.h"

namespace {

// The driver uses kalo::Client, which opens a new handle after a failure. One more command then
// shows whether that helped.
const std::map<std::string, std::string> kResults = {
    {"busy_twice",
     "refused -2147483647 private 16; done; done; refused -2147483647 private 16; 1 opens"},
    {"client_refuses", "not sent; not sent; not sent; done; 4 opens"},
    {"device_gone", "done; unknown; not sent; not sent; 4 opens"},
    {"device_lost_once", "done; done; done; done; 2 opens"},
    {"echo", "done; done; done; done; 1 opens"},
    {"five_reconnects", "unknown; done; done; done; 7 opens"},
    {"flaky_device", "done; done; done; done; 1 opens"},
    {"negative_status",
     "refused -2147483647 private 16; done 1; done; refused -2147483647 private 16; 1 opens"},
    {"no_device", "not sent; not sent; not sent; not sent; 4 opens"},
    {"reply_lost", "unknown; done; done; done; 3 opens"},
    {"short_reply", "unknown; done; done; done; 1 opens"},
    {"short_write", "done; done; done; done; 1 opens, 64 bytes short"},
    {"silent_client", "done; done; unknown; done; 2 opens"},
    {"small_client", "unknown; unknown; unknown; unknown; 4 opens"},
    {"transfer_fails", "unknown; done; unknown; done; 3 opens"},
};

std::string RunDriver(zulisim::Engine* engine) {
  const zulisim::InProcessDevice device(*engine, {{"/data/Marvoleth.log", "/dev/null"}});
  static constexpr const char* kOutcomes[] = {"done", "refused", "not sent", "unknown"};
  kalo::Client client;
  std::ostringstream results;
  for (const unsigned char command : {0x11, 0x12, 0x20, 0x11}) {
    const unsigned char request[80] = {0, 0, 0, 0, command};
    unsigned char reply[80];
    const kalo::Result result = client.Send(request, 80, reply, 80);
    results << kOutcomes[static_cast<int>(result.outcome)];
    if (result.firmwareStatus != 0) results << ' ' << result.firmwareStatus;
    if (result.privateDataLength != 0) results << " private " << result.privateDataLength;
    results << "; ";
  }
  results << engine->Count(zulisim::Operation::kOpen) << " opens";
  for (const zulisim::Bytes& request : engine->Requests("KALO")) {
    if (request.size() < 80) results << ", " << 80 - request.size() << " bytes short";
  }
  return results.str();
}

TEST(ScenariosTest, do_what_their_comments_say) {
  std::map<std::string, std::string> results;
  for (const auto& entry : std::filesystem::directory_iterator(SCENARIOS)) {
    zulisim::Scenario scenario;
    const std::string path = entry.path().string();
    zulisim::AddScenario(common::ReadInput(path), path, &scenario);
    zulisim::Engine engine({scenario.clients, true});
    zulisim::Apply(scenario, &engine);
    results[entry.path().stem().string()] = RunDriver(&engine);
  }
  EXPECT_EQ(results, kResults);
}

}  // namespace
