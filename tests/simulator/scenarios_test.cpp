// Each scenario that ships, met by a driver: what its comments say is what happens.

#include <gtest/gtest.h>
#include <stdlib.h>

#include <algorithm>
#include <filesystem>
#include <sstream>
#include <string>

#include "api/kalo_dll.h"
#include "simulator/attachment.h"
#include "simulator/scenario_file.h"

namespace {

struct Expectation {
  const char* scenario;
  const char* meets;
};

constexpr Expectation kExpectations[] = {
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
    {"short_write", "init 0, 0, 0, 0; 1 opens"},
    {"silent_client", "init 0, 0, 0, 1 unchanged; 1 opens"},
    {"small_client", "init 0, 1 unchanged, 1 unchanged, 1 unchanged; 1 opens"},
    {"transfer_fails", "init 0, 1 unchanged, 0, 1 unchanged; 1 opens"},
};

// One command, and what came of it: its status, then the firmware's where it is not 0, or
// "unchanged" where the old one shows, and the size of the private data.
std::string Send(void* handle, unsigned char command) {
  constexpr unsigned char kOld = 7;
  unsigned char request[80] = {};
  request[4] = command;
  unsigned char reply[80] = {};
  reply[8] = kOld;
  unsigned char privateData[16] = {};
  unsigned privateLength = 0;
  std::ostringstream result;
  result << ", "
         << StartIoEx3(handle, request, sizeof(request), reply, sizeof(reply), privateData,
                       &privateLength);
  if (reply[8] == kOld) {
    result << " unchanged";
  } else if (reply[8] != 0) {
    result << " firmware " << int{reply[8]};
  }
  if (privateLength != 0) result << " private " << privateLength;
  return result.str();
}

class ScenariosTest : public testing::TestWithParam<Expectation> {
 protected:
  ScenariosTest() {
    char path[] = "/tmp/scenarios_test.XXXXXX";
    folder_ = mkdtemp(path);
  }
  ~ScenariosTest() override { std::filesystem::remove_all(folder_); }

  std::string DriverMeets(zulisim::Engine* engine) {
    const zulisim::Attachment attachment(*engine, {{"/data/Marvoleth.log", folder_ + "/log"}});
    KALO_STATE_INIT_PARAMS params = {0x30002, 0};
    KaloStateInit(&params);
    void* handle = nullptr;
    std::ostringstream met;
    met << "init";
    for (int i = 0; i < 4 && handle == nullptr; ++i) met << " " << KaloInit3(&handle);
    if (handle != nullptr) met << Send(handle, 0x11) << Send(handle, 0x12) << Send(handle, 0x20);
    if (handle != nullptr) KaloCleanup3(handle);
    met << "; " << engine->Count(zulisim::Operation::kOpen) << " opens";
    return met.str();
  }

 private:
  std::string folder_;
};

TEST_P(ScenariosTest, brings_what_its_comments_say) {
  zulisim::Scenario scenario;
  const std::string path = std::string(SCENARIOS "/") + GetParam().scenario + ".toml";
  ASSERT_NO_THROW(zulisim::AddScenarioFile(path, &scenario));
  zulisim::Engine engine({scenario.clients, true});
  zulisim::Apply(scenario, &engine);
  EXPECT_EQ(DriverMeets(&engine), GetParam().meets);
  if (GetParam().scenario == std::string("short_write")) {
    EXPECT_EQ(engine.Requests("KALO").at(0).size(), 16u);
    EXPECT_EQ(engine.Requests("KALO").at(1).size(), 80u);
  }
}

INSTANTIATE_TEST_SUITE_P(All, ScenariosTest, testing::ValuesIn(kExpectations),
                         [](const auto& each) { return std::string(each.param.scenario); });

TEST(ScenariosFolderTest, holds_nothing_that_is_not_tried) {
  for (const auto& entry : std::filesystem::directory_iterator(SCENARIOS)) {
    EXPECT_TRUE(std::any_of(
        std::begin(kExpectations), std::end(kExpectations),
        [&entry](const Expectation& each) { return entry.path().stem() == each.scenario; }))
        << entry.path();
  }
}

}  // namespace
