#include <iostream>
#include <memory>

#include "common/input.h"
#include "common/text.h"
#include "simulator/cli/commands.h"
#include "simulator/record/recording.h"
#include "simulator/scenario/scenario_file.h"

namespace zulisim {
namespace {

constexpr int kFaulty = 1;

constexpr const char* kCheckFooter =
    R"(Each mistake is a line on standard error, as in "loss.toml:3:6: '1.5' is not a valid position".

Exit status: 0 when all files are valid, 1 otherwise, 125 for a wrong command line.)";

void DescribeRecording(const std::string& path, const Recording& recording) {
  std::cout << common::Printable(path)
            << (recording.header.redacted ? ": a redacted recording of " : ": a recording of ")
            << common::Counted(recording.operations.size(), "operation");
  if (recording.cut) std::cout << ", cut after the last of them";
  std::cout << "\n";
}

void DescribeScenario(const std::string& path, const Scenario& scenario) {
  std::cout << common::Printable(path) << ": a scenario of "
            << common::Counted(scenario.describedClients, "client") << ", "
            << common::Counted(scenario.replies.size(), "reply", "replies") << " and "
            << common::Counted(scenario.faults.size(), "fault") << "\n";
}

bool IsGood(const std::string& path) {
  try {
    const std::string text = common::ReadInput(path, kLongestRecording);
    if (IsRecording(text)) {
      DescribeRecording(path, ParseRecording(text));
      return true;
    }
    Scenario scenario;
    // Standard input can be read only once.
    const auto diagnostics = ReadScenario(text, path, &scenario);
    for (const common::Diagnostic& each : diagnostics) {
      std::cerr << common::DiagnosticText(path, each) << "\n";
    }
    if (diagnostics.empty()) DescribeScenario(path, scenario);
    return diagnostics.empty();
  } catch (const RecordingError& error) {
    std::cerr << common::DiagnosticText(path, error.diagnostic) << "\n";
  } catch (const common::InputError& error) {
    std::cerr << "zulisim: " << error.what() << "\n";
  }
  return false;
}

}  // namespace

void DefineCheck(common::Command* program) {
  common::Command* command =
      program->AddCommand("check", "Validates scenarios and recordings.", kCheckFooter);
  const auto paths = std::make_shared<std::vector<std::string>>();
  command->AddList("FILE", paths.get(), "FILE", "Scenarios and recordings");
  command->Require({"FILE"});
  command->SetAction([=] {
    bool good = true;
    for (const std::string& path : *paths) good = IsGood(path) && good;
    return good ? 0 : kFaulty;
  });
}

}  // namespace zulisim
