// Tests 'zulisim tell' in one process: several clients instruct the engine while a program uses it.

#include <sys/socket.h>
#include <sys/un.h>

#include "simulator/control/control_server.h"
#include "tests/support/descriptors.h"
#include "tests/support/standard_headers.h"

namespace zulisim {
namespace {

class ControlTest : public testing::Test, public OperationObserver {
 protected:
  ~ControlTest() override {
    EXPECT_EQ(access(ControlServer::PathFor(path_).c_str(), F_OK), -1) << "the socket is left";
    EXPECT_EQ(test::OpenDescriptors(), descriptors_);
  }
  void OnOperation(const OperationRecord&) override {}
  void OnDeviceEvent(const DeviceEvent& event) override { events_ += event.text + "; "; }

  // Returns the answer to a request, or the error. First starts a server at `served`, if given.
  std::string Tell(const std::string& request, const std::string& served = "") {
    try {
      std::optional<ControlServer> server;
      if (!served.empty()) server.emplace(served, &engine_, [](const Scenario&) {});
      return ControlServer::Ask(path_, request);
    } catch (const std::exception& error) {
      return error.what();
    }
  }

  const long descriptors_ = test::OpenDescriptors();
  const std::string path_ = "/tmp/control_test." + std::to_string(getpid());
  Engine engine_{{{Client{"PROBE", DefaultClients()[0].guid}}}};
  std::string events_;
};

TEST_F(ControlTest, instructs_the_engine_while_it_is_used) {
  const auto refuse_ioctl = [](const Scenario& added) {
    if (added.faults.at(0).operation == Operation::kIoctl) throw std::invalid_argument("refused");
  };
  std::optional<ControlServer> server(std::in_place, path_, &engine_, refuse_ioctl);
  const int silent = socket(AF_UNIX, SOCK_STREAM, 0);  // delays the others by 2 seconds
  struct sockaddr_un address = {AF_UNIX, {}};
  ControlServer::PathFor(path_).copy(address.sun_path, sizeof(address.sun_path) - 1);
  const int gone = socket(AF_UNIX, SOCK_STREAM, 0);  // does not wait for its answer
  for (const int client : {silent, gone}) {
    EXPECT_EQ(connect(client, reinterpret_cast<struct sockaddr*>(&address), sizeof(address)), 0);
  }
  close(gone);
  struct stat status {};
  ASSERT_EQ(stat(ControlServer::PathFor(path_).c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0600u);

  const auto instruct = [this] {
    for (int i = 0; i < 40; ++i) EXPECT_EQ(Tell("fault close:1=EIO"), "");
  };
  std::thread clients[] = {std::thread(instruct), std::thread(instruct), std::thread(instruct)};
  for (int i = 0; i < 200; ++i) {
    const Result opened = engine_.Open(O_RDWR, 0, -1);
    engine_.Close(static_cast<std::uint64_t>(opened.value), CloseReason::kProgramClosed);
  }
  for (std::thread& client : clients) client.join();
  close(silent);

  EXPECT_EQ(Tell("fault open:2=EACCES"), "");
  EXPECT_EQ(engine_.Open(O_RDWR, 0, -1).error, 0);
  EXPECT_EQ(engine_.Open(O_RDWR, 0, -1).error, EACCES);
  const std::regex counts(
      "202 opens, 0 ioctls, 0 reads, 0 writes, 200 closes; 1 open descriptor\n"
      "(tell fault close:1=EIO: .* in \\d+ closes?\n){120}"
      "tell fault open:2=EACCES: happened 1 time in 2 opens\n");
  EXPECT_TRUE(std::regex_match(Tell("counts"), counts)) << Tell("counts");
  EXPECT_EQ(Tell("fault ioctl:1=EIO"), "'fault ioctl:1=EIO': refused");
  EXPECT_EQ(Tell("fault read:1@fenu=EIO"),
            "'fault read:1@fenu=EIO': unknown client 'fenu'; expected PROBE");
  EXPECT_EQ(Tell("back now"), "'back now': unexpected argument after 'back'");
  EXPECT_EQ(Tell("lsoe"),
            "'lsoe': unknown instruction; expected back, release, counts, fault, "
            "short, lose, refuse, no-reply");

  engine_.AddObserver(this);
  Tell("lose errno=EIO");
  for (int i = 0; i < 2; ++i) EXPECT_EQ(engine_.Open(O_RDWR, 0, -1).error, EIO);
  engine_.ClearFaults();
  EXPECT_EQ(engine_.Open(O_RDWR, 0, -1).error, 0);
  Tell("lose");
  EXPECT_EQ(engine_.Open(O_RDWR, 0, -1).error, ENODEV);
  Tell("back");
  // A reply that is kept after a loss is held until the release.
  ReplyRule held;
  held.client = "PROBE";
  held.privateData = Bytes(16);
  held.held = true;
  engine_.AddReply(held);
  char bytes[20] = {};
  for (const bool first : {true, false}) {
    const auto number = static_cast<std::uint64_t>(engine_.Open(O_RDWR, 0, -1).value);
    Guid guid = engine_.clients()[0].guid;
    EXPECT_EQ(engine_.Ioctl(number, kConnectRequest, guid.data()).error, 0);
    if (first) engine_.Write(number, bytes, 20);
    for (int i = 0; i < 2; ++i) {  // the reply and its private data
      EXPECT_EQ(engine_.Read(number, bytes, 20, true).error, first ? EAGAIN : 0);
    }
    Tell("lose opens=0");
    EXPECT_EQ(Tell("release"), first ? "1 reply released\n" : "0 replies released\n");
  }
  Tell("lose read:9");
  server.reset();
  EXPECT_EQ(events_,
            "tell lose errno=EIO; tell lose; tell back; tell lose opens=0; tell release; "
            "tell lose opens=0; tell release; tell lose read:9; ");
}

TEST_F(ControlTest, replaces_the_socket_of_a_killed_server_but_no_other_file) {
  const std::string socket_path = ControlServer::PathFor(path_);
  mknod(socket_path.c_str(), S_IFSOCK | 0600, 0);
  EXPECT_EQ(Tell("back", path_), "");
  std::ofstream(socket_path) << "a file";
  EXPECT_EQ(Tell("back", path_),
            "cannot create the control socket '" + socket_path + "': Address already in use");
  EXPECT_EQ(unlink(socket_path.c_str()), 0);
  const std::string longest = path_ + std::string(107 - socket_path.size(), 'x');
  EXPECT_EQ(Tell("back", longest).rfind("no zulisim is serving '" + path_ + "'", 0), 0u);
  EXPECT_NE(Tell("back", longest + 'x').find("is longer than 107 characters"), std::string::npos);
}

}  // namespace
}  // namespace zulisim
