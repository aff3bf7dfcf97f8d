#include <iostream>
#include <memory>

#include "simulator/cli/commands.h"
#include "simulator/record/recording.h"
#include "simulator/scenario/scenario_file.h"
#include "common/text_file.h"

namespace zulisim {
namespace {

constexpr int kFaulty = 1;

constexpr const char* kCheckFooter = R"(
Each mistake is a line of its own on standard error: FILE:LINE:COLUMN: what is wrong and
what would be right.

Exit status: 0 when every file is good, 1 when one is not or cannot be read, 125 for a
command line that cannot be understood.)";

std::string Counted(std::size_t count, const std::string& noun, const std::string& plural) {
  return std::to_string(count) + " " + (count == 1 ? noun : plural);
}

void DescribeRecording(const std::string& path, const Recording& recording) {
  std::cout << path << ": a recording of "
            << Counted(recording.operations.size(), "operation", "operations");
  if (recording.cut) std::cout << ", cut behind the last of them";
  std::cout << "\n";
}

void DescribeScenario(const std::string& path, const Scenario& scenario) {
  std::cout << path << ": a scenario of " << Counted(scenario.clients.size(), "client", "clients")
            << ", " << Counted(scenario.replies.size(), "reply", "replies") << " and "
            << Counted(scenario.faults.size(), "fault", "faults") << "\n";
}

bool IsGood(const std::string& path) {
  try {
    const std::string text = ReadFile(path, kMaxTextFile);
    if (IsRecording(text)) {
      DescribeRecording(path, ParseRecording(text));
      return true;
    }
    Scenario scenario;
    const auto diagnostics = ReadScenarioFile(path, &scenario);
    for (const Diagnostic& each : diagnostics) std::cerr << DiagnosticText(path, each) << "\n";
    if (diagnostics.empty()) DescribeScenario(path, scenario);
    return diagnostics.empty();
  } catch (const RecordingError& error) {
    std::cerr << DiagnosticText(path, error.diagnostic()) << "\n";
  } catch (const std::runtime_error& error) {
    std::cerr << "zulisim: " << error.what() << "\n";
  }
  return false;
}

int Check(const std::vector<std::string>& paths) {
  bool good = true;
  for (const std::string& path : paths) good = IsGood(path) && good;
  return good ? 0 : kFaulty;
}

}  // namespace

void DefineCheck(CLI::App* app, Invocation* invocation) {
  CLI::App* command = app->add_subcommand("check", "Validates scenarios and recordings.");
  command->footer(kCheckFooter);
  const auto paths = std::make_shared<std::vector<std::string>>();
  command->add_option("FILE", *paths, "Scenarios and recordings")->required();
  command->callback([=] { invocation->run = [=] { return Check(*paths); }; });
}

}  // namespace zulisim
