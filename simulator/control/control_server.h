#pragma once

#include <functional>
#include <string>
#include <thread>

#include "simulator/engine/engine.h"
#include "simulator/scenario/instruction.h"

namespace zulisim {

// Lets other processes of the same user control an engine while it serves a device. They connect to
// a local socket with mode 0600 beside the served file. A request is one or two words:
//
//   lose [FIELDS]   loses the device now, until "back" or for a number of opens
//   back            lets the next open succeed
//   release         releases the replies that are held
//   counts          returns how often each operation and instruction has happened
//   KIND VALUE      adds a fault of that kind, as in "fault read:1=EIO", which counts from now on
//
// One thread serves the requests one at a time. The engine's observers see each instruction as an
// event, such as "tell lose", just before it takes effect.
class ControlServer {
 public:
  // Throws std::invalid_argument for an instruction that the attachment cannot carry.
  using Check = std::function<void(const Scenario& instruction)>;

  // Returns the path of the control socket, for example "/tmp/zuli.control" for "/tmp/zuli".
  static std::string PathFor(const std::string& served) { return served + ".control"; }
  // Sends a request to the server beside `served` and returns the answer. Throws std::runtime_error
  // when no server listens there, and InputError with the reason when it refuses the request.
  static std::string Ask(const std::string& served, const std::string& request);

  // Does not own the engine, which must outlive the server. Throws std::runtime_error.
  ControlServer(const std::string& served, Engine* engine, Check check);
  // Removes the socket.
  ~ControlServer();
  ControlServer(const ControlServer&) = delete;
  ControlServer& operator=(const ControlServer&) = delete;

 private:
  void Serve();
  void ServeRequest(int connection);
  std::string Answer(const std::string& request);
  void AddFaultFromNow(const FaultKind& kind, const std::string& value);

  const std::string path_;
  Engine* const engine_;
  const Check check_;
  int socket_ = -1;
  std::thread thread_;
};

}  // namespace zulisim
