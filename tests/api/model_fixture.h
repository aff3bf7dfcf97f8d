#pragma once

#include <algorithm>
#include <set>
#include <sstream>

#include "tests/api/model_calls.h"

namespace test {

inline zulisim::EngineOptions ModelOptions() {
  zulisim::EngineOptions options;
  options.keepRecords = false;
  for (zulisim::Client& client : options.clients) {
    client.maxMessageLength = 0x1ab;
    client.protocolVersion = 'A';  // must print as a number
  }
  return options;
}

class ModelTest : public LibraryTest, protected zulisim::OperationObserver {
 protected:
  ModelTest() : LibraryTest(ModelOptions()) {
    engine.AddObserver(this);
    for (const char* client : {"KALO", "FENU"}) {
      // Whole, also to a request that was cut.
      engine.SetResponder(client, [this](const Bytes&) {
        return negative
                   ? zulisim::Reply{Message(0x10, 32, 0x80000001, 0xfedc1, 0xabc), Bytes(16, 'p')}
                   : zulisim::Reply{Message(0x10), {}};
      });
    }
    // Numbers that decimal and hexadecimal write differently.
    while (dup(STDERR_FILENO) < 20) {
    }
  }

  ~ModelTest() override { engine.RemoveObserver(this); }

  // Log lines and device operations stand in one transcript, as they happened.
  void OnOperation(const zulisim::OperationRecord& record) override {
    Add("<" + std::string(OperationName(record.operation)) +
        (record.client.empty() ? "" : " " + record.client) +
        (record.result != -1 ? "" : " " + zulisim::ErrnoName(record.error)) + ">");
    operations.push_back(record.operation);
    if (record.operation == zulisim::Operation::kOpen && record.result != -1) {
      open_.insert(record.descriptor);
    }
    if (record.operation == zulisim::Operation::kClose) open_.erase(record.descriptor);
  }

  // Runs a sequence from a fresh state; tells the first difference, if any.
  std::optional<std::string> Run(const Sequence& sequence) {
    Start();
    Model model(traced);
    std::string difference;
    for (size_t i = 0; i < sequence.size() && difference.empty(); ++i) {
      difference = RunStep(model, sequence[i]);
      if (!difference.empty()) difference = "step " + std::to_string(i + 1) + ": " + difference;
    }
    if (difference.empty()) difference = Inspect(model);
    Reset(model);
    return difference.empty() ? std::nullopt : std::optional(difference);
  }

  void Start() {
    TakeRaw();
    sink->onLine = [this] {
      Logger::logBase.level = traced ? 100 : 0;
      errno = 7777;  // no sink may disturb what the library reads
    };
    sink->onLine();
  }

  // Says how many descriptors were left open. That is part of the contract; the runs must not
  // starve of them.
  size_t Reset(Model& model) {
    engine.ClearFaults();
    trap = {};
    // By the fields first: where the model and the library differ, the library knows.
    const std::set<const void*> kept = {state.kaloSessionA, state.kaloSessionB, state.fenuSession};
    state.kaloRefCountA = state.kaloRefCountB = 1;
    state.fenuRefCount = 0;
    KaloCleanup();
    FenuCleanup();
    for (const auto& session : model.sessions) {
      if (session->live && kept.count(session->address) == 0) {
        SessionCleanup(const_cast<void*>(session->address));
      }
    }
    const std::set<int> leaked = open_;
    for (const int descriptor : leaked) close(descriptor);
    engine.LoseDevice();  // and with it what waits for the next connection
    fresh_.Restore();
    return leaked.size();
  }

  std::string RunStep(Model& model, const Step& step) {
    model.Begin();
    model.negative = negative;
    model.faults = step.faults;
    model.trap = trap = step.trap;
    engine.ClearFaults();
    operations.clear();
    for (const auto& [operation, first, times, error] : step.faults) {
      zulisim::FaultEffect effect = zulisim::ErrnoFault{error};
      if (error == ENODEV) effect = zulisim::DeviceLoss{};
      if (error == kShort) effect = zulisim::ShortCount{kShortCount};
      engine.AddFault({operation, Count(operation) + 1 + first, times, effect});
    }
    const auto& [name, make, predict] = kCalls[step.call];
    Arguments arguments(model, step);
    const unsigned lengthBefore = arguments.privateLength;
    const uint32_t actual = Act(make, arguments);
    const uint32_t expected = ModelTest::Act(predict, arguments);
    size_t sinks = 0;  // the log file's: they would grow with every step
    for (auto& all = Logger::logBase.sinks; all.size() > 1; ++sinks) {
      delete all.back();
      all.pop_back();
      all.shrink_to_fit();  // so that the next one needs memory
    }
    std::ostringstream text;
    Differs(text, "status", expected, actual);
    if (expected != actual) return text.str();
    Differs(text, "number of new sinks", model.sinks, sinks);
    Differs(text, "length of private data",
            model.privateLength != 0 ? model.privateLength : lengthBefore, arguments.privateLength);
    if (std::strstr(name, "Init3") != nullptr) {
      Differs(text, "handle", model.handle, static_cast<const void*>(arguments.handle));
    }
    CompareTold(text, model.told);
    CompareState(text, model);
    return text.str();
  }

  // The status, or the exception that passed.
  virtual uint32_t Act(const Made& make, Arguments& arguments) {
    try {
      return make(arguments);
    } catch (int escaped) {
      return static_cast<uint32_t>(escaped);
    }
  }

  // What else there is to see at the end of a sequence; a difference, if any.
  virtual std::string Inspect(const Model&) { return ""; }

  bool traced = false;
  bool negative = false;
  std::vector<zulisim::Operation> operations;  // of the last call

 private:
  template <typename Wanted, typename Found>
  static void Differs(std::ostream& text, const char* what, const Wanted& wanted,
                      const Found& found) {
    if (!(wanted == found)) text << what << " is " << found << ", not " << wanted << "; ";
  }

  void CompareTold(std::ostream& text, const Lines& expected) {
    const Lines told = TakeRaw();
    const auto alike = [](const std::string& found, const std::string& wanted) {
      return found.compare(0, wanted.size(), wanted) == 0 &&
             (found.size() == wanted.size() || found[wanted.size()] == ':');
    };
    const auto [found, wanted] =
        std::mismatch(told.begin(), told.end(), expected.begin(), expected.end(), alike);
    const std::string nothing = "nothing";
    if (found == told.end() && wanted == expected.end()) return;
    Differs(text, "a line", wanted == expected.end() ? nothing : *wanted,
            found == told.end() ? nothing : *found);
  }

  void CompareState(std::ostream& text, Model& model) {
    const auto pointer = [](const Model::Session* session) {
      return static_cast<ClientSession*>(const_cast<void*>(Model::AddressOf(session)));
    };
    model.want->kaloSessionA = pointer(model.a);
    model.want->kaloSessionB = pointer(model.b);
    model.want->fenuSession = pointer(model.fenu);
    for (const std::string& field : model.want.Changed()) text << field << " is not as it should; ";
    Differs(text, "open descriptors", model.descriptors, engine.OpenDescriptors());
    for (const auto& session : model.sessions) {
      if (!session->live) continue;
      const auto* real = static_cast<const ClientSession*>(session->address);
      Differs(text, "lastErrorStatus", session->errorStatus, real->lastErrorStatus);
      Differs(text, "lastErrorText", session->errorText,
              std::string(real->lastErrorText, session->errorText.size()));
    }
  }

  const StateSnapshot fresh_;
  std::set<int> open_;
};

}  // namespace test
