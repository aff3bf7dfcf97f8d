#include "simulator/run_command.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "simulator/child_process.h"
#include "simulator/device_server.h"
#include "simulator/program.h"
#include "simulator/protocol.h"
#include "simulator/run_folder.h"
#include "simulator/transcript.h"

namespace zulisim {
namespace {

constexpr const char* kPreloadLibrary = "libzulisim_preload.so";

std::string FindPreloadLibrary() {
  const std::filesystem::path here = std::filesystem::read_symlink("/proc/self/exe").parent_path();
  for (const auto& folder : {here, here.parent_path() / ZULISIM_LIBRARY_FOLDER}) {
    const std::string candidate = (folder / kPreloadLibrary).string();
    if (access(candidate.c_str(), R_OK) != 0) continue;
    if (candidate.find_first_of(" :") == std::string::npos) return candidate;
    throw std::runtime_error("the dynamic linker cannot preload '" + candidate +
                             "': install it at a path without blanks and colons");
  }
  throw std::runtime_error(std::string(kPreloadLibrary) + " is neither beside zulisim in '" +
                           here.string() + "' nor in '../" + ZULISIM_LIBRARY_FOLDER + "'");
}

std::string Extended(const char* variable, const std::string& addition, bool inFront) {
  const char* present = getenv(variable);
  if (present == nullptr || *present == '\0') return addition;
  return inFront ? addition + ":" + present : present + (":" + addition);
}

std::map<std::string, std::string> Environment(const std::string& socket, const std::string& root) {
  return {{protocol::kSocketVariable, socket},
          {protocol::kRootVariable, root},
          {"LD_PRELOAD", Extended("LD_PRELOAD", FindPreloadLibrary(), true)},
          // A program that is built with the address sanitizer would refuse a library before its
          // own runtime.
          {"ASAN_OPTIONS", Extended("ASAN_OPTIONS", "verify_asan_link_order=0", false)}};
}

bool WantsColour() {
  const char* refused = getenv("NO_COLOR");
  const char* terminal = getenv("TERM");
  return isatty(STDERR_FILENO) == 1 && (refused == nullptr || *refused == '\0') &&
         (terminal == nullptr || std::strcmp(terminal, "dumb") != 0);
}

// A transcript in a file, which the program does not inherit.
class FileTranscript : public OperationObserver {
 public:
  explicit FileTranscript(const std::string& path) : file_(std::fopen(path.c_str(), "we")) {
    if (file_ == nullptr) {
      throw std::runtime_error("the transcript '" + path +
                               "' cannot be written: " + std::strerror(errno));
    }
  }
  ~FileTranscript() override { std::fclose(file_); }
  FileTranscript(const FileTranscript&) = delete;
  FileTranscript& operator=(const FileTranscript&) = delete;

  void OnOperation(const OperationRecord& record) override {
    std::fprintf(file_, "%s\n", TranscriptLine(record).c_str());
    std::fflush(file_);
  }

 private:
  std::FILE* file_;
};

using Observers = std::vector<std::unique_ptr<OperationObserver>>;

Observers MakeTranscripts(const RunOptions& options) {
  Observers transcripts;
  if (!options.quiet) {
    transcripts.push_back(
        std::make_unique<Transcript>(&std::cerr, TranscriptStyle{WantsColour(), false}));
  }
  if (!options.transcriptFile.empty()) {
    transcripts.push_back(std::make_unique<FileTranscript>(options.transcriptFile));
  }
  return transcripts;
}

}  // namespace

int Run(const RunOptions& options) {
  const std::string program = FindProgram(options.program.front());
  CheckPreloadable(program);
  const ChildSignals signals;
  const TemporaryFolder folder;
  const std::string root =
      PrepareRoot(options.root.empty() ? folder.path() + "/root" : options.root);
  Engine engine({options.scenario.clients, false});
  Apply(options.scenario, &engine);
  const Observers transcripts = MakeTranscripts(options);
  for (const auto& transcript : transcripts) engine.AddObserver(transcript.get());
  DeviceServer server(engine, folder.path() + "/engine");
  const int status =
      RunChild(program, options.program, Environment(folder.path() + "/engine", root));
  server.ReleaseEnded();
  if (server.Attached() == 0) {
    std::cerr << "zulisim: warning: '" << program
              << "' never loaded the preload library, so it was not served\n";
  }
  return status;
}

}  // namespace zulisim
