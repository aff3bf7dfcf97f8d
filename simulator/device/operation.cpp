#include "simulator/device/operation.h"

#include <errno.h>
#include <strings.h>

#include <algorithm>
#include <array>
#include <iterator>
#include <sstream>
#include <vector>

namespace zulisim {
namespace {

constexpr std::array<const char*, kOperationCount> kNames = {"open", "ioctl", "read", "write",
                                                             "close"};

// From 1 on, as Linux numbers them here; "-" is none. Not every libc has the names.
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

// By number.
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
  const std::vector<std::string>& names = ErrnoNames();
  const bool named = error > 0 && static_cast<std::size_t>(error) < names.size();
  return named && names[error] != "-" ? names[error] : std::to_string(error);
}

std::optional<int> ErrnoFromName(const std::string& name) {
  const std::vector<std::string>& names = ErrnoNames();
  const auto found = std::find_if(names.begin(), names.end(), [&name](const auto& candidate) {
    return candidate != "-" && strcasecmp(candidate.c_str(), name.c_str()) == 0;
  });
  if (found == names.end()) return std::nullopt;
  return static_cast<int>(found - names.begin());
}

}  // namespace zulisim
