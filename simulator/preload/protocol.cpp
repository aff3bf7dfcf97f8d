#include "simulator/preload/protocol.h"

#include <sys/socket.h>

#include <cerrno>

namespace zulisim::protocol {
namespace {

// Returns the part of a message and its payload that comes after the first `done` bytes.
struct Rest {
  Rest(void* message, void* payload, std::size_t room, std::size_t done) {
    const std::size_t ofMessage = done < sizeof(Message) ? done : sizeof(Message);
    const std::size_t ofPayload = done - ofMessage;
    pieces[0] = {static_cast<char*>(message) + ofMessage, sizeof(Message) - ofMessage};
    pieces[1] = {static_cast<char*>(payload) + ofPayload, room - ofPayload};
    header.msg_iov = pieces;
    header.msg_iovlen = 2;
  }
  struct iovec pieces[2];
  struct msghdr header {};
};

}  // namespace

int Send(int socket, const Message& message, const void* payload) {
  for (std::size_t done = 0; done < sizeof(message) + message.payload;) {
    const Rest rest(const_cast<Message*>(&message), const_cast<void*>(payload), message.payload,
                    done);
    const ssize_t sent = sendmsg(socket, &rest.header, MSG_NOSIGNAL);
    if (sent < 0 && errno != EINTR) return errno;
    if (sent > 0) done += static_cast<std::size_t>(sent);
  }
  return 0;
}

int Receive(int socket, Message* message, void* payload, std::size_t room, int flags) {
  for (std::size_t done = 0;
       done < sizeof(*message) || done < sizeof(*message) + message->payload;) {
    Rest rest(message, payload, room, done);
    const ssize_t received = recvmsg(socket, &rest.header, flags);
    if (received == 0) return ENODEV;
    if (received < 0 && errno != EINTR) return errno;
    if (received > 0) done += static_cast<std::size_t>(received);
    if (done >= sizeof(*message) && message->payload > room) return EMSGSIZE;
  }
  return 0;
}

}  // namespace zulisim::protocol
