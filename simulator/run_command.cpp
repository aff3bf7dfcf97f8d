#include <memory>

#include "simulator/commands.h"
#include "simulator/preloaded_program.h"

namespace zulisim {
namespace {

constexpr const char* kRunDescription =
    "Starts any unmodified, dynamically linked program with a \"/dev/zuli\" that the software "
    "engine serves, and prints a line for each of its device operations.";

constexpr const char* kRunFooter = R"(
Usage in full: zulisim run [OPTIONS] -- PROGRAM [ARGUMENTS...]

WHEN counts the operations of a kind from 1, failed ones included: 3, 3-5, or 3- for the
third and all after it. OPERATION is open, ioctl, read, write or close; CLIENT is KALO,
FENU or SAB. Without --reply a client echoes the request with status 0.

Examples:
  zulisim run -- ./driver
  zulisim run --lose read:2 --lose write:5,opens=3,errno=ENOENT -- ./driver
  zulisim run --reply 'kalo:0x10=status:0x80000001,private:00112233445566778899aabbccddeeff' \
              --fault 'write:3-=EIO' -- ./driver --verbose

Exit status: the program's; 128 and the signal's number when a signal ended it; 125 when
zulisim itself fails, 126 when the program cannot be run or served, 127 when there is none.)";

struct RunOptions {
  std::string root;
  ObservationOptions observation;
  Scenario scenario;
};

int Run(const RunOptions& options, const std::vector<std::string>& arguments) {
  PreloadedProgram program(arguments, options.root);
  Engine engine({options.scenario.clients, false});
  Apply(options.scenario, &engine);
  const Observation observation(options.observation, arguments, &engine);
  return program.Run(engine);
}

}  // namespace

void DefineRun(CLI::App* app, Invocation* invocation) {
  CLI::App* command = app->add_subcommand("run", kRunDescription);
  command->footer(kRunFooter);
  const auto options = std::make_shared<RunOptions>();
  AddRootOption(command, &options->root);
  AddObservationOptions(command, &options->observation);
  AddInstructionOptions(command, &options->scenario);
  command->callback([=] {
    RequireProgram(*invocation, "run");
    invocation->run = [=] { return Run(*options, invocation->program); };
  });
}

}  // namespace zulisim
