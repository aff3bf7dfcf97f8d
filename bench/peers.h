#pragma once

#include <string>

// Open-source libraries that do the same kind of work. Each is configured to write the same bytes,
// without its own prefix, and to flush every line.
namespace bench {

class GlogPeer {
 public:
  // Logs to a file whose path begins with `path`.
  explicit GlogPeer(const std::string& path);
  // Writes "StartIoEx3:36: InputBufferLength: <length>".
  void WriteLine(unsigned int length);
  // Formats the same line at a level that is filtered out.
  void FilteredLine(unsigned int length);
};

class SpdlogPeer {
 public:
  explicit SpdlogPeer(const std::string& path);
  void WriteLine(unsigned int length);
  void FilteredLine(unsigned int length);
};

// Uses the device transport of the TPM 2 software stack on "/dev/tpm0", with its logging off.
class TpmPeer {
 public:
  TpmPeer();
  ~TpmPeer();
  TpmPeer(const TpmPeer&) = delete;
  TpmPeer& operator=(const TpmPeer&) = delete;

  // Sends a request and receives its reply, kMessageLength bytes each.
  void Exchange();

 private:
  void* context_;
};

}  // namespace bench
