// Each scenario that ships, met by a driver: what its comments say is what happens.

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <sstream>
#include <string>

#include "api/kalo_dll.h"
#include "simulator/in_process/in_process_device.h"
#include "simulator/scenario/scenario_file.h"

namespace {

const std::map<std::string, std::string> kMet = {
    {"client_refuses", "init 1 1 1 0, 0, 0, 0; 4 opens"},
    {"device_gone", "init 0, 0, 1 unchanged, 0 unchanged; 2 opens"},
    {"device_lost_once", "init 0, 0, 0, 0; 2 opens"},
    {"echo", "init 0, 0, 0, 0; 1 opens"},
    {"five_reconnects", "init 0, 1 unchanged, 0, 0; 6 opens"},
    {"flaky_device", "init 0, 0, 0, 0; 1 opens"},
    {"negative_status", "init 0, 0 firmware 1 private 16, 0 firmware 1, 0; 1 opens"},
    {"no_device", "init 1 1 1 1; 4 opens"},
    {"reply_lost", "init 0, 1 unchanged, 0, 0; 2 opens"},
    {"short_reply", "init 0, 0 unchanged, 0, 0; 1 opens"},
    {"short_write", "init 0, 0, 0, 0; 1 opens, 64 bytes short"},
    {"silent_client", "init 0, 0, 0, 1 unchanged; 1 opens"},
    {"small_client", "init 0, 1 unchanged, 1 unchanged, 1 unchanged; 1 opens"},
    {"transfer_fails", "init 0, 1 unchanged, 0, 1 unchanged; 1 opens"},
};

// One command, and what came of it: its status, then the firmware's where it is not 0, or
// "unchanged" where the old one shows, and the size of the private data.
std::string Send(void* handle, unsigned char command) {
  constexpr unsigned char kOld = 7;
  unsigned char request[80] = {0, 0, 0, 0, command};
  unsigned char reply[80] = {0, 0, 0, 0, 0, 0, 0, 0, kOld};
  unsigned char privateData[16];
  unsigned length = 0;
  std::ostringstream result;
  result << ", " << StartIoEx3(handle, request, 80, reply, 80, privateData, &length);
  if (reply[8] == kOld) result << " unchanged";
  if (reply[8] != kOld && reply[8] != 0) result << " firmware " << int{reply[8]};
  if (length != 0) result << " private " << length;
  return result.str();
}

std::string DriverMeets(zulisim::Engine* engine) {
  const zulisim::InProcessDevice attachment(*engine, {{"/data/Marvoleth.log", "/dev/null"}});
  KALO_STATE_INIT_PARAMS params = {0x30002, 0};
  KaloStateInit(&params);
  void* handle = nullptr;
  std::ostringstream met;
  met << "init";
  for (int i = 0; i < 4 && handle == nullptr; ++i) met << " " << KaloInit3(&handle);
  if (handle != nullptr) met << Send(handle, 0x11) << Send(handle, 0x12) << Send(handle, 0x20);
  if (handle != nullptr) KaloCleanup3(handle);
  met << "; " << engine->Count(zulisim::Operation::kOpen) << " opens";
  for (const zulisim::Bytes& request : engine->Requests("KALO")) {
    if (request.size() < 80) met << ", " << 80 - request.size() << " bytes short";
  }
  return met.str();
}

TEST(ScenariosTest, bring_what_their_comments_say) {
  std::map<std::string, std::string> met;
  for (const auto& entry : std::filesystem::directory_iterator(SCENARIOS)) {
    zulisim::Scenario scenario;
    ASSERT_NO_THROW(zulisim::AddScenarioFile(entry.path().string(), &scenario));
    zulisim::Engine engine({scenario.clients, true});
    zulisim::Apply(scenario, &engine);
    met[entry.path().stem().string()] = DriverMeets(&engine);
  }
  EXPECT_EQ(met, kMet);
}

}  // namespace
