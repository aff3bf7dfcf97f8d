#include "oscl/file.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "oscl/last_error.h"

namespace {

constexpr uint32_t kInvalidSize = 0xFFFFFFFFu;
constexpr mode_t kCreatedFileMode = 0660;

int DescriptorOf(HANDLE handle) { return static_cast<int>(reinterpret_cast<intptr_t>(handle)); }

HANDLE HandleOf(int descriptor) {
  return reinterpret_cast<HANDLE>(static_cast<intptr_t>(descriptor));
}

// Returns the open flag of an access mask, or -1.
int AccessFlag(uint32_t access) {
  switch (access) {
    case GENERIC_READ:
      return O_RDONLY;
    case GENERIC_WRITE:
      return O_WRONLY;
    case GENERIC_READ | GENERIC_WRITE:
      return O_RDWR;
    default:
      return -1;
  }
}

// Returns the open flags of a disposition, or -1. Contract: CREATE_ALWAYS does not truncate.
int DispositionFlags(uint32_t disposition) {
  switch (disposition) {
    case CREATE_NEW:
      return O_CREAT | O_EXCL;
    case CREATE_ALWAYS:
      return O_CREAT;
    case OPEN_EXISTING:
    case OPEN_ALWAYS:
      return 0;
    case TRUNCATE_EXISTING:
      return O_TRUNC;
    default:
      return -1;
  }
}

// Stores the code for a call that returns -1 on failure. Returns true on success. Other negative
// results are positions in files such as "/proc/self/mem".
bool Succeeded(int64_t result) {
  oscl::SetLastErrorFromErrno(result == -1 ? errno : 0);
  return result != -1;
}

BOOL Moved(ssize_t count, uint32_t* done) {
  if (!Succeeded(count)) return 0;
  if (done != nullptr) *done = static_cast<uint32_t>(count);
  return 1;
}

}  // namespace

HANDLE CreateFile(const char* name, uint32_t access, uint32_t /*share*/, void* /*security*/,
                  uint32_t disposition, uint32_t /*attributes*/, HANDLE /*templateFile*/) {
  const int accessFlag = AccessFlag(access);
  const int dispositionFlags = DispositionFlags(disposition);
  if (name == nullptr || accessFlag < 0 || dispositionFlags < 0) {
    oscl::SetLastErrorCode(OSCL_ERROR_INVALID_PARAMETER);
    return INVALID_HANDLE_VALUE;
  }
  int descriptor = open(name, accessFlag | dispositionFlags, kCreatedFileMode);
  if (descriptor < 0 && disposition == OPEN_ALWAYS) {
    descriptor = open(name, O_RDWR | O_CREAT, kCreatedFileMode);
  }
  return Succeeded(descriptor) ? HandleOf(descriptor) : INVALID_HANDLE_VALUE;
}

uint32_t GetFileSize(HANDLE file, uint32_t* /*high*/) {
  struct stat status;
  if (!Succeeded(fstat(DescriptorOf(file), &status))) return kInvalidSize;
  return static_cast<uint32_t>(status.st_size);
}

BOOL ReadFile(HANDLE file, void* buffer, uint32_t length, uint32_t* done, void* /*overlapped*/) {
  return Moved(read(DescriptorOf(file), buffer, length), done);
}

BOOL WriteFile(HANDLE file, const void* buffer, uint32_t length, uint32_t* done,
               void* /*overlapped*/) {
  return Moved(write(DescriptorOf(file), buffer, length), done);
}

uint32_t SetFilePointer(HANDLE file, int32_t distance, int32_t* /*high*/, uint32_t method) {
  static constexpr int kOrigins[] = {SEEK_SET, SEEK_CUR, SEEK_END};
  if (method > FILE_END) {
    oscl::SetLastErrorCode(OSCL_ERROR_INVALID_PARAMETER);
    return kInvalidSize;
  }
  const off_t position = lseek(DescriptorOf(file), distance, kOrigins[method]);
  return Succeeded(position) ? static_cast<uint32_t>(position) : kInvalidSize;
}

BOOL CloseHandle(HANDLE handle) {
  close(DescriptorOf(handle));
  oscl::SetLastErrorCode(OSCL_ERROR_SUCCESS);
  return 1;
}
