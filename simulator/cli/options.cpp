#include "simulator/cli/options.h"

#include <cstdlib>
#include <iostream>
#include <stdexcept>

#include "common/command_line.h"
#include "common/format.h"
#include "common/input.h"
#include "common/input_error.h"
#include "common/number.h"
#include "common/text.h"
#include "simulator/cli/commands.h"
#include "simulator/kernel/kernel_program.h"
#include "simulator/kernel/kernel_server.h"
#include "simulator/kernel/kernel_support.h"
#include "simulator/preload/preloaded_program.h"
#include "simulator/preload/protocol.h"
#include "simulator/program/program.h"
#include "simulator/scenario/scenario_file.h"
#include "simulator/scenario/scenario_options.h"

namespace zulisim {
namespace {

constexpr const char* kScenarioOption = "scenario";

void AddScenarioFile(const std::string& path, Scenario* scenario) {
  const std::string text = common::ReadInput(path);
  if (!IsRecording(text)) return AddScenario(text, path, scenario);
  throw common::InputError(
      common::Format("{0} is a recording; use 'zulisim replay', or make a scenario from it with "
                     "'zulisim show {1} --scenario FILE'",
                     common::Quoted(path), common::Printable(path)));
}

void AddInstruction(common::Command* command, Scenario* scenario, const InstructionOption& option) {
  const auto take = [option, scenario](const std::string& text) {
    try {
      option.add(text, scenario);
      scenario->instructions.push_back(common::Format("--{} {}", option.name, text));
    } catch (const common::InputError& error) {
      // A message about a file begins with the file's name.
      const std::string place = option.name == kScenarioOption ? "" : common::Quoted(text) + ": ";
      throw common::UsageError(common::Format("--{}: {}{}", option.name, place, error.what()));
    }
  };
  command->AddRepeated("--" + option.name, take, option.form, option.help);
}

// "failures", "client=NAME" or "command=NUMBER"
void AddFilter(const std::string& text, TranscriptFilter* filter) {
  const auto [name, value] = common::SplitOnce(text, "=");
  if (text == "failures") {
    filter->failures = true;
  } else if (name == "client" && value && !value->empty()) {
    filter->clients.insert(*value);
  } else if (name == "command" && value) {
    filter->commands.insert(common::RequireNumber("--only: a command", *value));
  } else {
    throw common::UsageError("--only: expected failures, client=NAME or command=NUMBER, not " +
                             common::Quoted(text));
  }
}

}  // namespace

std::vector<NamedFile> InputFiles(const Scenario& scenario) {
  std::vector<NamedFile> files;
  for (const std::string& path : scenario.files) files.push_back({"--scenario", path});
  return files;
}

std::vector<NamedFile> InputFiles(const ProgramOptions& options) {
  std::vector<NamedFile> files = InputFiles(options.scenario);
  files.push_back({"the program", FindProgram(options.program.front())});
  if (options.root.empty()) return files;
  files.push_back({"the program's log", options.root + "/data/Marvoleth.log"});
  files.push_back({"the program's registry file", options.root + "/etc/vrel_registry.txt"});
  return files;
}

void AddInstructionOptions(common::Command* command, Scenario* scenario, bool* strict) {
  command->BeginGroup("The engine");
  AddInstruction(command, scenario,
                 {kScenarioOption, "FILE", "Follow a scenario file; 'zulisim check' validates it",
                  AddScenarioFile});
  for (const InstructionOption& option : InstructionOptions()) {
    AddInstruction(command, scenario, option);
  }
  if (strict == nullptr) return;
  command->AddFlag("--strict", strict,
                   "Exit with status 122 when a requested reply or fault never happened");
}

int ReportUnfulfilled(const Engine& engine, bool strict, int status) {
  for (const InstructionCount& count : engine.InstructionCounts()) {
    if (!count.IsTooLow()) continue;
    std::cerr << "zulisim: " << count.Text() << "\n";
    if (strict) status = kUnfulfilled;
  }
  return status;
}

void AddDeviceOption(common::Command* command, std::string* device) {
  command->AddChoice("--device", {"preload", "fuse"}, device,
                     KernelServer::Built()
                         ? "How the program reaches the device (default: preload)"
                         : "Only preload: this zulisim was built without libfuse3");
}

void AddProgramOptions(common::Command* command, ProgramOptions* options) {
  AddDeviceOption(command, &options->device);
  command->AddFile("--root", &options->root,
                   "Keep the program's \"/data\" and \"/etc/vrel_registry.txt\" in DIR", "DIR");
  AddOutputOptions(command, &options->output);
  command->AddFlag("--log", &options->output.log,
                   "Show the library's log lines in all outputs; --report implies it");
  command->AddFlag("--log-detail", &options->output.logDetail,
                   "Show its detailed log lines too; requires --device preload");
}

void AddOutputOptions(common::Command* command, OutputOptions* options) {
  command->BeginGroup("Outputs");
  command->AddFile("--transcript", &options->transcriptFile,
                   "Write the transcript to FILE; - is standard output");
  command->AddFile("--trace", &options->traceFile,
                   "Write Chrome trace events to FILE, for the Perfetto viewer");
  command->AddFile("--report", &options->reportFile, "Write one HTML page to FILE");
  command->AddFile("--summary-json", &options->summaryFile, "Write the summary to FILE as JSON");
  command->AddFlag("--summary", &options->summary,
                   "Print counts of operations and failures, and latencies of commands");
  command->AddFlag("-q,--quiet", &options->quiet, "Do not print the transcript on standard error");
  command->AddFlagOrChoice("--time", {"start", "clock"}, &options->time,
                           "Show seconds since the start, or with --time=clock the local time");
  command->AddNumber("--bytes", &options->style.bytes, "Show up to N bytes of each message");
  command->AddRepeated(
      "--only", [options](const std::string& text) { AddFilter(text, &options->style.only); },
      "WHAT", "Show only failures, client=NAME or command=N; repeat it to combine them");
  command->AddFlag("--connection-numbers", &options->style.connectionNumbers,
                   "Show the engine's number of a connection (#1), not the descriptor");
}

Recording ReadRecording(const std::string& path) {
  try {
    Recording recording = ParseRecording(common::ReadInput(path, kLongestRecording));
    if (recording.cut) {
      std::cerr << common::Format("zulisim: {} is cut after operation {}\n", common::Quoted(path),
                                  recording.operations.size());
    }
    return recording;
  } catch (const RecordingError& error) {
    throw common::InputError(common::DiagnosticText(path, error.diagnostic));
  }
}

std::unique_ptr<ServedProgram> MakeServedProgram(const ProgramOptions& options) {
  for (const ReplyRule& rule : options.scenario.replies) {
    if (!rule.held) continue;
    throw common::InputError(common::Printable(rule.origin) +
                             ": 'hold' works only with 'zulisim serve', where 'zulisim tell' "
                             "releases the reply");
  }
  if (options.output.logDetail) {
    if (options.device == "fuse") {
      throw std::runtime_error(
          "--log-detail requires --device preload; use --log for the ordinary lines");
    }
    setenv(protocol::kDetailVariable, "1", 1);  // the program inherits it
  }
  if (options.device != "fuse")
    return std::make_unique<PreloadedProgram>(options.program, options.root);
  CheckKernelCarries(options.scenario, KernelServer::Kind::kFile);
  CheckKernelServes(KernelServer::Kind::kFile);
  return std::make_unique<KernelProgram>(options.program, options.root);
}

}  // namespace zulisim
