#include <linux/magic.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <optional>
#include <stdexcept>
#include <system_error>

#include "common/format.h"
#include "common/text.h"
#include "simulator/cli/commands.h"
#include "simulator/cli/options.h"
#include "simulator/control/control_server.h"
#include "simulator/kernel/kernel_server.h"
#include "simulator/kernel/kernel_support.h"
#include "simulator/program/child_process.h"

namespace zulisim {
namespace {

using Kind = KernelServer::Kind;

constexpr const char* kNode = "/dev/zuli";

constexpr const char* kServeFooter =
    R"(Ctrl-C ends the service. 'zulisim tell' changes the device while it is served. zulisim-serve(1)
says what --cuse and --fuse need, where the kernel limits them, and the exit status.

Examples:
  zulisim serve --cuse
  zulisim serve --fuse /tmp/zuli --lose read:2)";

struct ServeOptions {
  bool characterDevice = false;
  std::string file;
  OutputOptions output;
  Scenario scenario;
  bool strict = false;
};

// Returns true if a FUSE file system is mounted on the file itself.
bool IsServed(const std::string& path, const struct stat& status) {
  struct statfs system {};
  struct stat folder {};
  std::error_code error;
  const auto parent = std::filesystem::canonical(path, error).parent_path();
  return !error && statfs(path.c_str(), &system) == 0 && system.f_type == FUSE_SUPER_MAGIC &&
         stat(parent.c_str(), &folder) == 0 && folder.st_dev != status.st_dev;
}

// The file to mount on. If it was missing, the constructor creates it and the destructor removes
// it.
class MountedFile {
 public:
  // Throws std::runtime_error if nothing can be mounted on the file.
  explicit MountedFile(const std::string& path) : path_(path) {
    struct stat status {};
    const std::string name = common::Quoted(path);
    const bool exists = stat(path.c_str(), &status) == 0;
    if (exists && IsServed(path, status)) {
      Fail(name + " is already served; end that server or choose another file with --fuse FILE");
    }
    if (exists && !S_ISREG(status.st_mode)) {
      Fail("cannot mount on " + name + ": not a regular file; choose a file with --fuse, such as " +
           common::Quoted(S_ISDIR(status.st_mode) ? path + "/zuli" : "/tmp/zuli"));
    }
    if (!exists && errno == ENOTCONN) {
      Fail(common::Format(
          "{} is still mounted, but its server has ended; remove the mount with '{} {}'", name,
          geteuid() == 0 ? "umount" : "fusermount3 -u", common::Printable(path)));
    }
    if (!exists && !std::ofstream(path, std::ios::app)) {
      Fail(common::Format(
          "cannot create the file {} to mount on: {}; choose another file with --fuse FILE, or use "
          "'zulisim run --device fuse', which serves one program in a file tree of its own",
          name, std::strerror(errno)));
    }
    created_ = !exists;
  }
  ~MountedFile() {
    if (created_) unlink(path_.c_str());
  }
  MountedFile(const MountedFile&) = delete;
  MountedFile& operator=(const MountedFile&) = delete;

 private:
  [[noreturn]] static void Fail(const std::string& message) { throw std::runtime_error(message); }

  const std::string path_;
  bool created_ = false;
};

// Returns null if the control socket cannot be created; the device is served without it.
std::unique_ptr<ControlServer> MakeControl(Kind kind, const std::string& path, Engine* engine) {
  const auto check = [kind](const Scenario& added) { CheckKernelCarries(added, kind); };
  try {
    return std::make_unique<ControlServer>(path, engine, check);
  } catch (const std::runtime_error& error) {
    std::cerr << "zulisim: warning: 'zulisim tell' cannot be used: " << error.what() << "\n";
    return nullptr;
  }
}

// Returns when a signal requests the end, or when the service has ended.
void WaitForEnd(KernelServer& server) {
  sigset_t ends;
  sigemptyset(&ends);
  for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) sigaddset(&ends, number);
  const struct timespec interval { 0, 200'000'000 };
  while (server.Serving()) {
    if (sigtimedwait(&ends, nullptr, &interval) > 0) return server.WaitForCloses();
  }
  throw std::runtime_error("the kernel ended the service; check whether the file was unmounted");
}

int Serve(const ServeOptions& options) {
  const Kind kind = options.characterDevice ? Kind::kCharacterDevice : Kind::kFile;
  // With --cuse there is no file name, and with --fuse it is optional.
  const std::string path =
      options.file.empty() ? kNode : std::filesystem::absolute(options.file).string();
  std::vector<NamedFile> inputs = InputFiles(options.scenario);
  inputs.push_back({"--fuse", options.file});
  CheckOutputs(options.output.Files(), inputs);
  CheckKernelCarries(options.scenario, kind);
  CheckKernelServes(kind);
  const ChildSignals signals;
  std::optional<MountedFile> file;
  if (options.characterDevice && access(kNode, F_OK) == 0) {
    throw std::runtime_error(common::Format(
        "{} already exists; end the server that made it, or serve a file with --fuse FILE",
        common::Quoted(kNode)));
  }
  if (!options.characterDevice) {
    CheckCanMount();
    file.emplace(path);
  }
  Engine engine({options.scenario.clients, false});
  Apply(options.scenario, &engine);
  RunOutput output(options.output, {{"zulisim", "serve", path}, options.scenario.instructions, ""},
                   &engine);
  {
    KernelServer server(engine, kind, path, geteuid() == 0);
    const auto control = MakeControl(kind, path, &engine);
    std::cerr << "zulisim: serving " + common::Quoted(path) + "; press Ctrl-C to end\n";
    WaitForEnd(server);
  }
  const bool complete = output.Finish(std::nullopt);
  const int status = ReportUnfulfilled(engine, options.strict, 0);
  return complete ? status : kOwnFailure;
}

}  // namespace

void DefineServe(common::Command* program) {
  common::Command* command = program->AddCommand(
      "serve",
      std::string("Serves the software engine to all processes, through the kernel.") +
          (KernelServer::Built() ? "" : " This zulisim cannot: it was built without libfuse3."),
      kServeFooter);
  const auto options = std::make_shared<ServeOptions>();
  command->AddFlag("--cuse", &options->characterDevice,
                   "Create the character device \"/dev/zuli\"");
  command->AddFile("--fuse", &options->file, "Serve a file (default: \"/dev/zuli\")", "[FILE]");
  command->MakeValueOptional("--fuse", kNode);
  AddOutputOptions(command, &options->output);
  AddInstructionOptions(command, &options->scenario, &options->strict);
  command->SetAction([=] {
    if (options->characterDevice == command->Has("--fuse")) {
      throw common::UsageError("choose how to serve: either --cuse or --fuse [FILE]");
    }
    return Serve(*options);
  });
}

}  // namespace zulisim
