#pragma once

namespace zulisim::hooks {

// If the environment variable kDetailVariable is set, makes the library in this process write its
// detailed log lines too. Call it each time the library opens its log, because the library then
// resets its threshold.
void RaiseLogLevel();

}  // namespace zulisim::hooks
