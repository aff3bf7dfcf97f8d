#include "simulator/device/operation.h"

#include <errno.h>
#include <strings.h>

#include <algorithm>
#include <iterator>
#include <sstream>
#include <vector>

#include "common/format.h"
#include "common/input_error.h"
#include "common/text.h"

namespace zulisim {
namespace {

constexpr const char* kNames[kOperationCount] = {"open", "ioctl", "read", "write", "close"};

// The names of Linux's errno values, in order and starting at 1; "-" is a gap. Not every libc knows
// the names.
constexpr char kErrnos[] =
    "EPERM ENOENT ESRCH EINTR EIO ENXIO E2BIG ENOEXEC EBADF ECHILD EAGAIN ENOMEM EACCES EFAULT "
    "ENOTBLK EBUSY EEXIST EXDEV ENODEV ENOTDIR EISDIR EINVAL ENFILE EMFILE ENOTTY ETXTBSY EFBIG "
    "ENOSPC ESPIPE EROFS EMLINK EPIPE EDOM ERANGE EDEADLK ENAMETOOLONG ENOLCK ENOSYS ENOTEMPTY "
    "ELOOP - ENOMSG EIDRM ECHRNG EL2NSYNC EL3HLT EL3RST ELNRNG EUNATCH ENOCSI EL2HLT EBADE EBADR "
    "EXFULL ENOANO EBADRQC EBADSLT - EBFONT ENOSTR ENODATA ETIME ENOSR ENONET ENOPKG EREMOTE "
    "ENOLINK EADV ESRMNT ECOMM EPROTO EMULTIHOP EDOTDOT EBADMSG EOVERFLOW ENOTUNIQ EBADFD EREMCHG "
    "ELIBACC ELIBBAD ELIBSCN ELIBMAX ELIBEXEC EILSEQ ERESTART ESTRPIPE EUSERS ENOTSOCK "
    "EDESTADDRREQ EMSGSIZE EPROTOTYPE ENOPROTOOPT EPROTONOSUPPORT ESOCKTNOSUPPORT EOPNOTSUPP "
    "EPFNOSUPPORT EAFNOSUPPORT EADDRINUSE EADDRNOTAVAIL ENETDOWN ENETUNREACH ENETRESET "
    "ECONNABORTED ECONNRESET ENOBUFS EISCONN ENOTCONN ESHUTDOWN ETOOMANYREFS ETIMEDOUT "
    "ECONNREFUSED EHOSTDOWN EHOSTUNREACH EALREADY EINPROGRESS ESTALE EUCLEAN ENOTNAM ENAVAIL "
    "EISNAM EREMOTEIO EDQUOT ENOMEDIUM EMEDIUMTYPE ECANCELED ENOKEY EKEYEXPIRED EKEYREVOKED "
    "EKEYREJECTED EOWNERDEAD ENOTRECOVERABLE ERFKILL EHWPOISON";
static_assert(EDEADLK == 35 && ENOTSOCK == 88 && EHWPOISON == 133);

// Indexed by value.
const std::vector<std::string>& ErrnoNames() {
  static const std::vector<std::string> names = [] {
    std::istringstream words(kErrnos);
    std::vector<std::string> all = {"-"};
    all.insert(all.end(), std::istream_iterator<std::string>(words), {});
    return all;
  }();
  return names;
}

}  // namespace

const char* CloseReasonText(CloseReason reason) {
  constexpr const char* kTexts[] = {"", "the program ended without a close",
                                    "still open when the service of the device ended"};
  return kTexts[static_cast<std::size_t>(reason)];
}

const char* OperationName(Operation operation) {
  return kNames[static_cast<std::size_t>(operation)];
}

Operation ParseOperation(const std::string& name) {
  const auto* found = std::find(std::begin(kNames), std::end(kNames), name);
  if (found != std::end(kNames)) return static_cast<Operation>(found - kNames);
  throw common::InputError(common::Quoted(name) +
                           " is not an operation; expected open, ioctl, read, write or close" +
                           common::NearestHint(name, {std::begin(kNames), std::end(kNames)}));
}

std::string ErrnoName(int error) {
  const std::vector<std::string>& names = ErrnoNames();
  const bool named = error > 0 && static_cast<std::size_t>(error) < names.size();
  return named && names[error] != "-" ? names[error] : std::to_string(error);
}

int ParseErrno(const std::string& name) {
  const std::vector<std::string>& names = ErrnoNames();
  const auto found = std::find_if(names.begin(), names.end(), [&name](const auto& candidate) {
    return candidate != "-" && strcasecmp(candidate.c_str(), name.c_str()) == 0;
  });
  if (found != names.end()) return static_cast<int>(found - names.begin());
  std::vector<std::string> candidates = names;
  candidates.erase(std::remove(candidates.begin(), candidates.end(), "-"), candidates.end());
  const std::string hint = common::NearestHint(name, candidates);
  throw common::InputError(common::Quoted(name) + " is not a valid errno name" +
                           (hint.empty() ? "; expected a name such as EIO or ENODEV" : hint));
}

Bytes ParseBytes(const std::string& what, const std::string& text) {
  Bytes bytes;
  try {
    bytes = common::ParseHex(text);
  } catch (const common::InputError&) {
    // The message below leaves out the position in this text, because it would look like a position
    // in a file.
  }
  if (bytes.empty()) {
    throw common::InputError(what + " needs an even number of hexadecimal digits, not " +
                             common::Quoted(text.size() > 80 ? text.substr(0, 80) + "..." : text));
  }
  if (bytes.size() <= kLongestMessage) return bytes;
  throw common::InputError(common::Format("{} is longer than {} bytes", what, kLongestMessage));
}

std::optional<std::uint32_t> WordAt(const Bytes& message, std::size_t offset) {
  if (message.size() < offset + 4) return std::nullopt;
  std::uint32_t word = 0;
  for (std::size_t i = 4; i-- > 0;) word = word << 8 | message[offset + i];
  return word;
}

void SetWordAt(Bytes* message, std::size_t offset, std::uint32_t word) {
  for (std::size_t i = offset; i < std::min(message->size(), offset + 4); ++i, word >>= 8) {
    (*message)[i] = static_cast<std::uint8_t>(word);
  }
}

std::size_t OperationRecord::InputSize() const {
  if (!hasBuffer) return 0;
  if (operation == Operation::kIoctl) return IoctlSize(request);
  return operation == Operation::kWrite ? std::min<std::uint64_t>(length, kLongestMessage) : 0;
}

std::size_t OperationRecord::OutputSize() const {
  if (!hasBuffer) return 0;
  if (operation == Operation::kIoctl) return IoctlSize(request);
  return operation == Operation::kRead && result > 0 ? static_cast<std::size_t>(result) : 0;
}

Bytes OperationRecord::Message() const {
  if (payload == Payload::kNone) return {};
  if (payload != Payload::kRequest) return output;
  const auto taken =
      std::min(input.size(), static_cast<std::size_t>(std::max<std::int64_t>(0, result)));
  return Bytes(input.begin(), input.begin() + static_cast<std::ptrdiff_t>(taken));
}

void RemoveBodies(OperationRecord* record) {
  if (record->IsConnect()) return;
  const bool isRequest = record->operation == Operation::kWrite;
  // The decoder may mistake private data for a reply.
  const bool isReply = record->payload == Payload::kReply && record->commandId &&
                       WordAt(record->output, kCommandIdOffset) == record->commandId;
  record->input.resize(isRequest ? std::min(record->input.size(), kHeaderSize) : 0);
  record->output.resize(isReply ? std::min(record->output.size(), kHeaderSize) : 0);
  if (!isReply) record->status.reset();
}

std::chrono::nanoseconds Now() { return std::chrono::steady_clock::now().time_since_epoch(); }

Bytes Copied(const void* buffer, std::size_t length) {
  const auto* bytes = static_cast<const std::uint8_t*>(buffer);
  return buffer == nullptr ? Bytes() : Bytes(bytes, bytes + length);
}

}  // namespace zulisim
