#include <glog/logging.h>

#include "bench/peers.h"

namespace bench {

GlogPeer::GlogPeer(const std::string& path) {
  FLAGS_logbuflevel = -1;
  FLAGS_log_prefix = false;
  FLAGS_stderrthreshold = google::NUM_SEVERITIES;
  google::SetLogDestination(google::GLOG_INFO, path.c_str());
  google::SetLogSymlink(google::GLOG_INFO, "");
  google::InitGoogleLogging("kalodll_bench");
}

void GlogPeer::WriteLine(unsigned int length) {
  LOG(INFO) << "StartIoEx3" << ':' << 36 << ": "
            << "InputBufferLength: " << length;
}

void GlogPeer::FilteredLine(unsigned int length) {
  VLOG(1) << "StartIoEx3" << ':' << 36 << ": "
          << "InputBufferLength: " << length;
}

}  // namespace bench
