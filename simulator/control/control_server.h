#pragma once

#include <functional>
#include <string>
#include <thread>

#include "simulator/engine/engine.h"
#include "simulator/scenario/instruction.h"
#include "simulator/scenario/scenario.h"

namespace zulisim {

// Lets other processes of the same user tell an engine things while it serves: through a local
// socket beside the served file, with mode 0600. A request is one or two words:
//
//   lose [FIELDS]       the device is lost now, until "back" or for so many opens
//   lose PLACE[,FIELDS] it will be lost there
//   back                the next open finds it again
//   fault PLACE=ERRNO
//   short PLACE=BYTES
//   release             replies that are held go
//   counts              what has happened
//
// with PLACE and FIELDS as in the options, but counted from now on.
class ControlServer {
 public:
  // Throws InputError for what the attachment does not carry.
  using Check = std::function<void(const Scenario&)>;

  // "/tmp/zuli.control" for what is served at "/tmp/zuli".
  static std::string PathFor(const std::string& served) { return served + ".control"; }
  // Sends a request to whoever serves at `served` and returns the answer. Throws
  // std::runtime_error when nobody does, and InputError with what is said against the request.
  static std::string Ask(const std::string& served, const std::string& request);

  // `scenario` is what `engine` was told so far, and gets what it is told. Neither is owned; the
  // former is not to be touched before the end of this object. Throws std::runtime_error.
  ControlServer(const std::string& served, Engine* engine, Scenario* scenario, Check check);
  ~ControlServer();
  ControlServer(const ControlServer&) = delete;
  ControlServer& operator=(const ControlServer&) = delete;

 private:
  void Serve();
  void Attend(int connection);
  std::string Answer(const std::string& request);
  void Add(const FaultKind& kind, const std::string& text);

  const std::string path_;
  Engine* const engine_;
  Scenario* const scenario_;
  const Check check_;
  int socket_ = -1;
  int stop_ = -1;
  std::thread thread_;
};

}  // namespace zulisim
