#pragma once

namespace zulisim::hooks {

// Makes the library of this process write its detailed log lines too, if the environment says so.
// Call it whenever the library opens its log, because the library then resets its threshold.
void RaiseLogLevel();

}  // namespace zulisim::hooks
