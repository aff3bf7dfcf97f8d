#include <memory>

#include "common/text.h"
#include "simulator/cli/commands.h"
#include "simulator/cli/options.h"

namespace zulisim {
namespace {

constexpr const char* kRunDescription =
    R"(Starts any unmodified program with a "/dev/zuli" that the software engine serves, and prints a line for each of its device operations.)";

constexpr const char* kRunFooter = R"(
Usage in full: zulisim run [OPTIONS] -- PROGRAM [ARGUMENTS...]

--device preload serves a dynamically linked program. --device fuse serves any program, in a
mount namespace of its own (and without root in a user namespace): there, "/dev/zuli" is a
file that the kernel's FUSE serves, and "/data" and "/etc/vrel_registry.txt" are those of
--root. Nobody else sees them, and they end with it. 'zulisim serve --help' tells what the
kernel does differently.

WHEN counts the operations of a kind from 1, failed ones included: 3, 3-5, or 3- for the
third and all after it. OPERATION is open, ioctl, read, write or close; CLIENT is KALO,
FENU or SAB. Without --reply a client echoes the request with status 0.

Examples:
  zulisim run -- ./driver
  zulisim run --lose read:2 --lose write:5,opens=3,errno=ENOENT -- ./driver
  zulisim run --device fuse -- ./static_driver
  zulisim run --reply 'kalo:0x10=status:0x80000001,private:00112233445566778899aabbccddeeff' \
              --fault 'write:3-=EIO' -- ./driver --verbose

Exit status: the program's; 128 and the signal's number when a signal ended it; 125 when
zulisim itself fails, 126 when the program cannot be run or served, 127 when there is none.)";

int Run(const ProgramOptions& options, const std::vector<std::string>& arguments) {
  const auto program = MakeServedProgram(options, arguments);
  Engine engine({options.scenario.clients, false});
  Apply(options.scenario, &engine);
  RunOutput output(options.output, {arguments, options.scenario.instructions, program->LogFile()},
                   &engine);
  return output.Ended(program->Run(engine));
}

void RequireProgram(const Invocation& invocation, const CLI::App& command) {
  const std::string words = common::Joined(command.remaining(), " ");
  const bool missing = invocation.program.empty() || invocation.program.front().empty();
  if (words.empty() && !missing) return;
  throw CLI::ValidationError(
      (words.empty() ? "the program is missing"
                     : common::Quoted(words) + " is not expected in front of '--'") +
      ": write 'zulisim " + command.get_name() + " [OPTIONS] -- PROGRAM [ARGUMENTS...]'");
}

}  // namespace

void DefineProgramRun(CLI::App* command, Invocation* invocation,
                      const std::function<int()>& action) {
  command->allow_extras();  // which are refused with a hint
  command->callback([=] {
    RequireProgram(*invocation, *command);
    invocation->run = action;
  });
}

void DefineRun(CLI::App* app, Invocation* invocation) {
  CLI::App* command = app->add_subcommand("run", kRunDescription);
  command->footer(kRunFooter);
  const auto options = std::make_shared<ProgramOptions>();
  AddProgramOptions(command, options.get());
  AddInstructionOptions(command, &options->scenario);
  DefineProgramRun(command, invocation, [=] {
    RefuseSharedFiles(*command, options->scenario);
    return Run(*options, invocation->program);
  });
}

}  // namespace zulisim
