#include "simulator/control/control_server.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <utility>

#include "common/format.h"
#include "common/input_error.h"
#include "common/text.h"
#include "simulator/scenario/scenario_options.h"

namespace zulisim {
namespace {

constexpr char kDone = '+';
constexpr char kRefused = '-';
constexpr std::size_t kLongestRequest = 4096;

[[noreturn]] void Fail(const std::string& path) {
  throw std::runtime_error(common::Format("cannot create the control socket {}: {}",
                                          common::Quoted(path), std::strerror(errno)));
}

sockaddr_un AddressOf(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof(address.sun_path)) {
    throw std::runtime_error(common::Format(
        "the control socket's path {} is longer than {} characters; serve a file with a shorter "
        "path",
        common::Quoted(path), sizeof(address.sun_path) - 1));
  }
  std::memcpy(address.sun_path, path.data(), path.size());
  return address;
}

int NewSocket(const std::string& path) {
  const int created = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (created < 0) Fail(path);
  return created;
}

// Sends all of the text, because no signal interrupts a thread here and the socket blocks.
bool Send(int connection, const std::string& text) {
  return send(connection, text.data(), text.size(), MSG_NOSIGNAL) >= 0 &&
         shutdown(connection, SHUT_WR) == 0;
}

// Reads until the peer shuts down its side or about `most` bytes have arrived.
std::string Receive(int connection, std::size_t most) {
  std::string text;
  char buffer[1024];
  ssize_t count = 0;
  while (text.size() < most && (count = recv(connection, buffer, sizeof(buffer), 0)) > 0) {
    text.append(buffer, static_cast<std::size_t>(count));
  }
  return text;
}

std::string CountsText(const Engine& engine) {
  std::vector<std::string> counts;
  for (std::size_t i = 0; i < kOperationCount; ++i) {
    const auto operation = static_cast<Operation>(i);
    counts.push_back(common::Counted(engine.Count(operation), OperationName(operation)));
  }
  std::string text = common::Format("{}; {}\n", common::Joined(counts),
                                    common::Counted(engine.OpenDescriptors(), "open descriptor"));
  for (const InstructionCount& count : engine.InstructionCounts()) text += count.Text() + "\n";
  return text;
}

}  // namespace

std::string ControlServer::Ask(const std::string& served, const std::string& request) {
  const std::string path = PathFor(served);
  const sockaddr_un address = AddressOf(path);
  const int connection = NewSocket(path);
  std::string answer;
  if (connect(connection, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0 &&
      Send(connection, request)) {
    answer = Receive(connection, std::string::npos);
  }
  const int error = errno;
  close(connection);
  if (answer.empty()) {
    throw std::runtime_error(common::Format("no zulisim is serving {}: {}: {}",
                                            common::Quoted(served), common::Quoted(path),
                                            std::strerror(error)));
  }
  const std::string text = answer.substr(1);
  if (answer[0] == kRefused) throw common::InputError(common::Quoted(request) + ": " + text);
  return text;
}

ControlServer::ControlServer(const std::string& served, Engine* engine, Check check)
    : path_(PathFor(served)), engine_(engine), check_(std::move(check)), socket_(NewSocket(path_)) {
  try {
    const sockaddr_un address = AddressOf(path_);
    // A server that was killed by SIGKILL leaves its socket behind.
    struct stat status {};
    if (lstat(path_.c_str(), &status) == 0 && S_ISSOCK(status.st_mode)) unlink(path_.c_str());
    // Set the mode before the socket gets its name, so that no other user can ever connect.
    if (fchmod(socket_, 0600) != 0 ||
        bind(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 ||
        listen(socket_, SOMAXCONN) != 0) {
      Fail(path_);
    }
  } catch (...) {
    close(socket_);
    throw;
  }
  thread_ = std::thread([this] { Serve(); });
}

ControlServer::~ControlServer() {
  shutdown(socket_, SHUT_RDWR);
  thread_.join();
  close(socket_);
  unlink(path_.c_str());
}

void ControlServer::Serve() {
  while (true) {
    const int connection = accept4(socket_, nullptr, nullptr, SOCK_CLOEXEC);
    if (connection < 0 && errno == EINVAL) return;  // shut down
    if (connection < 0) continue;
    ServeRequest(connection);
    close(connection);
  }
}

void ControlServer::ServeRequest(int connection) {
  // A client that sends nothing delays other clients, and the end of the server, by at most 2
  // seconds.
  const struct timeval limit { 2, 0 };
  setsockopt(connection, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit));
  setsockopt(connection, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof(limit));
  std::string answer;
  try {
    answer = kDone + Answer(Receive(connection, kLongestRequest));
  } catch (const std::exception& error) {
    answer = kRefused + std::string(error.what());
  }
  Send(connection, answer);
}

void ControlServer::AddFaultFromNow(const FaultKind& kind, const std::string& value) {
  Scenario instruction;
  instruction.clients = engine_->clients();
  AddFault(kind, value, &instruction);
  check_(instruction);
  Fault& fault = instruction.faults.back();
  fault.origin = common::Format("tell {} {}", kind.option, value);
  engine_->Announce(fault.origin);
  engine_->AddFault(fault);
}

std::string ControlServer::Answer(const std::string& request) {
  const auto [word, argument] = common::SplitOnce(request, " ");
  const std::string text = argument.value_or("");
  const bool losesNow = word == "lose" && text.find(':') == std::string::npos;
  std::vector<std::string> known = {"back", "release", "counts"};
  for (const FaultKind& kind : FaultKinds()) {
    known.push_back(kind.option);
    if (kind.option != word || losesNow) continue;
    AddFaultFromNow(kind, text);
    return "";
  }
  if (losesNow) {
    DeviceLoss untilBack;
    untilBack.failingOpens = kForever;
    const DeviceLoss loss = text.empty() ? untilBack : ParseLoss(text, untilBack);
    engine_->Announce("tell " + request);
    engine_->LoseDevice(loss);
  } else if (std::find(known.begin(), known.end(), word) == known.end()) {
    throw common::InputError("unknown instruction; expected " + common::Joined(known));
  } else if (!text.empty()) {
    throw common::InputError("unexpected argument after " + common::Quoted(word));
  } else if (word == "back") {
    engine_->Announce("tell back");
    engine_->RestoreDevice();
  } else if (word == "release") {
    engine_->Announce("tell release");
    const std::size_t count = engine_->ReleaseReplies();
    return common::Counted(count, "reply", "replies") + " released\n";
  } else {
    return CountsText(*engine_);
  }
  return "";
}

}  // namespace zulisim
