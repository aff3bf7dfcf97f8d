#pragma once

#include <cstddef>
#include <ostream>

#include "common/colours.h"
#include "tools/log/log_splitter.h"

namespace kaloctl {

// Prints a record as one line: copies, prefix, function, tag, text. A count or an address at the
// end of the text stands in a column of its own. Bytes that are not printable appear as \xNN.
void PrintLogRecord(std::ostream& out, const common::Colours& colours, const LogRecord& record,
                    std::size_t copies);

}  // namespace kaloctl
