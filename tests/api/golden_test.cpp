// Compares what the library does with transcripts.txt. There, "# ..." begins a section with a fresh
// state, "> ...; ... = ..." are steps of the device (as options of zulisim) and of a driver, and
// the result of the last one if it is not 0 with the recorded error, "| FUNCTION: ... | ..." are
// log lines, and "<...>" is a device operation. "(name)" stands for the lines that follow "#
// (name)". The test performs the steps and must produce the whole file. Tags that are fixed numbers
// are not replaced. KALODLL_GOLDEN_WRITE=1 rewrites the file.

#include <algorithm>
#include <fstream>
#include <iterator>
#include <regex>
#include <sstream>
#include <tuple>

#include "simulator/scenario/scenario_options.h"
#include "tests/api/calls.h"
#include "transport/cp_drem_session.h"

namespace test {
namespace {

const std::string kLongText(2000, 'x');

class Golden : public CallsTest {
 protected:
  Golden() {
    traced = true;
    sink->onLine();
  }

  // Returns the line of the file, or for a step the line with its result and transcript.
  std::string Reproduce(const std::string& line) {
    if (line.rfind("# (", 0) == 0) {
      common_.emplace_back(line.substr(2) + "\n", "");
      defines_ = true;
    } else if (line[0] == '#') {
      defines_ = false;
      fresh_.Restore();
      engine.LoseDevice({0, ENODEV, true});  // drops unread replies
    } else if (defines_ && !line.empty()) {
      common_.back().second += line + "\n";
    } else if (line[0] == '>') {
      return Do(line);
    }
    return defines_ || line.empty() || line[0] == '#' ? line + "\n" : "";
  }

 private:
  std::string Do(const std::string& line) {
    const std::string steps = line.substr(2, std::min(line.find(" = "), line.find(" (")) - 2);
    std::istringstream text(steps);
    std::string result;
    for (std::string step; std::getline(text, step, ';');) result = DoStep(step);
    const std::string transcript = TakeTranscript();
    const bool named = transcript[0] == '(' && transcript.find('\n') == transcript.size() - 1;
    return "> " + steps + (result == "0" ? "" : " = " + result) + (named ? " " : "\n") + transcript;
  }

  bool Has(const std::string& word) const {
    return std::find(words_.begin(), words_.end(), word) != words_.end();
  }

  // Returns the result of a call, or "0".
  std::string DoStep(const std::string& step) {
    std::istringstream text(step);
    words_ = {std::istream_iterator<std::string>(text), {}};
    for (const zulisim::InstructionOption& option : zulisim::InstructionOptions()) {
      if (option.name != words_[0]) continue;
      zulisim::Scenario scenario;
      option.add(words_[1], &scenario);
      Apply(scenario, &engine);
      return "0";
    }
    if (words_[0] == "damage") {
      state.kaloInterfaceVersion = 1;
      return "0";
    }
    if (words_[0] == "throw") {
      injected = {Has("connect") ? Point::kConnectClient : Point::kDisconnectAllClients,
                  Has("own")    ? "refused"
                  : Has("long") ? kLongText.c_str()
                                : nullptr};
      return "0";
    }
    return Call();
  }

  // Uses the handle from the last initialisation. Further words name the command, a tag and the
  // defects of the call.
  std::string Call() {
    const bool numbered = words_.size() > 1 && words_[1].rfind("0x", 0) == 0;
    const auto* tag = std::find_if(std::begin(kTags) + 1, std::end(kTags),
                                   [this](const Tag& each) { return Has(each.data); });
    Arguments arguments(numbered ? static_cast<uint32_t>(std::stoul(words_[1], nullptr, 16)) : 0x10,
                        tag != std::end(kTags) ? *tag : kTags[0]);
    arguments.used = static_cast<ClientSession*>(handle_);
    for (const Defect& defect : kDefects) {
      if (Has(defect.name)) defect.apply(arguments);
    }
    if (words_[0] == "CpDremSession::SendIoctlToZuli") {
      return Thrown([&] { arguments.used->dremSessions[0]->SendIoctlToZuli(1, nullptr); });
    }
    const auto* call = std::find_if(std::begin(kCalls), std::end(kCalls),
                                    [this](const auto& each) { return each.name == words_[0]; });
    if (call == std::end(kCalls)) return "no such call";
    const KALO_DLL_STATUS status = call->make(arguments);
    if (arguments.handle != Arguments::kUnwritten) handle_ = arguments.handle;
    if (status == KALO_DLL_STATUS_SUCCESS) return "0";
    const uint32_t codes[] = {0, state.apiErrorCode, state.kaloErrorCode, state.fenuErrorCode};
    return std::to_string(status) + ", source " + std::to_string(state.lastErrorSource) +
           ", code " + Hex(codes[state.lastErrorSource]);
  }

  // Returns the lines since the last step, with names for addresses and descriptors.
  std::string TakeTranscript() {
    static const std::regex fixed("^(KaloInit|KaloCleanup|StartIoEx|Fenu[A-Za-z]+3?):[0-9]+: ");
    static const std::regex tagged("^([^:|<]*):[0-9]+: ");
    std::string transcript;
    for (std::string line : TakeRaw()) {
      line = std::regex_replace(std::regex_replace(line, fixed, "| $&"), tagged, "| $1: ");
      Replace(line, "FD: " + std::to_string(opened), "FD: (descriptor)");
      Replace(line, "fd = " + Hex(opened) + ",", "fd = (descriptor),");
      Replace(line, kLongText, "(long text)");
      const _GUID *const kalo = &ClientSession::KALO_CLIENT_GUID,
                         *const display = &ClientSession::FENU_CLIENT_GUID;
      for (const auto& [session, client, name] :
           {std::tuple(state.kaloSessionA, kalo, "(session A)"),
            std::tuple(state.kaloSessionB, kalo, "(session B)"),
            std::tuple(state.fenuSession, display, "(display)")}) {
        const auto open = connected.find(session);
        // A field can still hold the address of a closed session, where another client's is now.
        if (open != connected.end() && open->second != client) continue;
        if (session != nullptr) Replace(line, Hex(session), name);
      }
      Replace(line, ": " + Hex<void*>(nullptr), ": 0");  // differs between standard libraries
      if (line.back() == '\n') line.replace(line.size() - 1, 1, "\\n");
      transcript += line + "\n";
    }
    for (const auto& [name, lines] : common_) Replace(transcript, lines, name);
    return Joined(transcript);
  }

  // Joins consecutive lines of one function, and consecutive operations and names, up to a width.
  static std::string Joined(const std::string& transcript) {
    constexpr size_t kWidth = 100;
    std::string joined, line, function;
    std::istringstream lines(transcript);
    for (std::string next; std::getline(lines, next);) {
      const bool logged = next[0] == '|';
      const std::string same = logged ? next.substr(0, next.find(':') + 1) : "";
      const std::string rest =
          logged ? " | " + next.substr(next.find_first_not_of(' ', same.size())) : " " + next;
      if (!line.empty() && same == function && line.size() + rest.size() <= kWidth) {
        line += rest;
      } else {
        joined += line + (line.empty() ? "" : "\n");
        line = next;
        function = same;
      }
    }
    return joined + line + (line.empty() ? "" : "\n");
  }

  template <typename Value>
  static std::string Hex(Value value) {
    std::ostringstream text;
    text << std::hex << value;
    return text.str();
  }

  static void Replace(std::string& text, const std::string& from, const std::string& to) {
    for (size_t at = 0; (at = text.find(from, at)) != text.npos; at += to.size()) {
      text.replace(at, from.size(), to);
    }
  }

  const StateSnapshot fresh_;
  std::vector<std::string> words_;
  void* handle_ = nullptr;
  std::vector<std::pair<std::string, std::string>> common_;  // names and lines
  bool defines_ = false;
};

TEST_F(Golden, matches_the_transcripts) {
  std::ifstream file(TRANSCRIPTS);
  std::string before, now;
  for (std::string line; std::getline(file, line);) {
    before += line + "\n";
    now += Reproduce(line);
  }
  if (getenv("KALODLL_GOLDEN_WRITE") != nullptr) std::ofstream(TRANSCRIPTS) << now;
  EXPECT_EQ(now, before);
}

}  // namespace
}  // namespace test
