#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <iostream>
#include <memory>
#include <optional>

#include "common/command_line.h"
#include "common/format.h"
#include "common/input.h"
#include "common/text.h"
#include "simulator/cli/commands.h"
#include "simulator/cli/options.h"
#include "simulator/output/output_file.h"
#include "simulator/record/recording_scenario.h"

namespace zulisim {
namespace {

constexpr const char* kShowFooter =
    R"(Without --trace, --report, --scenario and --summary, the transcript goes to standard output.
zulisim-show(1) says what a scenario cannot express.

Examples:
  zulisim show field.zul --time --bytes 64
  zulisim show field.zul --report field.html --scenario field.toml)";

struct ShowOptions {
  std::string file;
  std::string scenarioFile;
  OutputOptions output;
};

// Returns the time at which the recording began, or nothing if the recording does not contain a
// valid time.
std::optional<std::chrono::nanoseconds> ClockOf(const std::string& started) {
  struct tm time {};
  const char* rest = strptime(started.c_str(), "%Y-%m-%dT%H:%M:%S", &time);
  if (rest == nullptr) return std::nullopt;
  return std::chrono::seconds(timegm(&time)) +
         std::chrono::nanoseconds(static_cast<std::int64_t>(std::atof(rest) * 1e9));
}

int Show(ShowOptions options) {
  std::vector<NamedFile> outputs = options.output.Files();
  outputs.push_back({"--scenario", options.scenarioFile});
  CheckOutputs(outputs, {{"the recording", options.file}});
  const Recording recording = ReadRecording(options.file);
  if (recording.header.redacted) {
    std::cerr << common::Format("zulisim: {} is redacted and holds no message bodies\n",
                                common::Quoted(options.file));
  }
  // ScenarioOf throws if the recording is not suitable, so call it before writing any output.
  const std::string scenario =
      options.scenarioFile.empty() ? "" : ScenarioOf(recording, options.file);
  OutputOptions* const wanted = &options.output;
  const bool others =
      wanted->summary || std::any_of(outputs.begin(), outputs.end(),
                                     [](const NamedFile& file) { return !file.path.empty(); });
  if (!others && !wanted->quiet) wanted->transcriptFile = "-";
  wanted->quiet = true;
  RunOutput output(options.output,
                   {{"recording", options.file}, {}, "", ClockOf(recording.header.started)},
                   nullptr);
  for (const OperationRecord& record : recording.operations) output.OnOperation(record);
  bool complete = output.Finish(std::nullopt);
  if (!scenario.empty()) {
    OutputFile file("scenario", options.scenarioFile);
    file.Write(scenario);
    complete = file.Close() && complete;
  }
  return complete ? 0 : kOwnFailure;
}

}  // namespace

void DefineShow(common::Command* program) {
  common::Command* command = program->AddCommand(
      "show",
      "Shows a recording as a transcript, trace, report or summary, or makes a scenario of it.",
      kShowFooter);
  const auto options = std::make_shared<ShowOptions>();
  command->AddFile("FILE", &options->file, "The recording");
  command->Require({"FILE"});
  command->AddFile("--scenario", &options->scenarioFile,
                   "Write a scenario to FILE; with it, the engine does what was recorded");
  AddOutputOptions(command, &options->output);
  command->SetAction([=] { return Show(*options); });
}

}  // namespace zulisim
