#pragma once

#include <string>

// Open libraries that do the same kind of work, each set up to write the same bytes: no prefix of
// their own, every line flushed.
namespace bench {

class GlogPeer {
 public:
  // Logs to a file whose name begins with `path`.
  explicit GlogPeer(const std::string& path);
  // "StartIoEx3:36: InputBufferLength: <length>".
  void WriteLine(unsigned int length);
  // The same line above the threshold.
  void FilteredLine(unsigned int length);
};

class SpdlogPeer {
 public:
  explicit SpdlogPeer(const std::string& path);
  void WriteLine(unsigned int length);
  void FilteredLine(unsigned int length);
};

// The device transport of the TPM 2 software stack on "/dev/tpm0", its logging off.
class TpmPeer {
 public:
  TpmPeer();
  ~TpmPeer();
  TpmPeer(const TpmPeer&) = delete;
  TpmPeer& operator=(const TpmPeer&) = delete;

  // Transmits a request and receives its reply, kMessageLength bytes each.
  void Exchange();

 private:
  void* context_;
};

}  // namespace bench
