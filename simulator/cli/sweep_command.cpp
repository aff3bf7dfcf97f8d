#include <unistd.h>

#include <algorithm>
#include <iostream>
#include <map>
#include <memory>
#include <regex>
#include <thread>
#include <utility>

#include <nlohmann/json.hpp>

#include "common/command_line.h"
#include "common/format.h"
#include "common/number.h"
#include "common/text.h"
#include "simulator/cli/commands.h"
#include "simulator/cli/options.h"
#include "simulator/output/output_file.h"
#include "simulator/program/program.h"
#include "simulator/sweep/sweep_plan.h"
#include "simulator/sweep/sweep_run.h"

namespace zulisim {
namespace {

using common::Format;
using Json = nlohmann::json;
using std::chrono::nanoseconds;
using std::chrono::seconds;

constexpr const char* kSweepFooter = R"(zulisim-sweep(1) explains the faults and the verdicts.

Examples:
  zulisim sweep ./driver
  zulisim sweep --faults lost,gone --operations 3-8,close ./driver
  zulisim sweep --strict --json sweep.json --scenario flaky.toml ./driver --verbose

Exit status: 0 without a crash or hang, 1 with one (with --strict also for unnoticed faults and
leaked descriptors), 125 if the sweep is not possible, 130 after Ctrl-C.)";

struct SweepOptions {
  std::vector<std::string> program, faults, operations;
  Scenario scenario;
  std::optional<std::uint32_t> timeout, jobs;
  std::string json, device;
  bool strict = false, allowFailure = false;
};

struct SweepResult {
  SweepFault fault;
  Verdict verdict = Verdict::kRecovered;
  int status = 0;  // exit status of the run
};

class Sweep {
 public:
  explicit Sweep(const SweepOptions& options) : options_(options), runner_(folder_.path()) {}

  int Run() {
    reference_ = RunReference();
    const SweepOutcome second = RunReference();
    compareOutput_ = reference_.output == second.output;
    if (!compareOutput_) {
      text_ << "The output differs from run to run, so only exit statuses are compared.\n";
    }
    const bool isVaried = reference_.operations.size() != second.operations.size();
    if (isVaried) {
      text_ << "The number of operations differs from run to run, so faults of reads and writes "
               "are bound to client and command.\n";
    }
    RunAll(PlanSweep(reference_.operations, options_.faults, options_.operations, isVaried));
    text_ << Table() << Findings() << std::flush;
    const auto limit = options_.strict ? Verdict::kLeaked : Verdict::kHung;
    const bool failed = std::any_of(results_.begin(), results_.end(),
                                    [=](const auto& each) { return each.second.verdict <= limit; });
    if (!WriteJson()) return kOwnFailure;
    return runner_.Signal() != 0 ? 128 + runner_.Signal() : failed ? 1 : 0;
  }

 private:
  SweepOutcome RunReference() {
    const nanoseconds start = Now();
    runner_.Start(0, WordsFor(""), seconds(options_.timeout.value_or(60)));
    const auto outcome = runner_.Wait();
    if (!outcome) throw ProgramError(128 + runner_.Signal(), "the sweep was interrupted");
    limit_ = options_.timeout ? nanoseconds(seconds(*options_.timeout))
                              : std::max<nanoseconds>(seconds(2), 10 * (Now() - start));
    const char* problem =
        outcome->timedOut ? "the program does not end without a fault; use a longer --timeout"
        : outcome->status != 0 && !options_.allowFailure
            ? "the program fails without a fault; fix it, or use --allow-failure"
        : outcome->operations.empty() ? "nothing to sweep: the program does not use the device"
                                      : nullptr;
    if (problem == nullptr) return *outcome;
    throw std::runtime_error(Format("{} (exit status {}). Its output:\n{}{}", problem,
                                    outcome->status, outcome->output, outcome->messages));
  }

  void RunAll(const std::vector<SweepFault>& plan) {
    if (plan.empty()) throw std::runtime_error("nothing to sweep: no fault fits the operations");
    const std::size_t jobs =
        options_.jobs.value_or(std::max(1U, std::thread::hardware_concurrency()));
    const nanoseconds start = Now();
    unsigned findings = 0;
    for (std::size_t next = 0; results_.size() < plan.size();) {
      for (; next < plan.size() && runner_.Running() < jobs; ++next) {
        runner_.Start(next, WordsFor(plan[next].option), limit_);
      }
      const auto outcome = runner_.Wait();
      if (!outcome) break;
      const SweepFault& fault = plan[outcome->id];
      const Verdict verdict = Compare(reference_, *outcome, fault.option, compareOutput_);
      results_[outcome->id] = {fault, verdict, outcome->status};
      findings += verdict <= Verdict::kLeaked ? 1 : 0;
      const std::size_t done = results_.size();
      ShowProgress(Format("{} of {} runs, {}, {} s left", done, plan.size(),
                          common::Counted(findings, "finding"),
                          (Now() - start) * (plan.size() - done) / done / seconds(1)));
    }
    ShowProgress("");
  }

  static void ShowProgress(const std::string& text) {
    if (isatty(STDERR_FILENO) != 0) std::cerr << "\r\033[K" << text << std::flush;
  }

  // The options of a run with one fault, and the program. `fault` may be empty.
  std::vector<std::string> WordsFor(const std::string& fault) const {
    std::vector<std::string> words = {"run"};
    if (!options_.device.empty()) words.insert(words.end(), {"--device", options_.device});
    std::vector<std::string> instructions = options_.scenario.instructions;
    if (!fault.empty()) instructions.push_back(fault);
    for (const std::string& instruction : instructions) {
      const auto [option, value] = common::SplitOnce(instruction, " ");
      words.insert(words.end(), {option, value.value_or("")});
    }
    words.emplace_back("--");
    words.insert(words.end(), options_.program.begin(), options_.program.end());
    return words;
  }

  // The command line as a shell reads it.
  std::string CommandFor(const SweepResult& result) const {
    static const std::regex plain("[-A-Za-z0-9_./:=,@%+]+"), quote("'");
    std::string text = "zulisim";
    for (const std::string& word : WordsFor(result.fault.option)) {
      const bool isPlain = std::regex_match(word, plain);
      text += " " + (isPlain ? word : "'" + std::regex_replace(word, quote, "'\\''") + "'");
    }
    return text;
  }

  std::string Table() const {
    constexpr const char* kForm = "\n{:>4}  {:<6} {:<7} {:<10}";
    std::string header = Format(kForm, "#", "kind", "client", "command").substr(1);
    for (const std::string& name : SweepFaultNames()) header += " " + name;
    std::string text = header, row;
    std::size_t shown = reference_.operations.size();
    for (const auto& [index, result] : results_) {
      const std::size_t operation = result.fault.operation;
      if (operation != std::exchange(shown, operation)) {
        const OperationRecord& record = reference_.operations[operation];
        text += std::exchange(
            row, Format(kForm, operation + 1, OperationName(record.operation), record.client,
                        record.commandId ? common::Hex(*record.commandId) : ""));
      }
      const std::size_t column =
          header.find(" " + result.fault.name) + (result.fault.repeated ? 3 : 2);
      row.resize(std::max(row.size(), column), ' ');
      row += "CHULr.-"[static_cast<int>(result.verdict)];
    }
    return text + row +
           "\n\nEach cell shows two runs: with the fault once, and with the fault from that "
           "operation on.\n"
           "C crashed, H hung, U unnoticed, L leaked, r reported, . recovered, - not reached\n\n";
  }

  std::string Findings() const {
    std::string text;
    std::string totals = common::Counted(results_.size(), "run");
    for (std::size_t i = 0; i < std::size(kVerdictNames); ++i) {
      std::size_t count = 0;
      for (const auto& [index, result] : results_) {
        if (static_cast<std::size_t>(result.verdict) != i) continue;
        ++count;
        if (result.verdict > Verdict::kLeaked) continue;
        text += Format("{}: {} {} operation {}, exit status {}\n  {}\n", kVerdictNames[i],
                       result.fault.name, result.fault.repeated ? "from" : "at",
                       result.fault.operation + 1, result.status, CommandFor(result));
      }
      if (count != 0) totals += Format(", {} {}", count, kVerdictNames[i]);
    }
    return text + totals + "\n";
  }

  bool WriteJson() const {
    if (options_.json.empty()) return true;
    Json runs = Json::array();
    for (const auto& [index, result] : results_) {
      const OperationRecord& record = reference_.operations[result.fault.operation];
      runs.push_back({{"operation", result.fault.operation + 1},
                      {"kind", OperationName(record.operation)},
                      {"client", record.client.empty() ? Json() : Json(record.client)},
                      {"command", record.commandId ? Json(common::Hex(*record.commandId)) : Json()},
                      {"fault", result.fault.name},
                      {"repeated", result.fault.repeated},
                      {"verdict", kVerdictNames[static_cast<int>(result.verdict)]},
                      {"status", result.status},
                      {"run", CommandFor(result)}});
    }
    OutputFile file("JSON file", options_.json);
    file.Write(runs.dump(1, ' ', false, Json::error_handler_t::replace) + "\n");
    return file.Close();
  }

  const SweepOptions& options_;
  std::ostream& text_ = options_.json == "-" ? std::cerr : std::cout;
  const TemporaryFolder folder_;
  SweepRunner runner_;
  SweepOutcome reference_;
  nanoseconds limit_{};  // of each run
  bool compareOutput_ = true;
  std::map<std::size_t, SweepResult> results_;  // by position in the plan
};

}  // namespace

void DefineSweep(common::Command* program) {
  common::Command* command = program->AddCommand(
      "sweep",
      "Runs a program with each fault at each of its operations, and shows where it fails badly.",
      kSweepFooter);
  const auto options = std::make_shared<SweepOptions>();
  command->AddList("--faults", &options->faults, "NAME,...",
                   "Try only these faults: " + common::Joined(SweepFaultNames()),
                   SweepFaultNames());
  command->AddList("--operations", &options->operations, "WHICH,...",
                   "Try only these operations: 3, 5-8, 9-, or a kind such as read");
  command->AddNumber("--timeout", &options->timeout,
                     "End a run after N seconds (default: 2, or 10 times a run without a fault)");
  command->AddNumber("--jobs", &options->jobs, "Run N at a time (default: one per processor)");
  command->AddFile("--json", &options->json,
                   "Write the results to FILE as JSON; with -, the table goes to standard error");
  command->AddFlag("--strict", &options->strict, "Fail also for unnoticed faults and leaks");
  command->AddFlag("--allow-failure", &options->allowFailure,
                   "Continue if the program fails without a fault");
  AddDeviceOption(command, &options->device);
  AddInstructionOptions(command, &options->scenario, nullptr);
  command->TakeProgram(&options->program);
  command->SetAction([=] {
    if (options->timeout == 0U || options->jobs == 0U) {
      throw common::UsageError(Format("{}: 0 is too small; use 1 or more",
                                      options->jobs == 0U ? "--jobs" : "--timeout"));
    }
    PlanSweep({}, options->faults, options->operations, false);  // refuses unknown words early
    CheckOutputs({{"--json", options->json}}, InputFiles(options->scenario));
    return Sweep(*options).Run();
  });
}

}  // namespace zulisim
