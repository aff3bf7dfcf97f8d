#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <iostream>
#include <memory>
#include <stdexcept>

#include "common/command_line.h"
#include "common/format.h"
#include "common/text.h"
#include "simulator/cli/commands.h"
#include "simulator/cli/options.h"
#include "simulator/output/output_file.h"
#include "simulator/record/passthrough_device.h"
#include "simulator/record/recorder.h"

namespace zulisim {
namespace {

constexpr const char* kRecordFooter = R"(
Examples, see also zulisim-record(1):
  zulisim record -o field.zul ./driver                      from the kernel's /dev/zuli
  zulisim record -o loss.zul --scenario loss.toml ./driver  from the software engine)";

struct RecordOptions : ProgramOptions {
  std::string file;
  std::string device = "/dev/zuli";
  bool engine = false;
  bool force = false;
};

std::unique_ptr<Device> MakeDevice(const RecordOptions& options) {
  const Scenario& scenario = options.scenario;
  if (options.engine) {
    auto engine = std::make_unique<Engine>(EngineOptions{scenario.clients, false});
    Apply(scenario, engine.get());
    return engine;
  }
  if (access(options.device.c_str(), F_OK) != 0) {
    throw std::runtime_error(common::Format(
        "cannot record the device {}: {}; use --engine or --scenario to record the software engine",
        common::Quoted(options.device), std::strerror(errno)));
  }
  return std::make_unique<PassthroughDevice>(options.device, scenario.clients);
}

int Record(const RecordOptions& options) {
  std::vector<NamedFile> inputs = InputFiles(options);
  inputs.push_back({"--from", options.device});
  std::vector<NamedFile> outputs = options.output.Files();
  outputs.push_back({"--output", options.file});
  CheckOutputs(outputs, inputs);
  const auto program = MakeServedProgram(options);
  const std::unique_ptr<Device> device = MakeDevice(options);
  OutputFile file("recording", options.file,
                  options.force ? OutputFile::Existing::kReplace : OutputFile::Existing::kRefuse);
  int status = kOwnFailure;
  bool complete = false;
  {
    const bool redact = options.output.redact;
    const std::vector<std::string> shown =
        redact ? std::vector<std::string>{options.program.front()} : options.program;
    const std::vector<std::string> instructions =
        redact ? std::vector<std::string>() : options.scenario.instructions;
    const Recorder recorder(
        device.get(), [&file](const std::string& line) { file.Write(line); },
        {"zulisim " ZULISIM_VERSION, "", shown, options.scenario.clients, redact});
    RunOutput output(options.output, {shown, instructions, program->LogFile()}, device.get());
    status = program->Run(*device);
    complete = output.Finish(status);
    if (const auto* engine = dynamic_cast<const Engine*>(device.get())) {
      status = ReportUnfulfilled(*engine, options.strict, status);
    }
  }
  if (!file.Written()) {
    std::cerr << common::Format("zulisim: {} was not written: there was no operation to record\n",
                                common::Quoted(options.file));
  }
  return file.Close() && complete ? status : kOwnFailure;
}

}  // namespace

void DefineRecord(common::Command* program) {
  common::Command* command = program->AddCommand(
      "record",
      "Runs a program and records its operations on a device, or on the software engine.");
  command->SetFooter(kRecordFooter);
  const auto options = std::make_shared<RecordOptions>();
  command->AddFile("-o,--output", &options->file, "Write the recording to FILE").Require();
  command->AddFile("--from", &options->device, "Record this device (default: \"/dev/zuli\")",
                   "PATH");
  command->AddFlag("--engine", &options->engine,
                   "Record the software engine; --scenario and the options below imply it");
  command->AddFlag("--force", &options->force, "Replace an existing FILE");
  command->AddFlag("--redact", &options->output.redact,
                   "Write only headers and lengths, to all outputs");
  AddProgramOptions(command, options.get());
  AddInstructionOptions(command, &options->scenario, &options->strict);
  command->TakeProgram(&options->program);
  command->SetAction([=] {
    options->engine = options->engine || !options->scenario.instructions.empty();
    if (options->engine && command->Has("--from")) {
      throw common::UsageError(
          "--from: cannot be combined with options for the software engine; remove --from or those "
          "options");
    }
    return Record(*options);
  });
}

}  // namespace zulisim
