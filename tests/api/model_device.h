#pragma once

#include <cerrno>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/api/traps.h"
#include "tests/support/library_test.h"

namespace test {

// A fault for one call: operations `first` to `first + times - 1` of a kind, counted from 0 within
// the call, fail with `error`; ENODEV means that the device is lost, which no close tells.
struct CallFault {
  zulisim::Operation operation;
  unsigned first, times;
  int error;
};

// What the library's own exception says.
struct Refusal : std::runtime_error {
  Refusal(uint32_t given, const std::string& text)
      : std::runtime_error("KALO Exception 0x" + Hex(given) + " " + text), status(given) {}
  uint32_t status;
};

// The words of each request, and of the buffer that its reply is read into.
constexpr uint32_t kRequestWords[] = {0xfedc1, 0, 2, 0xabc};
constexpr uint32_t kReplyWords[] = {0x1234abcd, 0xffffffff, 0x80000001, 0};

// Sessions and their connections: what they do on the device, and what they tell.
class DeviceModel {
 public:
  struct Session {
    const void* address = nullptr;
    bool live = true;
    std::string client, properties;
    int descriptor = -1;
    bool bound = false, lost = false;
    int32_t errorStatus = -1;
    std::string errorText;
  };
  explicit DeviceModel(bool traces) : traced(traces) {}

  static const void* AddressOf(const Session* session) {
    return session == nullptr ? nullptr : session->address;
  }
  // The session that lives at an address now.
  Session* LiveAt(const void* address) {
    for (const auto& session : sessions) {
      if (session->live && session->address == address) return session.get();
    }
    return nullptr;
  }

  // Of the next call: its faults, and the descriptors that the device's opens gave the library.
  std::vector<CallFault> faults;
  Trap trap = {};
  std::vector<int> opened;

  // Of the last call: log lines and device operations.
  Lines told;

  size_t descriptors = 0;
  std::vector<std::unique_ptr<Session>> sessions;

 protected:
  void Begin() {
    for (unsigned& count : occurrences_) count = 0;
    nextOpened_ = 0;
    told.clear();
  }

  // A name that ends in a colon has its tags in the texts.
  void Say(const std::string& name, const Lines& texts) {
    for (const std::string& text : texts) {
      told.push_back(name + (name.back() == ':' ? "" : ": ") + text);
    }
  }
  void Trace(const std::string& name, const Lines& texts) {
    if (traced) Say(name, texts);
  }

  Session* Open(const std::string& client, const ClientSession* const& field) {
    Spring(Point::kConnectClient);
    auto session = std::make_unique<Session>();
    session->client = client;
    Connect(*session);
    Trace("CpDremSession", {"Open ZULI."});
    session->address = field;
    if (LiveAt(field) != nullptr) told.push_back("a live session's address, given out again");
    sessions.push_back(std::move(session));
    return sessions.back().get();
  }

  void Destroy(Session* session) {
    if (session == nullptr) return;
    session->live = false;
    Disconnect(*session);
    Trace("~CpDremSession", {"Closed ZULI."});
  }

  uint32_t SessionCleanup(Session* session) {
    if (session == nullptr || !session->live) return 0;
    try {
      Spring(Point::kDisconnectAllClients);
    } catch (const std::runtime_error& error) {
      Destroy(session);
      Say("SessionCleanup", {error.what()});
      return 1;
    }
    Destroy(session);
    return 0;
  }

  void Spring(Point point) {
    if (!trap.Springs(point)) return;
    if (trap.kind == Trap::kRefuse) throw Refusal(0x4D, "refused");
    if (trap.kind == Trap::kBreak) throw std::runtime_error("IoControl() not implemented");
    throw 42;
  }

  void Exchange(Session& session, uint32_t command) {
    using zulisim::Operation;
    Trace("IoMessage", {"fd = " + Hex(static_cast<uint32_t>(session.descriptor)) +
                        ", Version = " + session.properties + "."});
    if (session.descriptor == -1) {
      Trace("IoMessage", {"Error in IOMessage input parameters"});
    } else {
      if (!Transfer(Operation::kWrite, session, "WriteToZuli", "WRITE")) {
        Fail("Error writing message to ZULI.", "ZULI Input Msg ", command, kRequestWords);
      }
      Trace("IoMessage", {"Write to ZULI bytes = 32."});
      if (!Transfer(Operation::kRead, session, "ReadFromZuli", "READ")) {
        Fail("Error reading message from ZULI.", "ZULI Output Msg ", kReplyWords[1], kReplyWords);
      }
    }
    Trace("IoMessage", {"Everything went well!"});
  }

  const bool traced;

 private:
  // The errno that an operation meets, 0 when it succeeds.
  int Operate(zulisim::Operation operation, Session& session) {
    using zulisim::Operation;
    int error = 0;
    const unsigned occurrence = occurrences_[static_cast<int>(operation)]++;
    for (const CallFault& fault : faults) {
      if (fault.operation != operation || occurrence - fault.first >= fault.times) continue;
      error = fault.error;
      break;
    }
    if (error == ENODEV) {
      for (const auto& each : sessions) each->lost = true;
      session.lost = true;
    } else if (error == 0 && session.lost && operation != Operation::kClose) {
      error = ENODEV;
    } else if (error == 0 && operation == Operation::kWrite && !session.bound) {
      error = ENOTCONN;
    }
    if (operation == Operation::kIoctl && error == 0) session.bound = true;
    told.push_back("<" + std::string(OperationName(operation)) +
                   (session.bound ? " " + session.client : "") +
                   (error == 0 ? "" : " " + zulisim::ErrnoName(error)) + ">");
    if (error != 0) errno_ = error;
    return error;
  }

  void Connect(Session& session) {
    session.descriptor = -1;
    session.bound = session.lost = false;
    if (const int error = Operate(zulisim::Operation::kOpen, session)) {
      Trace("Connect",
            {"open() for ZUL device /dev/zuli failed with errno = " + std::to_string(error) + "."});
      throw std::runtime_error("Cannot open ZULI device.");
    }
    ++descriptors;
    session.descriptor = nextOpened_ < opened.size() ? opened[nextOpened_++] : -1;
    Trace("Connect", {"ZULI FD: " + std::to_string(session.descriptor)});
    // What is refused stays the client's identifier.
    session.properties =
        session.client == "KALO" ? "cf, MaxLen = fbf6fcf1" : "e2, MaxLen = b638ab7e";
    if (const int error = Operate(zulisim::Operation::kIoctl, session)) {
      Trace(
          "Connect",
          {"ioctl(IOCTL_ZULI_CONNECT_CLIENT) failed with errno = " + std::to_string(error) + "."});
      throw std::runtime_error("Cannot connect to ZULI device.");
    }
    session.properties = "41, MaxLen = 1ab";
  }

  void Disconnect(Session& session) {
    int error = EBADF;
    if (session.descriptor != -1) {
      error = Operate(zulisim::Operation::kClose, session);
      --descriptors;
    }
    if (error == 0) return;
    errno_ = error;
    Trace("Disconnect",
          {"close() for ZUL device /dev/zuli failed with errno = " + std::to_string(error) + "."});
  }

  bool Transfer(zulisim::Operation operation, Session& session, const char* function,
                const std::string& word) {
    const std::string lost = "ZULI device is lost in " + word + " call ";
    for (int attempt = 1;; ++attempt) {
      const int error = Operate(operation, session);
      if (error == 0) {
        Trace(function, {word + " call is successful."});
        return true;
      }
      if (error != ENODEV) {
        Trace(function, {lost + "and recovering failed with errorno = " + std::to_string(error)});
        return false;
      }
      Trace(function, {lost + "with errorno = 19. Trying to reconnect (attempt #" +
                       std::to_string(attempt) + ")."});
      Disconnect(session);
      Connect(session);
      if (attempt == 5) return false;
    }
  }

  [[noreturn]] void Fail(const std::string& text, const std::string& title, uint32_t command,
                         const uint32_t (&words)[4]) {
    Trace("IoMessage", {text + " errno = " + std::to_string(errno_) + ".", title + Hex(words[0]),
                        "| " + Hex(command), "| " + Hex(words[2]), "| " + Hex(words[3]) + "\n"});
    throw std::runtime_error(text);
  }

  unsigned occurrences_[zulisim::kOperationCount] = {};
  size_t nextOpened_ = 0;
  int errno_ = 0;
};

}  // namespace test
