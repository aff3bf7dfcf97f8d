#pragma once

#include <optional>
#include <sstream>

namespace logging {

// An empty stream with the standard formats, to be moved from. Building a stream looks its locale's
// facets up several times, which costs more than all else in a message; moving one looks them up
// once. So a single stream, shared by all threads, is moved from again and again; a thread that
// finds it in use builds one of its own.
class StreamSource {
 public:
  StreamSource();
  ~StreamSource();
  StreamSource(const StreamSource&) = delete;
  StreamSource& operator=(const StreamSource&) = delete;

  // Valid as long as this object.
  std::stringstream&& Take();

 private:
  // Set while another thread has the shared one.
  std::optional<std::stringstream> own_;
};

}  // namespace logging
