#include "oscl/whole_file.h"

#include "oscl/file.h"
#include "oscl/last_error.h"
#include "oscl/memory.h"

namespace {

constexpr uint32_t kShareRead = 1;
constexpr uint32_t kAttributeNormal = 128;

// Closes a handle at the end of a scope. Keeps the code of the last step, which CloseHandle would
// overwrite with 0.
class FileGuard {
 public:
  explicit FileGuard(HANDLE file) : file_(file) {}
  ~FileGuard() {
    const uint32_t code = GetLastError();
    CloseHandle(file_);
    oscl::SetLastErrorCode(code);
  }
  FileGuard(const FileGuard&) = delete;
  FileGuard& operator=(const FileGuard&) = delete;

 private:
  HANDLE file_;
};

// Returns a buffer with the first `size` bytes of the file, or null.
void* ReadExactly(HANDLE file, uint32_t size) {
  void* buffer = AllocAndZeroMem(size);
  if (buffer == nullptr) return nullptr;
  uint32_t done = 0;
  if (ReadFile(file, buffer, size, &done, nullptr) != 0 && done == size) return buffer;
  const uint32_t code = GetLastError();
  FreeMem(buffer);
  oscl::SetLastErrorCode(code);
  return nullptr;
}

HRESULT WriteAndReport(HANDLE file, const void* data, uint32_t length) {
  uint32_t done = 0;
  return WriteFile(file, data, length, &done, nullptr) != 0 ? S_OK : E_FAIL;
}

}  // namespace

void* OSCL_ReadFile(const char* path, void* /*unused*/, uint32_t* size) {
  if (size == nullptr) {
    oscl::SetLastErrorCode(OSCL_ERROR_INVALID_PARAMETER);
    return nullptr;
  }
  *size = 0;
  HANDLE file =
      CreateFile(path, GENERIC_READ, kShareRead, nullptr, OPEN_EXISTING, kAttributeNormal, nullptr);
  if (file == INVALID_HANDLE_VALUE) return nullptr;
  const FileGuard guard(file);
  const uint32_t fileSize = GetFileSize(file, nullptr);
  if (fileSize == 0) return nullptr;
  if (fileSize == 0xFFFFFFFFu && GetLastError() != OSCL_ERROR_SUCCESS) return nullptr;
  void* buffer = ReadExactly(file, fileSize);
  if (buffer != nullptr) *size = fileSize;
  return buffer;
}

HRESULT OSCL_WriteFile(const char* path, const void* data, uint32_t length) {
  HANDLE file =
      CreateFile(path, GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, kAttributeNormal, nullptr);
  if (file == INVALID_HANDLE_VALUE) return E_FAIL;
  const FileGuard guard(file);
  return WriteAndReport(file, data, length);
}

HRESULT OSCL_AppendFile(const char* path, const void* data, uint32_t length) {
  HANDLE file = CreateFile(path, GENERIC_WRITE, 0, nullptr, OPEN_ALWAYS, kAttributeNormal, nullptr);
  if (file == INVALID_HANDLE_VALUE) return E_FAIL;
  const FileGuard guard(file);
  // A pipe has no position, and a write to it always appends.
  SetFilePointer(file, 0, nullptr, FILE_END);
  return WriteAndReport(file, data, length);
}
