#include "log/file_sink.h"

#include <memory>
#include <sstream>

#include "log/log_file.h"
#include "log/log_line.h"
#include "log/logger.h"
#include "oscl/critical_section_guard.h"
#include "oscl/errno_keeper.h"

namespace logging {

void AppendFileSink() {
  const oscl::ErrnoKeeper keeper;
  try {
    std::stringstream path;
    if (!DetermineLogFilePath(path)) return;
    auto sink = std::make_unique<FileLogSink>(path.str().c_str());
    const oscl::CriticalSectionGuard guard(Logger::logBase.lock);
    Logger::logBase.sinks.push_back(sink.get());
    sink.release();
    NoteSink();
  } catch (...) {
  }
}

}  // namespace logging
