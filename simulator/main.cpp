// zulisim: the security engine in software, for programs that open "/dev/zuli".

#include <CLI/CLI.hpp>

#include <algorithm>
#include <exception>
#include <iostream>
#include <string>
#include <vector>

#include "simulator/program.h"
#include "simulator/run_command.h"
#include "simulator/scenario_options.h"

namespace {

constexpr int kOwnFailure = 125;

constexpr const char* kRunDescription =
    "Starts any unmodified, dynamically linked program with a \"/dev/zuli\" that the software "
    "engine "
    "serves, and prints a line for each of its device operations.";

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

using OptionParser = void (*)(const std::string& text, zulisim::Scenario* scenario);

void AddInstruction(CLI::App* command, zulisim::Scenario* scenario, const char* name,
                    const char* shape, const char* description, OptionParser parse) {
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

void DefineRun(CLI::App* command, zulisim::RunOptions* options) {
  command->footer(kRunFooter);
  command
      ->add_option("--root", options->root,
                   "Folder that stands for \"/\" of \"/data/Marvoleth.log\" and "
                   "\"/etc/vrel_registry.txt\"; otherwise a temporary one")
      ->type_name("DIR");
  command
      ->add_option("--transcript", options->transcriptFile, "Write the transcript to FILE as well")
      ->type_name("FILE");
  command->add_flag("-q,--quiet", options->quiet, "No transcript on standard error");
  zulisim::Scenario* scenario = &options->scenario;
  AddInstruction(command, scenario, "--client", "CLIENT:max=BYTES,version=N",
                 "What a client reports of itself", zulisim::AddClientOption);
  AddInstruction(command, scenario, "--reply", "CLIENT:COMMAND=FIELD,...",
                 "How a client answers a command (or '*'): status:N, body:HEX, private:HEX, silent",
                 zulisim::AddReplyOption);
  AddInstruction(command, scenario, "--fault", "OPERATION:WHEN=ERRNO", "An operation that fails",
                 zulisim::AddFaultOption);
  AddInstruction(command, scenario, "--short", "OPERATION:WHEN=BYTES",
                 "A read or write that moves only so many bytes", zulisim::AddShortOption);
  AddInstruction(
      command, scenario, "--lose", "OPERATION:WHEN[,opens=N][,errno=ERRNO][,drop-replies]",
      "A device that is lost at an operation, for so many opens after it", zulisim::AddLossOption);
}

int RunMain(int argc, char** argv) {
  CLI::App app("The security engine in software.");
  app.name("zulisim");
  app.require_subcommand(1);
  zulisim::RunOptions options;
  CLI::App* run = app.add_subcommand("run", kRunDescription);
  DefineRun(run, &options);
  // All behind the first "--" is the program's, whatever it looks like.
  std::vector<std::string> arguments(argv + 1, argv + argc);
  const auto separator = std::find(arguments.begin(), arguments.end(), "--");
  if (separator != arguments.end()) {
    options.program.assign(separator + 1, arguments.end());
    arguments.erase(separator, arguments.end());
  }
  std::reverse(arguments.begin(), arguments.end());  // as CLI11 wants them
  try {
    app.parse(arguments);
  } catch (const CLI::ParseError& error) {
    if (error.get_exit_code() == 0) return app.exit(error);
    std::cerr << "zulisim: " << error.what() << "\nTry 'zulisim run --help'.\n";
    return kOwnFailure;
  }
  if (options.program.empty() || options.program.front().empty()) {
    std::cerr << "zulisim: the program is missing: write 'zulisim run [OPTIONS] -- PROGRAM "
                 "[ARGUMENTS...]'\n";
    return kOwnFailure;
  }
  return zulisim::Run(options);
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return RunMain(argc, argv);
  } catch (const zulisim::ProgramError& error) {
    std::cerr << "zulisim: " << error.what() << "\n";
    return error.status();
  } catch (const std::exception& error) {
    std::cerr << "zulisim: " << error.what() << "\n";
    return kOwnFailure;
  }
}
