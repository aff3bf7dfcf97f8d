#pragma once

#include <memory>
#include <string>
#include <vector>

#include "common/command_line.h"
#include "simulator/output/run_output.h"
#include "simulator/program/served_program.h"
#include "simulator/record/recording.h"
#include "simulator/scenario/scenario.h"

namespace zulisim {

// Options shared by all commands that start a program.
struct ProgramOptions {
  std::vector<std::string> program;  // PROGRAM [ARGUMENTS...]
  std::string device;                // --device
  std::string root;                  // --root
  OutputOptions output;
  Scenario scenario;
  bool strict = false;  // --strict
};

// --device
void AddDeviceOption(common::Command* command, std::string* device);
// --device, --root, --log, --log-detail and the options of AddOutputOptions
void AddProgramOptions(common::Command* command, ProgramOptions* options);
// --quiet, --transcript, --connection-numbers, --time, --bytes, --only, --trace, --report,
// --summary and --summary-json
void AddOutputOptions(common::Command* command, OutputOptions* options);
// Adds --scenario and the options of InstructionOptions() in the order of the command line, and
// --strict unless `strict` is null.
void AddInstructionOptions(common::Command* command, Scenario* scenario, bool* strict);

// Names on standard error the replies and faults that happened less often than requested. Returns
// kUnfulfilled if there is one and `strict` is set, otherwise `status`.
int ReportUnfulfilled(const Engine& engine, bool strict, int status);

// The files that `scenario` was read from, for CheckOutputs.
std::vector<NamedFile> InputFiles(const Scenario& scenario);
// Like the function above, and adds the program and the files that it reads and writes in --root.
// Throws ProgramError if the program does not exist.
std::vector<NamedFile> InputFiles(const ProgramOptions& options);

// Says on standard error if the recording is cut. Throws common::InputError, which names the file
// and the line.
Recording ReadRecording(const std::string& path);

// Returns the program, ready to start. Call it before the first thread starts. Throws ProgramError,
// or std::exception when the program cannot be served, for example because the kernel cannot serve
// a client of the scenario.
std::unique_ptr<ServedProgram> MakeServedProgram(const ProgramOptions& options);

}  // namespace zulisim
