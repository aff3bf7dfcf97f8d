#pragma once

#include "simulator/raw_operation.h"
#include "simulator/recording_line.h"

namespace zulisim {

// The operation of a line, without its bytes. Throws RecordingError.
RawOperation ParseOperationLine(const RecordingLine& line);

}  // namespace zulisim
