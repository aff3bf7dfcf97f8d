#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "simulator/output/exchange_history.h"

namespace zulisim {

// What the page says of the run. An empty text is left out.
struct ReportHead {
  std::string program;
  std::string instructions;
  std::string version;
  std::string date;
};

// A run, as far as its page shows it.
struct Report {
  // An operation, or a line of the log before it, and what is drawn for it.
  struct Entry {
    OperationRecord record;  // with the beginning of its bytes; of a line, the last one before it
    std::vector<DiagramStep> steps;
    std::uint64_t number = 0;  // in the run, from 1 on
    bool kept = false;
  };
  struct Connection {
    std::string client;
    int descriptor = -1;
    std::chrono::nanoseconds opened{};
    std::uint64_t firstSequence = 0;
    std::size_t operations = 0;
    std::size_t failures = 0;
    std::string end = "open until the end";
  };
  // Over the whole run.
  struct Counts {
    std::uint64_t operations = 0;
    std::uint64_t commands = 0;
    std::uint64_t failedCommands = 0;  // calls of the driver
    std::uint64_t failedOperations = 0;
    std::uint64_t losses = 0;
    std::uint64_t negative = 0;
    std::int64_t sent = 0;
    std::int64_t received = 0;
  };

  ReportHead head;
  std::optional<int> exitStatus;
  Counts counts;
  std::map<std::uint64_t, Connection> connections;
  std::chrono::nanoseconds start{};
  std::chrono::nanoseconds end{};
  std::deque<Entry> entries;
};

// The page in HTML. It refers to nothing outside of itself, and what the report holds is shown as
// text, whatever it says. Throws std::bad_alloc alone. Any thread.
std::string ReportPage(const Report& report);

}  // namespace zulisim
