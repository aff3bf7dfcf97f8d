#include "simulator/control/control_server.h"

#include <poll.h>
#include <sys/eventfd.h>
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

[[noreturn]] void Fail(const std::string& path, const std::string& what) {
  throw std::runtime_error("the socket '" + path + "' " + what + ": " + std::strerror(errno));
}

sockaddr_un AddressOf(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof(address.sun_path)) {
    throw std::runtime_error("the name '" + path + "' is too long for a socket: at most " +
                             std::to_string(sizeof(address.sun_path) - 1) +
                             " characters are possible; serve a file with a shorter name");
  }
  std::memcpy(address.sun_path, path.data(), path.size());
  return address;
}

int NewSocket(const std::string& path) {
  const int made = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (made < 0) Fail(path, "cannot be made");
  return made;
}

bool Send(int connection, const std::string& text) {
  std::size_t sent = 0;
  while (sent < text.size()) {
    const ssize_t count = send(connection, text.data() + sent, text.size() - sent, MSG_NOSIGNAL);
    if (count < 0) return false;
    sent += static_cast<std::size_t>(count);
  }
  return shutdown(connection, SHUT_WR) == 0;
}

// All that the other side says, as far as it is `most` bytes.
std::string Receive(int connection, std::size_t most) {
  std::string text;
  char buffer[1024];
  ssize_t count = 0;
  while (text.size() < most && (count = recv(connection, buffer, sizeof(buffer), 0)) > 0) {
    text.append(buffer, static_cast<std::size_t>(count));
  }
  return text;
}

std::string CountsText(const Scenario& scenario, const Engine& engine) {
  std::string text;
  for (std::size_t i = 0; i < kOperationCount; ++i) {
    const auto operation = static_cast<Operation>(i);
    text +=
        (i == 0 ? "" : ", ") + common::Counted(engine.Count(operation), OperationName(operation));
  }
  text += "; " + common::Counted(engine.OpenDescriptors(), "open descriptor") + "\n";
  for (const std::string& line : TallyLines(scenario, engine, false)) text += line + "\n";
  return text;
}

}  // namespace

std::string ControlServer::Ask(const std::string& served, const std::string& request) {
  const std::string path = PathFor(served);
  const sockaddr_un address = AddressOf(path);
  const int asked = NewSocket(path);
  std::string answer;
  if (connect(asked, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0 &&
      Send(asked, request)) {
    answer = Receive(asked, std::string::npos);
  }
  const int error = errno;
  close(asked);
  if (answer.empty()) {
    throw std::runtime_error("'" + served + "' cannot be told anything ('" + path +
                             "': " + std::strerror(error) +
                             "); name what a 'zulisim serve' of your own serves");
  }
  if (answer[0] == kRefused) throw common::InputError(answer.substr(1));
  return answer.substr(1);
}

ControlServer::ControlServer(const std::string& served, Engine* engine, Scenario* scenario,
                             Check check)
    : path_(PathFor(served)),
      engine_(engine),
      scenario_(scenario),
      check_(std::move(check)),
      socket_(NewSocket(path_)) {
  try {
    const sockaddr_un address = AddressOf(path_);
    // SIGKILL leaves the socket of a server behind.
    struct stat status {};
    if (lstat(path_.c_str(), &status) == 0 && S_ISSOCK(status.st_mode)) unlink(path_.c_str());
    // Before the name is there, so that nobody else ever reaches it.
    if (fchmod(socket_, 0600) != 0) Fail(path_, "cannot be made");
    if (bind(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 ||
        listen(socket_, SOMAXCONN) != 0) {
      Fail(path_, "to be told things through cannot be made");
    }
  } catch (...) {
    close(socket_);
    throw;
  }
  stop_ = eventfd(0, EFD_CLOEXEC);
  thread_ = std::thread([this] { Serve(); });
}

ControlServer::~ControlServer() {
  eventfd_write(stop_, 1);
  thread_.join();
  close(stop_);
  close(socket_);
  unlink(path_.c_str());
}

void ControlServer::Serve() {
  while (true) {
    struct pollfd entries[] = {{socket_, POLLIN, 0}, {stop_, POLLIN, 0}};
    if (poll(entries, 2, -1) < 0 && errno != EINTR) return;
    if (entries[1].revents != 0) return;
    if (entries[0].revents == 0) continue;
    const int connection = accept4(socket_, nullptr, nullptr, SOCK_CLOEXEC);
    if (connection < 0) continue;
    Attend(connection);
    close(connection);
  }
}

void ControlServer::Attend(int connection) {
  // One that says nothing holds up the others, and the end, no longer than this.
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

void ControlServer::Add(const FaultKind& kind, const std::string& text) {
  Scenario changed = *scenario_;
  AddFault(kind, text, &changed);
  check_(changed);
  Fault* fault = &changed.faults.back();
  fault->origin = common::Format("tell {} {}", kind.option, text);
  engine_->AddFaultFromNow(*fault);
  *scenario_ = std::move(changed);
}

std::string ControlServer::Answer(const std::string& request) {
  const std::size_t end = request.find(' ');
  const std::string word = request.substr(0, end);
  const std::string text = end == std::string::npos ? "" : request.substr(end + 1);
  const bool losesNow = word == "lose" && text.find(':') == std::string::npos;
  std::vector<std::string> known = {"back", "release", "counts"};
  for (const FaultKind& kind : FaultKinds()) {
    known.push_back(kind.option);
    if (kind.option != word || losesNow) continue;
    Add(kind, text);
    return "";
  }
  if (losesNow) {
    DeviceLoss untilBack;
    untilBack.failingOpens = kForever;
    engine_->LoseDevice(text.empty() ? untilBack : ParseLoss(text, untilBack));
  } else if (std::find(known.begin(), known.end(), word) == known.end()) {
    throw common::InputError(common::Format("unknown instruction {}; expected {}",
                                            common::Quoted(word), common::Joined(known)));
  } else if (!text.empty()) {
    throw common::InputError(common::Format("unexpected argument {} after {}", common::Quoted(text),
                                            common::Quoted(word)));
  } else if (word == "back") {
    engine_->RestoreDevice();
  } else if (word == "release") {
    const std::size_t count = engine_->ReleaseReplies();
    return common::Counted(count, "reply", "replies") + " released\n";
  } else {
    return CountsText(*scenario_, *engine_);
  }
  return "";
}

}  // namespace zulisim
