#include "log/log_file.h"

bool DetermineLogFilePath(std::stringstream& path) {
  path << "/data"
       << "/Marvoleth.log" << std::ends;
  return true;
}
