#include <algorithm>
#include <iterator>
#include <stdexcept>

#include "simulator/commands.h"
#include "simulator/program_choice.h"
#include "simulator/scenario_file.h"
#include "simulator/scenario_options.h"

namespace zulisim {
namespace {

using OptionParser = void (*)(const std::string& text, Scenario* scenario);

void AddInstruction(CLI::App* command, Scenario* scenario, const char* name, const char* shape,
                    const char* description, OptionParser parse) {
  const auto callback = [name, scenario, parse](const std::string& text) {
    try {
      parse(text, scenario);
    } catch (const std::invalid_argument& error) {
      throw CLI::ValidationError(name, "'" + text + "': " + error.what());
    }
  };
  command
      ->add_option_function<std::vector<std::string>>(
          name,
          [callback](const std::vector<std::string>& texts) {
            std::for_each(texts.begin(), texts.end(), callback);
          },
          description)
      ->type_name(shape)
      ->type_size(1)
      ->expected(1)
      ->take_all()
      ->trigger_on_parse();
}

}  // namespace

void RequireProgram(const Invocation& invocation, const std::string& command) {
  if (!invocation.program.empty() && !invocation.program.front().empty()) return;
  throw CLI::ValidationError("the program is missing: write 'zulisim " + command +
                             " [OPTIONS] -- PROGRAM [ARGUMENTS...]'");
}

void AddInstructionOptions(CLI::App* command, Scenario* scenario) {
  AddInstruction(command, scenario, "--scenario", "FILE",
                 "What a scenario file says; it can be checked with 'zulisim check'",
                 AddScenarioFile);
  AddInstruction(command, scenario, "--client", "CLIENT:max=BYTES,version=N",
                 "What a client reports of itself", AddClientOption);
  AddInstruction(command, scenario, "--reply", "CLIENT:COMMAND=FIELD,...",
                 "How a client answers a command (or '*'): status:N, body:HEX, private:HEX, "
                 "latency:TIME, silent",
                 AddReplyOption);
  AddInstruction(command, scenario, "--fault", "OPERATION:WHEN=ERRNO", "An operation that fails",
                 AddFaultOption);
  AddInstruction(command, scenario, "--short", "OPERATION:WHEN=BYTES",
                 "A read or write that moves only so many bytes", AddShortOption);
  AddInstruction(
      command, scenario, "--lose", "OPERATION:WHEN[,opens=N][,errno=ERRNO][,drop-replies]",
      "A device that is lost at an operation, for so many opens after it", AddLossOption);
}

bool HasInstructions(const CLI::App& command) {
  const char* const names[] = {"--scenario", "--client", "--reply", "--fault", "--short", "--lose"};
  return std::any_of(std::begin(names), std::end(names),
                     [&command](const char* name) { return command.count(name) > 0; });
}

void AddDeviceOption(CLI::App* command, std::string* attachment) {
  command
      ->add_option("--device", *attachment, "How the program reaches the device (default: preload)")
      ->type_name("preload|fuse")
      ->check(CLI::IsMember({kPreloadAttachment, kFuseAttachment}).description(""));
}

void AddRootOption(CLI::App* command, std::string* root) {
  command
      ->add_option("--root", *root,
                   "Folder that stands for \"/\" of \"/data/Marvoleth.log\" and "
                   "\"/etc/vrel_registry.txt\"; otherwise a temporary one")
      ->type_name("DIR");
}

void AddObservationOptions(CLI::App* command, ObservationOptions* options) {
  command
      ->add_option("--transcript", options->transcriptFile, "Write the transcript to FILE as well")
      ->type_name("FILE");
  command
      ->add_option("--trace", options->traceFile,
                   "Write Chrome trace events to FILE, for the Perfetto viewer")
      ->type_name("FILE");
  command
      ->add_option("--report", options->reportFile,
                   "Write a sequence diagram to FILE, an HTML page that needs nothing else")
      ->type_name("FILE");
  command->add_flag("-q,--quiet", options->quiet, "No transcript on standard error");
  command->add_flag("--connection-numbers", options->connectionNumbers,
                    "In the transcript, name an open file by the engine's number (#1) instead of "
                    "the program's descriptor, which only the preload library knows");
}

}  // namespace zulisim
