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

// What the commands that start a program have in common.
struct ProgramOptions {
  std::vector<std::string> program;  // PROGRAM [ARGUMENTS...]
  bool fuse = false;                 // --device
  std::string root;                  // --root
  OutputOptions output;
  Scenario scenario;
  bool strict = false;  // --strict
};

// --device
void AddDeviceOption(common::Command* command, bool* fuse);
// --device, --root, --log, --log-detail and the options of AddOutputOptions
void AddProgramOptions(common::Command* command, ProgramOptions* options);
// --quiet, --transcript, --connection-numbers, --time, --bytes, --only, --trace, --report,
// --summary and --summary-json
void AddOutputOptions(common::Command* command, OutputOptions* options);
// --scenario and those of InstructionOptions(), in the order of the command line, and --strict
// unless `strict` is null.
void AddInstructionOptions(common::Command* command, Scenario* scenario, bool* strict);

// Names on standard error the replies and faults that happened less often than they should. Returns
// `status`, or kUnfulfilled for such a line with `strict`.
int ReportUnfulfilled(const Engine& engine, bool strict, int status);

// The files that `scenario` was read from, for CheckOutputs.
std::vector<NamedFile> InputFiles(const Scenario& scenario);
// The same, with the program and the files that it reads and writes in --root. Throws ProgramError
// when there is no such program.
std::vector<NamedFile> InputFiles(const ProgramOptions& options);

// Throws common::InputError that names the file and the place in it.
Recording ReadRecording(const std::string& path);

// Returns the program, ready to start. Call it before the first thread starts. Throws ProgramError,
// or std::exception when something prevents the start, such as a client of the scenario that the
// kernel cannot serve.
std::unique_ptr<ServedProgram> MakeServedProgram(const ProgramOptions& options);

}  // namespace zulisim
