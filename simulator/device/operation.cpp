#include "simulator/device/operation.h"

#include <errno.h>
#include <strings.h>

#include <algorithm>
#include <array>
#include <iterator>

namespace zulisim {
namespace {

constexpr std::array<const char*, kOperationCount> kNames = {"open", "ioctl", "read", "write",
                                                             "close"};

struct NamedErrno {
  int error;
  const char* name;
};

// Not every libc that this is built for has the names.
#define ZULISIM_ERRNOS(X)                                                                         \
    X(EPERM) X(ENOENT) X(ESRCH) X(EINTR) X(EIO) X(ENXIO) X(E2BIG) X(ENOEXEC) X(EBADF) X(ECHILD)   \
    X(EAGAIN) X(ENOMEM) X(EACCES) X(EFAULT) X(ENOTBLK) X(EBUSY) X(EEXIST) X(EXDEV) X(ENODEV)      \
    X(ENOTDIR) X(EISDIR) X(EINVAL) X(ENFILE) X(EMFILE) X(ENOTTY) X(ETXTBSY) X(EFBIG) X(ENOSPC)    \
    X(ESPIPE) X(EROFS) X(EMLINK) X(EPIPE) X(EDOM) X(ERANGE) X(EDEADLK) X(ENAMETOOLONG) X(ENOLCK)  \
    X(ENOSYS) X(ENOTEMPTY) X(ELOOP) X(ENOMSG) X(EIDRM) X(ECHRNG) X(EL2NSYNC) X(EL3HLT) X(EL3RST)  \
    X(ELNRNG) X(EUNATCH) X(ENOCSI) X(EL2HLT) X(EBADE) X(EBADR) X(EXFULL) X(ENOANO) X(EBADRQC)     \
    X(EBADSLT) X(EBFONT) X(ENOSTR) X(ENODATA) X(ETIME) X(ENOSR) X(ENONET) X(ENOPKG) X(EREMOTE)    \
    X(ENOLINK) X(EADV) X(ESRMNT) X(ECOMM) X(EPROTO) X(EMULTIHOP) X(EDOTDOT) X(EBADMSG)            \
    X(EOVERFLOW) X(ENOTUNIQ) X(EBADFD) X(EREMCHG) X(ELIBACC) X(ELIBBAD) X(ELIBSCN) X(ELIBMAX)     \
    X(ELIBEXEC) X(EILSEQ) X(ERESTART) X(ESTRPIPE) X(EUSERS) X(ENOTSOCK) X(EDESTADDRREQ)           \
    X(EMSGSIZE) X(EPROTOTYPE) X(ENOPROTOOPT) X(EPROTONOSUPPORT) X(ESOCKTNOSUPPORT) X(EOPNOTSUPP)  \
    X(EPFNOSUPPORT) X(EAFNOSUPPORT) X(EADDRINUSE) X(EADDRNOTAVAIL) X(ENETDOWN) X(ENETUNREACH)     \
    X(ENETRESET) X(ECONNABORTED) X(ECONNRESET) X(ENOBUFS) X(EISCONN) X(ENOTCONN) X(ESHUTDOWN)     \
    X(ETOOMANYREFS) X(ETIMEDOUT) X(ECONNREFUSED) X(EHOSTDOWN) X(EHOSTUNREACH) X(EALREADY)         \
    X(EINPROGRESS) X(ESTALE) X(EUCLEAN) X(ENOTNAM) X(ENAVAIL) X(EISNAM) X(EREMOTEIO) X(EDQUOT)    \
    X(ENOMEDIUM) X(EMEDIUMTYPE) X(ECANCELED) X(ENOKEY) X(EKEYEXPIRED) X(EKEYREVOKED)              \
    X(EKEYREJECTED) X(EOWNERDEAD) X(ENOTRECOVERABLE) X(ERFKILL) X(EHWPOISON)
constexpr NamedErrno kErrnos[] = {
#define ZULISIM_NAMED_ERRNO(name) {name, #name},
    ZULISIM_ERRNOS(ZULISIM_NAMED_ERRNO)
#undef ZULISIM_NAMED_ERRNO
};

}  // namespace

const char* OperationName(Operation operation) {
  return kNames[static_cast<std::size_t>(operation)];
}

std::optional<Operation> OperationFromName(const std::string& name) {
  for (std::size_t i = 0; i < kNames.size(); ++i) {
    if (name == kNames[i]) return static_cast<Operation>(i);
  }
  return std::nullopt;
}

std::string ErrnoName(int error) {
  const auto* entry = std::find_if(std::begin(kErrnos), std::end(kErrnos),
                                   [&](const NamedErrno& other) { return other.error == error; });
  return entry != std::end(kErrnos) ? entry->name : std::to_string(error);
}

std::optional<int> ErrnoFromName(const std::string& name) {
  for (const NamedErrno& entry : kErrnos) {
    if (strcasecmp(entry.name, name.c_str()) == 0) return entry.error;
  }
  return std::nullopt;
}

}  // namespace zulisim
