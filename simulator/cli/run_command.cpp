#include <memory>

#include "simulator/cli/commands.h"
#include "simulator/cli/options.h"

namespace zulisim {
namespace {

constexpr const char* kRunDescription =
    R"(Starts any unmodified program with a "/dev/zuli" that the software engine serves, and prints a line for each of its device operations.)";

constexpr const char* kRunFooter = R"(
--device preload serves the calls that a dynamically linked program makes through libc,
syscall(2) included. Its limits:
  - A part of the program without the library (LD_PRELOAD cleared, RTLD_DEEPBIND, a program
    that it starts statically linked) finds no device; nor does a path that is relative or
    leads through links.
  - A system call instruction of the program's own, or io_uring, on a descriptor that libc
    opened does not reach the engine; zulisim warns about a write. A close shows as the end
    of the program. A read or write with a bad address does not reach the engine either.
  - A program that changes its root folder or its user and no longer reaches the engine gets
    ENODEV. fopen and fdopen of the device give EOPNOTSUPP.
  - The library keeps one to eight descriptors for itself, from number 768 on where the
    program's limit allows that.
)"
#ifdef ZULISIM_HAS_FUSE
                                   R"(
--device fuse serves any program. The program runs in a mount namespace of its own, and
without root also in a user namespace. There the kernel's FUSE serves "/dev/zuli" as a file,
and "/data" and "/etc/vrel_registry.txt" are those of --root. Other programs do not see them.
'zulisim serve --help' lists what the kernel does differently.
)"
#endif
                                   R"(
WHEN counts the operations of a kind from 1, failed ones included: 3, 3-5, or 3- for the
third and all after it. 3@KALO counts only those of a client, 3@KALO:0x10 and 3@*:0x10
those of a command, 3@#2 those of the second connection. OPERATION is open, ioctl, read,
write or close; CLIENT is KALO, FENU or SAB. Without --reply a client echoes the request
with status 0; several with at:WHEN change its answer, counted for each command.

At the end, zulisim names the requested replies and faults that never happened.

Examples:
  zulisim run ./driver
  zulisim run --lose read:2 --lose write:5,opens=3,errno=ENOENT ./driver
  zulisim run --reply kalo:0x10=at:1-2,status:0x80000001 ./driver
  zulisim run --reply 'kalo:0x10=status:0x80000001,private:00112233445566778899aabbccddeeff' \
              --fault 'write:3-=EIO' ./driver --verbose

Exit status: the program's; 128 and the signal's number when a signal ended it; 122 with
--strict when a requested reply or fault never happened; 125 when zulisim itself fails or an
output is incomplete, 126 when the program cannot be run or served, 127 when there is none.)";

int Run(const ProgramOptions& options) {
  CheckOutputs(options.output.Files(), InputFiles(options));
  const auto program = MakeServedProgram(options);
  Engine engine({options.scenario.clients, false});
  Apply(options.scenario, &engine);
  RunOutput output(options.output,
                   {options.program, options.scenario.instructions, program->LogFile()}, &engine);
  const int programStatus = program->Run(engine);
  const bool complete = output.Finish(programStatus);
  const int status = ReportMissed(engine, options.strict, programStatus);
  return complete ? status : kOwnFailure;
}

}  // namespace

void DefineRun(common::Command* program) {
  common::Command* command = program->AddCommand("run", kRunDescription);
  command->SetFooter(kRunFooter);
  const auto options = std::make_shared<ProgramOptions>();
  AddProgramOptions(command, options.get());
  AddInstructionOptions(command, &options->scenario, &options->strict);
  command->TakeProgram(&options->program);
  command->SetAction([=] { return Run(*options); });
}

}  // namespace zulisim
