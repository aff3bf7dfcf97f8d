#include "log/log_file.h"

#include <memory>

#include "log/logger.h"
#include "oscl/errno_keeper.h"

bool DetermineLogFilePath(std::stringstream& path) {
  path << "/data"
       << "/Marvoleth.log" << std::ends;
  return true;
}

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
  } catch (...) {
  }
}

}  // namespace logging
