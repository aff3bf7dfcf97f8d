// Each scenario that ships, met by a driver: what its comments say is what happens.

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <sstream>
#include <string>

#include "api/kalo_client.h"
#include "simulator/in_process/in_process_device.h"
#include "simulator/scenario/scenario_file.h"

namespace {

const std::map<std::string, std::string> kMet = {
    {"busy_twice", "init 0, 0 firmware 1 private 16, 0, 0; 1 opens"},
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

// The same by the wrapper, which takes a new handle after a failure, so that one more command shows
// whether that helped.
const std::map<std::string, std::string> kMetByClient = {
    {"busy_twice", "refused -2147483647 private 16; done; done; refused -2147483647 private 16; "},
    {"client_refuses",
     "not sent 'Cannot connect to ZULI device.'; not sent 'Cannot connect to ZULI device.'; not "
     "sent 'Cannot connect to ZULI device.'; done; "},
    {"device_gone",
     "done; unknown 'Cannot open ZULI device.'; not sent 'Cannot open ZULI device.'; not sent "
     "'Cannot open ZULI device.'; "},
    {"device_lost_once", "done; done; done; done; "},
    {"echo", "done; done; done; done; "},
    {"five_reconnects", "unknown 'Error writing message to ZULI.'; done; done; done; "},
    {"flaky_device", "done; done; done; done; "},
    {"negative_status",
     "refused -2147483647 private 16; done 1; done; refused -2147483647 private 16; "},
    {"no_device",
     "not sent 'Cannot open ZULI device.'; not sent 'Cannot open ZULI device.'; not sent 'Cannot "
     "open ZULI device.'; not sent 'Cannot open ZULI device.'; "},
    {"reply_lost", "unknown 'Error reading message from ZULI.'; done; done; done; "},
    {"short_reply", "unknown 'the reply holds no status'; done; done; done; "},
    {"short_write", "done; done; done; done; "},
    {"silent_client", "done; done; unknown 'Error reading message from ZULI.'; done; "},
    {"small_client",
     "unknown 'Error writing message to ZULI.'; unknown 'Error writing message to ZULI.'; unknown "
     "'Error writing message to ZULI.'; unknown 'Error writing message to ZULI.'; "},
    {"transfer_fails",
     "unknown 'Error writing message to ZULI.'; done; unknown 'Error reading message from ZULI.'; "
     "done; "},
};

std::string ClientMeets(zulisim::Engine* engine) {
  const zulisim::InProcessDevice device(*engine, {{"/data/Marvoleth.log", "/dev/null"}});
  static constexpr const char* kOutcomes[] = {"done", "refused", "not sent", "unknown"};
  kalo::Client client;
  std::ostringstream met;
  for (const unsigned char command : {0x11, 0x12, 0x20, 0x11}) {
    const unsigned char request[80] = {0, 0, 0, 0, command};
    unsigned char reply[80];
    const kalo::Result result = client.Send(request, 80, reply, 80);
    met << kOutcomes[static_cast<int>(result.outcome)];
    if (result.firmwareStatus != 0) met << ' ' << result.firmwareStatus;
    if (result.privateDataLength != 0) met << " private " << result.privateDataLength;
    if (!result.text.empty()) met << " '" << result.text << "'";
    met << "; ";
  }
  return met.str();
}

// What `meets` says of each scenario.
std::map<std::string, std::string> Meet(std::string (*meets)(zulisim::Engine*)) {
  std::map<std::string, std::string> met;
  for (const auto& entry : std::filesystem::directory_iterator(SCENARIOS)) {
    zulisim::Scenario scenario;
    zulisim::AddScenarioFile(entry.path().string(), &scenario);
    zulisim::Engine engine({scenario.clients, true});
    zulisim::Apply(scenario, &engine);
    met[entry.path().stem().string()] = meets(&engine);
  }
  return met;
}

TEST(ScenariosTest, bring_what_their_comments_say) { EXPECT_EQ(Meet(DriverMeets), kMet); }

TEST(ScenariosTest, are_told_apart_by_the_wrapper) { EXPECT_EQ(Meet(ClientMeets), kMetByClient); }

}  // namespace
