#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>

#include "bench/peers.h"

namespace bench {

SpdlogPeer::SpdlogPeer(const std::string& path) {
  auto logger = spdlog::basic_logger_mt("bench", path);
  logger->set_pattern("%v");
  logger->flush_on(spdlog::level::trace);
  spdlog::set_default_logger(logger);
}

void SpdlogPeer::WriteLine(unsigned int length) {
  spdlog::info("{}:{}: InputBufferLength: {}", "StartIoEx3", 36, length);
}

void SpdlogPeer::FilteredLine(unsigned int length) {
  spdlog::debug("{}:{}: InputBufferLength: {}", "StartIoEx3", 36, length);
}

}  // namespace bench
