#pragma once

#include "simulator/device/raw_operation.h"
#include "simulator/record/recording_line.h"

namespace zulisim {

// The operation of a line, without its bytes. Throws RecordingError.
RawOperation ParseOperationLine(const RecordingLine& line);

}  // namespace zulisim
