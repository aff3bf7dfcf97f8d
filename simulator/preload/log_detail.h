#pragma once

namespace zulisim::hooks {

// Has the library of this process write its detailed log lines too, when the environment asks for
// them. The library sets its threshold back whenever it opens its log, so that is when to call it.
void RaiseLogLevel();

}  // namespace zulisim::hooks
